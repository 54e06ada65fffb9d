// SPDX-License-Identifier: MIT
// Demo step of the message subscription: subscribe, receive what the demo
// publishes through its cloud, disconnect.

#include "DemoSteps.h"

#if VORN_CLI_SUBSCRIBE

#include "DevCloudAdmin.h"
#include "LocalCloud.h"
#include "Output.h"

#include <NubraCommon.h>
#include <VornNubraHelper.h>

#include <QElapsedTimer>
#include <QJsonObject>

namespace Demo {

Outcome subscription(StepContext& step)
{
    const QString topic = QStringLiteral("devices/VS2024000123/status");
    QString receivedTopic;
    QVariantMap receivedData;
    QObject guard;
    QObject::connect(step.helper, &VornNubraHelper::subscribeData, &guard,
                     [&](const QString& messageTopic, const QVariantMap& data) {
                         receivedTopic = messageTopic;
                         receivedData = data;
                     });

    // The user token is the broker credential; subscribe() waits its whole
    // time-out by design (1 = Timeout is its normal outcome).
    const int code = step.helper->subscribe(QStringLiteral("demo"), QString(), {topic}, 1500);
    step.say(QStringLiteral("subscribe(\"demo\", \"\", [\"%1\"], 1500) -> %2").arg(topic, codeText(code)));
    if (code != NubraCommon::Timeout)
        return expectCode(step, code, NubraCommon::Timeout, QStringLiteral("the subscription did not start"));

    const QJsonObject message{{QStringLiteral("state"), QStringLiteral("scanning")},
                              {QStringLiteral("progress"), 42},
                              {QStringLiteral("sn"), QStringLiteral("VS2024000123")}};
    DevCloudAdmin admin(step.cloud->baseUrl());
    QString error;
    QElapsedTimer elapsed;
    elapsed.start();
    admin.call("POST", QStringLiteral("/devcloud/publish"),
               QJsonDocument(QJsonObject{{QStringLiteral("topic"), topic}, {QStringLiteral("payload"), message}}),
               &error);
    if (!error.isEmpty())
        return failStep(step, QStringLiteral("the cloud did not publish: ") + error);
    step.say(QStringLiteral("the cloud published %1 on %2")
                 .arg(QString::fromUtf8(QJsonDocument(message).toJson(QJsonDocument::Compact)), topic));
    const bool arrived = waitUntil([&] { return !receivedTopic.isEmpty(); }, 10000, 10);
    const qint64 latency = elapsed.elapsed();
    const int disconnected = step.helper->disconnectFromServer();
    if (!arrived)
        return failStep(step, QStringLiteral("no subscribeData within 10 s"));
    step.say(QStringLiteral("subscribeData(\"%1\", %2)").arg(receivedTopic, Output::toJsonText(receivedData, false)));
    if (receivedTopic != topic || QJsonObject::fromVariantMap(receivedData) != message)
        return failStep(step, QStringLiteral("the message arrived changed"));
    return expectCode(step, disconnected, NubraCommon::Success,
                      QStringLiteral("the message arrived %1 ms after publishing; disconnectFromServer").arg(latency));
}

} // namespace Demo

#endif
