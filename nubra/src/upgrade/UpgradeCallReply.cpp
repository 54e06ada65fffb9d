// SPDX-License-Identifier: MIT
#include "upgrade/UpgradeCallReply.h"

#include "upgrade/CloudJsonCall.h"

namespace Nubra {

UpgradeCallReply::UpgradeCallReply(const QString& name, CloudJsonCall* call, Shape shape, Fallback fallback,
                                   QObject* parent)
    : Reply(name, parent)
    , m_call(call)
{
    call->setParent(this);
    connect(call, &CloudJsonCall::done, this,
            [this, call, shape, fallback](Error::ErrorCode code, const QString& message, const QVariantMap& result) {
                setHttpStatus(call->httpStatus());
                if (code == Error::NoError || fallback) {
                    finishWith({{QStringLiteral("status"), QStringLiteral("success")},
                                {QStringLiteral("errorCode"), 0},
                                {QStringLiteral("result"), code == Error::NoError ? shape(result) : fallback()}});
                    return;
                }
                failWith(code, message, {{QStringLiteral("result"), result}});
            });
    call->start();
}

void UpgradeCallReply::onAbort(const QString& item)
{
    if (!item.isEmpty() || isFinished())
        return;
    if (m_call)
        m_call->cancel();
    failWith(Error::Cancelled, QStringLiteral("request aborted"));
}

} // namespace Nubra
