// SPDX-License-Identifier: MIT
#include <Nubra/Manager.h>

#include "core/LocalReply.h"
#include "core/ManagerPrivate.h"

#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcNubra, "nubra", QtWarningMsg)

namespace Nubra {

Manager::Manager(QObject* parent)
    : QObject(parent)
{
    qRegisterMetaType<Nubra::Error::ErrorCode>("Nubra::Error::ErrorCode");
    qRegisterMetaType<QList<QSslError>>("QList<QSslError>");
    d = std::make_unique<ManagerPrivate>(this);
}

Manager::~Manager()
{
    // Services may own objects parented to the manager; drop them before
    // QObject deletes the children.
    d->services.clear();
}

Reply* Manager::setConfigPath(const QString& path, const QVariantMap& options)
{
    const QString overridePath = qEnvironmentVariable(ClientConfig::kPathOverride);
    const QString used = overridePath.isEmpty() ? path : overridePath;
    const QString name = QStringLiteral("setConfigPath");
    if (Service* added = d->addedServiceFor(name))
        return added->start({name, QString(), {{QStringLiteral("path"), used}}, options});

    Error::ErrorCode error = Error::NoError;
    QString message;
    if (!d->config.loadFile(used, &error, &message)) {
        qCWarning(lcNubra).noquote() << message;
        return LocalReply::failing(name, error, message, this);
    }
    if (options.contains(QStringLiteral("timeout")))
        d->config.setDefaultTimeout(options.value(QStringLiteral("timeout")));
    return LocalReply::succeeding(name,
                                  {{QStringLiteral("status"), QStringLiteral("success")},
                                   {QStringLiteral("errorCode"), 0},
                                   {QStringLiteral("result"), QVariantMap{{QStringLiteral("path"), d->config.path()}}}},
                                  this);
}

Reply* Manager::setConfigData(const QVariantMap& config, const QVariantMap& options)
{
    const QString name = QStringLiteral("setConfigData");
    if (Service* added = d->addedServiceFor(name))
        return added->start({name, QString(), config, options});
    ClientConfig candidate = d->config;
    candidate.merge(config);
    QString message;
    if (!candidate.loadMap(candidate.data(), &message)) {
        qCWarning(lcNubra).noquote() << "configuration rejected:" << message;
        return LocalReply::failing(name, Error::ConfigMalformed, message, this);
    }
    d->config.merge(config);
    if (options.contains(QStringLiteral("timeout")))
        d->config.setDefaultTimeout(options.value(QStringLiteral("timeout")));
    return LocalReply::succeeding(
        name, {{QStringLiteral("status"), QStringLiteral("success")}, {QStringLiteral("errorCode"), 0}}, this);
}

QVariantMap Manager::configData() const { return d->config.data(); }

QVariantMap Manager::productLineInformation(HttpRequestSource source) const
{
    const QVariantMap lines = d->config.section(QStringLiteral("productLines"));
    static const char* const names[] = {"default", "application", "tool"};
    const int index = int(source);
    const QString key = QString::fromLatin1(index >= 0 && index < 3 ? names[index] : "default");
    if (lines.contains(key))
        return lines.value(key).toMap();
    return lines.value(QStringLiteral("default")).toMap();
}

Reply* Manager::request(const QString& name, const QVariantMap& record, const QVariantMap& options)
{
    return request(name, QString(), record, options);
}

Reply* Manager::request(const QString& name, const QString& extra, const QVariantMap& record,
                        const QVariantMap& options)
{
    RequestContext context{name, extra, record, options};
    if (Service* service = d->serviceFor(name))
        return service->start(context);
    qCWarning(lcNubra).noquote() << "unknown request" << name;
    return LocalReply::refused(name, Error::UnknownRequest, QStringLiteral("unknown request \"%1\"").arg(name),
                               this);
}

} // namespace Nubra
