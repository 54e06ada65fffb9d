// SPDX-License-Identifier: MIT
#include "BrokerTestSupport.h"

#include "TestFiles.h"

#include <QProcess>

namespace BrokerTest {

QJsonObject mqttSection(const VornTest::DevCloudProcess& cloud)
{
    return VornTest::readJsonObject(cloud.configPath()).value("mqtt").toObject();
}

bool mosquittoPub(const QString& topic, const QList<QByteArray>& payloads)
{
    const QJsonObject mqtt = mqttSection();
    const QJsonObject account = mqtt.value("devcloud").toObject();
    QProcess pub;
    // -l: one message per line of standard input, over one connection.
    pub.start("mosquitto_pub", {"-h", mqtt.value("host").toString(), "-p", QString::number(mqtt.value("port").toInt()),
                                "-u", account.value("publisherUsername").toString(), "-P",
                                account.value("publisherPassword").toString(), "-t", topic, "-q", "1", "-l"});
    if (!pub.waitForStarted(5000))
        return false;
    for (const QByteArray& payload : payloads)
        pub.write(payload + '\n');
    pub.closeWriteChannel();
    if (!pub.waitForFinished(15000))
        return false;
    return pub.exitStatus() == QProcess::NormalExit && pub.exitCode() == 0;
}

} // namespace BrokerTest
