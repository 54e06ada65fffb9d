// SPDX-License-Identifier: MIT
#pragma once

#include <Nubra/Error.h>
#include <Nubra/NubraExport.h>
#include <Nubra/Reply.h>

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <memory>

namespace Nubra {

class ManagerPrivate;

/// \file Manager.h
/// The cloud client's entry point, Nubra::Manager.

/// Entry point of the cloud client. Starts named requests and returns a
/// Reply for each. All work (HTTP, MQTT, transfers) runs on the event loop of
/// the thread that owns the manager, so that thread needs a running event
/// loop (a local QEventLoop is fine); every signal is emitted there. No call
/// of the manager blocks or waits. The few other threads (hashing,
/// connecting, name look-ups) touch no Qt object; see docs/architecture.md.
///
/// Request names are resolved in this order: the message service
/// ("connectToServer", "subscribe", "disconnectFromServer"), the upgrade
/// service ("autoUpgrade:..."), file download ("startDownload"), cloud-disk
/// uploads ("UploadCloudSpaceFile", "startUpload:start",
/// "startUpload:removeAll"), then the configuration's request table (JSON
/// API over HTTP). A name found nowhere is refused at once: the reply's
/// status() is Error::UnknownRequest.
///
/// Record keys understood by the HTTP API service: "headers" (map, HTTP
/// headers), "params" (map, query string), "body" (map, JSON body; for GET
/// requests its entries travel as query parameters), "source" (string, sent
/// as the "X-Nubra-Source" header). Option keys: "timeout" (values below
/// 1000 are seconds, 1000 and above milliseconds). See
/// docs/configuration.md.
///
/// Ownership: every Reply the manager returns is a child of the manager;
/// the caller releases it with deleteLater() when done with it (the manager
/// deletes what is left when it is destroyed).
class NUBRA_EXPORT Manager : public QObject {
    Q_OBJECT
public:
    /// Who is asking for product-line information.
    enum HttpRequestSource {
        DefaultSource = 0,     ///< The "default" entry.
        ApplicationSource = 1, ///< The "application" entry.
        ToolSource = 2,        ///< The "tool" entry.
    };
    Q_ENUM(HttpRequestSource)

    /// A manager with no configuration; load one with setConfigPath().
    explicit Manager(QObject* parent = nullptr);
    /// Stops the services; replies still held by callers must not be used
    /// afterwards.
    ~Manager() override;

    /// Loads the configuration file at once. The environment variable
    /// NUBRA_CONFIG, when set and non-empty, overrides `path`. `options` may
    /// hold "timeout", the default time-out of requests that give none. The
    /// reply finishes on a later turn of the event loop with "status"
    /// "success", "errorCode" 0 and "result" {"path": the file read}, or
    /// reports ConfigMissing / ConfigMalformed (the configuration is then
    /// left as it was).
    Reply* setConfigPath(const QString& path, const QVariantMap& options);

    /// Replaces the named top-level entries of the configuration with the
    /// entries of `config` (other entries are kept). `options` as above. The
    /// reply finishes with "status" "success" and "errorCode" 0, or reports
    /// ConfigMalformed, leaving the configuration as it was.
    Reply* setConfigData(const QVariantMap& config, const QVariantMap& options);

    /// The configuration as loaded (empty before any was loaded).
    QVariantMap configData() const;
    /// The configuration's "productLines" entry for `source`, or its
    /// "default" entry when there is none for that source.
    QVariantMap productLineInformation(HttpRequestSource source) const;

    /// Starts the request `name` with `record` and `options` (see the class
    /// description). Never null; a request that cannot start has a non-zero
    /// status().
    Reply* request(const QString& name, const QVariantMap& record, const QVariantMap& options);
    /// request() against a region: `extra` names an entry of the
    /// configuration's "regions" map whose base URL is used instead of
    /// "baseUrl". An unknown region is refused with InvalidArgument.
    Reply* request(const QString& name, const QString& extra, const QVariantMap& record,
                   const QVariantMap& options);

private:
    friend class ManagerPrivate;
    std::unique_ptr<ManagerPrivate> d;
};

} // namespace Nubra
