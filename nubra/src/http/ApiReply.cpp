// SPDX-License-Identifier: MIT
#include "http/ApiReply.h"

#include "http/TransferSetup.h"

#include <QLoggingCategory>
#include <QPointer>

Q_LOGGING_CATEGORY(lcNubraHttp, "nubra.http", QtWarningMsg)

namespace Nubra {

ApiReply::ApiReply(const QString& name, CurlMultiDriver* driver, QObject* parent)
    : Reply(name, parent)
    , m_call(driver)
{
    m_call.setAnswerHandler([this](const JsonCall::Answer& answer) { answered(answer); });
}

bool ApiReply::start() { return m_call.start(); }

void ApiReply::onStop(const QString& item)
{
    // An API call has nothing to pause: stopping it ends it.
    onAbort(item);
}

void ApiReply::onAbort(const QString& item)
{
    if (!item.isEmpty() || isFinished())
        return;
    m_call.cancel();
    failWith(Error::Cancelled, QStringLiteral("request aborted"));
}

void ApiReply::answered(const JsonCall::Answer& answer)
{
    const int http = answer.httpStatus;
    setHttpStatus(http);
    qCDebug(lcNubraHttp).noquote() << requestName() << redactedUrl(m_url) << "->" << http << "curl"
                                   << answer.curlCode << m_call.transfer().elapsedMs() << "ms";
    switch (answer.failure) {
    case JsonCall::Answer::Failure::None:
        finishWith(answer.object);
        return;
    case JsonCall::Answer::Failure::Size:
        // Without the status, as applications built against this interface
        // have always seen it.
        failWith(answer.code, answer.message);
        return;
    case JsonCall::Answer::Failure::Transfer: {
        qCWarning(lcNubraHttp).noquote() << requestName() << "failed:" << Error::describe(answer.code) << "-"
                                         << answer.message;
        const QList<QSslError> sslErrors = m_call.transfer().sslErrors();
        if (!sslErrors.isEmpty()) {
            const QPointer<ApiReply> self(this);
            emit sslErrorOccurred(sslErrors);
            if (!self)
                return; // a receiver deleted the reply
        }
        break;
    }
    case JsonCall::Answer::Failure::Content:
        break;
    }
    failWith(answer.code, answer.message, {{QStringLiteral("httpStatus"), http}});
}

} // namespace Nubra
