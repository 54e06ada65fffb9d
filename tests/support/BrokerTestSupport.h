// SPDX-License-Identifier: MIT
#pragma once

// The private dev cloud (with its mosquitto broker) of a broker test binary
// (which calls VornTest::usePrivateCloud() once), and publishing with
// mosquitto_pub.

#include "PrivateCloud.h"
#include "Waiting.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

namespace BrokerTest {

using VornTest::waitUntil;

inline VornTest::DevCloudProcess& cloud() { return VornTest::privateCloud(); }
inline VornTest::CloudAdmin& admin() { return VornTest::privateCloudAdmin(); }

// The "mqtt" section of the configuration a dev cloud wrote.
QJsonObject mqttSection(const VornTest::DevCloudProcess& cloud = BrokerTest::cloud());

// Publishes with mosquitto_pub (the dev cloud's publisher account), one
// connection for all `payloads`, in order. Returns false if mosquitto_pub
// failed.
bool mosquittoPub(const QString& topic, const QList<QByteArray>& payloads);

} // namespace BrokerTest
