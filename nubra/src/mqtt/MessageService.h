// SPDX-License-Identifier: MIT
#pragma once

#include "core/Service.h"

#include <QPointer>

namespace Nubra {

class ConnectReply;

// "connectToServer", "subscribe" and "disconnectFromServer": one MQTT
// connection per manager (a new "connectToServer" ends the previous one),
// subscriptions on it, and its explicit end. See docs/messaging.md.
class MessageService : public Service {
public:
    explicit MessageService(const ClientContext& context);
    ~MessageService() override;

    bool handles(const QString& name) const override;
    Reply* start(const RequestContext& request) override;

private:
    Reply* connectToServer(const RequestContext& request);
    Reply* subscribe(const RequestContext& request);
    Reply* disconnectFromServer(const RequestContext& request);

    ClientContext m_context;
    QPointer<ConnectReply> m_connection;
};

} // namespace Nubra
