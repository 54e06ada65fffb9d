// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

namespace devcloud {

// nubra-devcloud --publish TOPIC PAYLOAD --config FILE: publishes one
// message (QoS 1, acknowledged by the broker) straight to the broker named
// by the client configuration FILE that a running dev cloud wrote, with the
// dev cloud's publisher account. Returns the process exit code.
int publishFromCommandLine(const QString& configPath, const QString& topic, const QByteArray& payload);

} // namespace devcloud
