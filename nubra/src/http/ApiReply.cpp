// SPDX-License-Identifier: MIT
#include "http/ApiReply.h"

#include "http/CurlErrorMap.h"
#include "http/CurlTransfer.h"
#include "http/TransferSetup.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QLoggingCategory>
#include <QPointer>

Q_LOGGING_CATEGORY(lcNubraHttp, "nubra.http", QtWarningMsg)

namespace Nubra {

ApiReply::ApiReply(const QString& name, CurlMultiDriver* driver, QObject* parent)
    : Reply(name, parent)
    , m_transfer(driver)
{
    m_transfer.setBodySink([this](const char* data, size_t size) {
        if (m_answer.size() + qint64(size) > kMaxAnswerBytes) {
            m_tooLarge = true;
            return false;
        }
        m_answer.append(data, int(size));
        return true;
    });
    m_transfer.setCompletionHandler([this](int curlCode) { transferCompleted(curlCode); });
}

bool ApiReply::start() { return m_transfer.start(); }

void ApiReply::onStop(const QString& item)
{
    // An API call has nothing to pause: stopping it ends it.
    onAbort(item);
}

void ApiReply::onAbort(const QString& item)
{
    if (!item.isEmpty() || isFinished())
        return;
    m_transfer.cancel();
    failWith(Error::Cancelled, QStringLiteral("request aborted"));
}

void ApiReply::transferCompleted(int curlCode)
{
    const long http = m_transfer.httpStatus();
    setHttpStatus(int(http));
    qCDebug(lcNubraHttp).noquote() << requestName() << redactedUrl(m_url) << "->" << http << "curl" << curlCode
                                   << m_transfer.elapsedMs() << "ms";
    if (curlCode != CURLE_OK) {
        if (m_tooLarge) {
            failWith(Error::InvalidResponse, QStringLiteral("answer larger than %1 bytes").arg(kMaxAnswerBytes));
            return;
        }
        const auto failure = m_transfer.failure(curlCode);
        qCWarning(lcNubraHttp).noquote() << requestName() << "failed:" << Error::describe(failure.code) << "-"
                                         << failure.message;
        if (!m_transfer.sslErrors().isEmpty()) {
            const QPointer<ApiReply> self(this);
            emit sslErrorOccurred(m_transfer.sslErrors());
            if (!self)
                return; // a receiver deleted the reply
        }
        failWith(failure.code, failure.message, {{QStringLiteral("httpStatus"), int(http)}});
        return;
    }
    QJsonParseError parseError{};
    const QJsonDocument answer = QJsonDocument::fromJson(m_answer, &parseError);
    if (parseError.error == QJsonParseError::NoError && answer.isObject()) {
        finishWith(answer.object().toVariantMap());
        return;
    }
    if (http >= 400) {
        failWith(Error::HttpError, QStringLiteral("HTTP status %1").arg(http), {{QStringLiteral("httpStatus"), int(http)}});
        return;
    }
    failWith(Error::InvalidResponse,
             QStringLiteral("answer is not a JSON object (HTTP %1, %2 bytes)").arg(http).arg(m_answer.size()),
             {{QStringLiteral("httpStatus"), int(http)}});
}

} // namespace Nubra
