// SPDX-License-Identifier: MIT
#pragma once

#include <Nubra/Reply.h>

#include <QPointer>

#include <functional>

namespace Nubra {

class CloudJsonCall;

// Reply of an upgrade request answered by one cloud call ("checkUpgrade",
// "isExist" when the total size must be asked for). The cloud's "result"
// goes through shape() into the reply's "result"; when fallback is set, a
// failed cloud call still finishes successfully with fallback() instead.
class UpgradeCallReply : public Reply {
    Q_OBJECT
public:
    using Shape = std::function<QVariantMap(const QVariantMap& cloudResult)>;
    using Fallback = std::function<QVariantMap()>;

    UpgradeCallReply(const QString& name, CloudJsonCall* call, Shape shape, Fallback fallback, QObject* parent);

protected:
    void onAbort(const QString& item) override;
    void onStop(const QString& item) override { onAbort(item); }

private:
    QPointer<CloudJsonCall> m_call;
};

} // namespace Nubra
