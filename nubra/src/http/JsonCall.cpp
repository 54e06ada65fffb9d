// SPDX-License-Identifier: MIT
#include "http/JsonCall.h"

#include "config/ClientConfig.h"
#include "http/TransferSetup.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

namespace Nubra {

namespace {

// Built once for the life of the process (transfers may outlive any one
// manager): a call with no headers of its own then allocates none.
curl_slist* sharedJsonHeaders(bool withBody, bool ownAccept, bool ownType)
{
    static curl_slist* const accept = curl_slist_append(nullptr, "Accept: application/json");
    static curl_slist* const typeOnly = curl_slist_append(nullptr, "Content-Type: application/json");
    static curl_slist* const acceptAndType = [] {
        curl_slist* list = curl_slist_append(nullptr, "Content-Type: application/json");
        list->next = accept;
        return list;
    }();
    const bool wantAccept = !ownAccept;
    const bool wantType = withBody && !ownType;
    if (wantAccept)
        return wantType ? acceptAndType : accept;
    return wantType ? typeOnly : nullptr;
}

} // namespace

JsonCall::JsonCall(CurlMultiDriver* driver)
    : m_transfer(driver)
{
    m_transfer.setBodySink([this](const char* data, size_t size) {
        if (m_answer.size() + qint64(size) > kMaxAnswerBytes) {
            m_tooLarge = true;
            return false;
        }
        m_answer.append(data, int(size));
        return true;
    });
    m_transfer.setCompletionHandler([this](int curlCode) { completed(curlCode); });
}

QUrl JsonCall::setUrl(const QUrl& base, const QString& pathOrUrl, const QVariantMap& query)
{
    QUrl url = ClientConfig::join(base, pathOrUrl);
    appendQuery(url, query);
    m_transfer.setUrl(url);
    return url;
}

void JsonCall::setJsonBody(const QVariantMap& body)
{
    m_transfer.setBody(QJsonDocument(QJsonObject::fromVariantMap(body)).toJson(QJsonDocument::Compact));
}

void JsonCall::setJsonHeaders(bool withBody, bool ownAccept, bool ownType)
{
    m_transfer.setSharedHeaders(sharedJsonHeaders(withBody, ownAccept, ownType));
}

void JsonCall::completed(int curlCode)
{
    const Answer answer = read(curlCode);
    // A copy: the handler may delete this call (with the handler).
    const AnswerHandler handler = m_handler;
    if (handler)
        handler(answer);
}

bool JsonCall::cloudSucceeded(const Answer& answer, Error::ErrorCode* code, QString* message)
{
    if (answer.code != Error::NoError) {
        *code = answer.code;
        *message = answer.message;
        return false;
    }
    if (answer.httpStatus < 400 &&
        answer.object.value(QStringLiteral("status")).toString() == QLatin1String("success"))
        return true;
    *code = answer.httpStatus >= 400 ? Error::HttpError : Error::ProtocolErrorOther;
    *message = answer.object.value(QStringLiteral("message")).toString();
    if (message->isEmpty())
        *message = QStringLiteral("the cloud answered a failure (HTTP %1)").arg(answer.httpStatus);
    return false;
}

JsonCall::Answer JsonCall::read(int curlCode) const
{
    Answer answer;
    const long http = m_transfer.httpStatus();
    answer.httpStatus = int(http);
    answer.curlCode = curlCode;
    if (curlCode != CURLE_OK) {
        if (m_tooLarge) {
            answer.failure = Answer::Failure::Size;
            answer.code = Error::InvalidResponse;
            answer.message = QStringLiteral("answer larger than %1 bytes").arg(kMaxAnswerBytes);
            return answer;
        }
        const CurlTransfer::Failure failure = m_transfer.failure(curlCode);
        answer.code = failure.code;
        answer.message = failure.message;
        answer.failure = Answer::Failure::Transfer;
        return answer;
    }
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(m_answer, &parseError);
    if (parseError.error == QJsonParseError::NoError && document.isObject()) {
        answer.object = document.object().toVariantMap();
        return answer;
    }
    answer.failure = Answer::Failure::Content;
    if (http >= 400) {
        answer.code = Error::HttpError;
        answer.message = QStringLiteral("HTTP status %1").arg(http);
        return answer;
    }
    answer.code = Error::InvalidResponse;
    answer.message = QStringLiteral("answer is not a JSON object (HTTP %1, %2 bytes)").arg(http).arg(m_answer.size());
    return answer;
}

} // namespace Nubra
