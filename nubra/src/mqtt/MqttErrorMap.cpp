// SPDX-License-Identifier: MIT
#include "mqtt/MqttErrorMap.h"

#include <mosquitto.h>

namespace Nubra {

Error::ErrorCode errorForMosquitto(int mosquittoResult)
{
    switch (mosquittoResult) {
    case MOSQ_ERR_SUCCESS:
        return Error::NoError;
    case MOSQ_ERR_INVAL:
    case MOSQ_ERR_MALFORMED_UTF8:
    case MOSQ_ERR_PAYLOAD_SIZE:
        return Error::InvalidArgument;
    case MOSQ_ERR_CONN_REFUSED:
    case MOSQ_ERR_AUTH:
    case MOSQ_ERR_ACL_DENIED:
        return Error::NotAuthorized;
    case MOSQ_ERR_EAI:
    case MOSQ_ERR_LOOKUP:
        return Error::HostNotFound;
    case MOSQ_ERR_ERRNO:
    case MOSQ_ERR_NO_CONN:
        return Error::BrokerUnreachable;
    case MOSQ_ERR_CONN_LOST:
    case MOSQ_ERR_KEEPALIVE:
        return Error::ConnectionLost;
    case MOSQ_ERR_TLS:
    case MOSQ_ERR_TLS_HANDSHAKE:
        return Error::SslHandshakeFailed;
    case MOSQ_ERR_PROTOCOL:
    case MOSQ_ERR_MALFORMED_PACKET:
        return Error::ProtocolErrorOther;
    case MOSQ_ERR_TIMEOUT:
        return Error::TimedOut;
    default:
        return Error::MessagingErrorOther;
    }
}

Error::ErrorCode errorForConnack(int returnCode)
{
    switch (returnCode) {
    case 0:
        return Error::NoError;
    case 4: // bad user name or password
    case 5: // not authorised
        return Error::NotAuthorized;
    case 3: // server unavailable
        return Error::BrokerUnreachable;
    default: // 1 protocol version, 2 identifier rejected, anything newer
        return Error::MessagingErrorOther;
    }
}

} // namespace Nubra
