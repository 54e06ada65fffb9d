#pragma once

#include <Nubra/Error.h>
#include <Nubra/Reply.h>

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <memory>

namespace Nubra {

class ManagerPrivate;

// Entry point of the cloud client. Starts named requests and returns a
// Reply for each. All work (HTTP, MQTT, transfers) runs on the event loop of
// the thread that owns the manager; there is no worker thread, so that
// thread needs a running event loop (a local QEventLoop is fine).
//
// Request names are resolved in this order: the message service
// ("connectToServer", "subscribe", "disconnectFromServer"), the upgrade
// service ("autoUpgrade:..."), file download ("startDownload"), cloud-disk
// uploads ("UploadCloudSpaceFile", "startUpload:start",
// "startUpload:removeAll"), then the configuration's request table (JSON
// API over HTTP). A name found nowhere is refused at once: the reply's
// status() is Error::UnknownRequest.
//
// Record keys understood by the HTTP API service: "headers" (map, HTTP
// headers), "params" (map, query string), "body" (map, JSON body; for GET
// requests its entries travel as query parameters), "source" (string, sent
// as the "X-Nubra-Source" header). Option keys: "timeout" (values below
// 1000 are seconds, 1000 and above milliseconds). See docs/configuration.md.
class Manager : public QObject {
    Q_OBJECT
public:
    // Who is asking for product-line information.
    enum HttpRequestSource { DefaultSource = 0, ApplicationSource = 1, ToolSource = 2 };
    Q_ENUM(HttpRequestSource)

    explicit Manager(QObject* parent = nullptr);
    ~Manager() override;

    // Loads the configuration file. The environment variable NUBRA_CONFIG,
    // when set and non-empty, overrides path. options may hold "timeout",
    // the default time-out of requests that give none. The reply finishes
    // with "status" "success" and "result" {"path": the file read}, or
    // reports ConfigMissing / ConfigMalformed.
    Reply* setConfigPath(const QString& path, const QVariantMap& options);

    // Replaces the named top-level entries of the configuration with the
    // entries of config (other entries are kept). options as above. The
    // reply finishes with "status" "success" and "errorCode" 0, or with a
    // failure map whose "errorCode" is non-zero.
    Reply* setConfigData(const QVariantMap& config, const QVariantMap& options);

    QVariantMap configData() const;
    QVariantMap productLineInformation(HttpRequestSource source) const;

    Reply* request(const QString& name, const QVariantMap& record, const QVariantMap& options);
    // extra selects a region: the configuration's "regions" map gives the
    // base URL to use instead of "baseUrl". An unknown region is refused
    // with InvalidArgument.
    Reply* request(const QString& name, const QString& extra, const QVariantMap& record,
                   const QVariantMap& options);

private:
    std::unique_ptr<ManagerPrivate> d;
};

} // namespace Nubra
