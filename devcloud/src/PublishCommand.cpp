// SPDX-License-Identifier: MIT
#include "PublishCommand.h"

#include "BrokerPublisher.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace devcloud {

int publishFromCommandLine(const QString& configPath, const QString& topic, const QByteArray& payload)
{
    QFile file(configPath);
    if (configPath.isEmpty() || !file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "nubra-devcloud: --publish needs --config FILE (a configuration written by "
                             "--write-config)\n");
        return 2;
    }
    const QJsonObject mqtt = QJsonDocument::fromJson(file.readAll()).object().value(QStringLiteral("mqtt")).toObject();
    const QJsonObject devcloud = mqtt.value(QStringLiteral("devcloud")).toObject();
    const QString host = mqtt.value(QStringLiteral("host")).toString();
    const int port = mqtt.value(QStringLiteral("port")).toInt();
    if (host.isEmpty() || port <= 0 || devcloud.isEmpty()) {
        std::fprintf(stderr, "nubra-devcloud: %s has no dev cloud \"mqtt\" section\n", qPrintable(configPath));
        return 2;
    }
    if (topic.isEmpty() || topic.contains(QLatin1Char('+')) || topic.contains(QLatin1Char('#'))) {
        std::fprintf(stderr, "nubra-devcloud: '%s' is not a topic name\n", qPrintable(topic));
        return 2;
    }
    BrokerPublisher publisher;
    QString error;
    if (!publisher.open(host, port, devcloud.value(QStringLiteral("publisherUsername")).toString(),
                        devcloud.value(QStringLiteral("publisherPassword")).toString(),
                        mqtt.value(QStringLiteral("caFile")).toString(), &error)
        || !publisher.waitForConnectCount(0, 5000)) {
        std::fprintf(stderr, "nubra-devcloud: cannot reach the broker at %s:%d%s%s\n", qPrintable(host), port,
                     error.isEmpty() ? "" : ": ", qPrintable(error));
        return 1;
    }
    if (!publisher.publish(topic, payload, 1, false, 5000, &error)) {
        std::fprintf(stderr, "nubra-devcloud: publish failed: %s\n", qPrintable(error));
        return 1;
    }
    std::printf("published %d bytes to %s\n", int(payload.size()), qPrintable(topic));
    return 0;
}

} // namespace devcloud
