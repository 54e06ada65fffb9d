// SPDX-License-Identifier: MIT
#pragma once

#include "core/Service.h"

#include <Nubra/Error.h>

#include <QObject>
#include <QUrl>
#include <QVariantMap>

#include <memory>

namespace Nubra {

class JsonCall;

// One JSON POST to the cloud for the upgrade service, with the
// configuration's default time-out, so that done() always comes. The path
// is the request table's entry for routeName when the configuration has
// one, else fallbackPath. Size bound and failure rule are JsonCall's; on
// top, the cloud's answer must say "status" "success".
class CloudJsonCall : public QObject {
    Q_OBJECT
public:
    CloudJsonCall(const ClientContext& context, const QString& routeName, const QString& fallbackPath,
                  const QVariantMap& body, QObject* parent);
    ~CloudJsonCall() override;

    // Reports every failure (also "not configured") through done(), on a
    // later turn of the event loop.
    void start();
    void cancel();

    // The HTTP status of the answer (0 before it, or when none came).
    int httpStatus() const { return m_httpStatus; }

    // Absolute URL for a path or URL the cloud handed out (empty when a
    // path comes without a configured "baseUrl").
    static QUrl resolve(const ClientContext& context, const QString& pathOrUrl);

signals:
    // NoError: the cloud answered "status" "success"; result is its
    // "result" map. Otherwise message says why.
    void done(Nubra::Error::ErrorCode code, const QString& message, const QVariantMap& result);

private:
    void report(Error::ErrorCode code, const QString& message, const QVariantMap& result);
    void reportLater(Error::ErrorCode code, const QString& message);

    ClientContext m_context;
    QString m_routeName;
    QString m_fallbackPath;
    QVariantMap m_body;
    std::unique_ptr<JsonCall> m_call;
    int m_httpStatus = 0;
    bool m_done = false;
};

} // namespace Nubra
