#pragma once

// A private dev cloud (with its mosquitto broker) shared by the tests of one
// binary, and the ways the tests push messages and control the broker.

#include "DevCloudProcess.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <functional>

namespace BrokerTest {

// Started once per test binary; NUBRA_CONFIG points at its configuration
// before the helper is first used.
VornTest::DevCloudProcess& cloud();
QJsonObject mqttSection();

// Publishes with mosquitto_pub (the dev cloud's publisher account), one
// connection for all `payloads`, in order. Returns false if mosquitto_pub
// failed.
bool mosquittoPub(const QString& topic, const QList<QByteArray>& payloads);
// Publishes through the dev cloud's HTTP endpoint (acknowledged by the
// broker before it answers).
bool publishOverHttp(const QString& topic, const QJsonObject& payload);
// POST to an admin endpoint of the dev cloud; true on HTTP 200.
bool postAdmin(const QString& path, const QJsonObject& body = {});
// Signs the demo user in over HTTP; returns the token.
QString signIn();

// Runs the event loop until `done` or timeoutMs; returns done().
bool waitUntil(const std::function<bool()>& done, int timeoutMs = 10000);

} // namespace BrokerTest
