// SPDX-License-Identifier: MIT
#include "mqtt/MqttSession.h"

#include "mqtt/MqttErrorMap.h"

#include <QPointer>
#include <QRandomGenerator>
#include <QSocketNotifier>
#include <QTimer>

#include <mosquitto.h>
#include <openssl/ssl.h>

#include <mutex>

namespace Nubra {

namespace {

// Packets read in one turn of the event loop at most, so that a flood of
// messages cannot starve the rest of the application.
constexpr int kMaxReadsPerTurn = 1000;

void initLibraryOnce()
{
    static std::once_flag once;
    std::call_once(once, [] { mosquitto_lib_init(); });
}

QString describeMosquitto(int result)
{
    if (result == MOSQ_ERR_ERRNO)
        return QString::fromLocal8Bit(strerror(errno));
    return QString::fromUtf8(mosquitto_strerror(result));
}

} // namespace

MqttSession::MqttSession(const MqttSettings& settings, const Credentials& credentials, QObject* parent)
    : QObject(parent)
    , m_settings(settings)
    , m_credentials(credentials)
{
    initLibraryOnce();
    m_clientId = m_settings.clientIdPrefix
                 + QString::number(QRandomGenerator::global()->generate64(), 16).rightJustified(16, QLatin1Char('0'));
    // MQTT 3.1.1 limits client ids to 23 bytes for strict brokers.
    m_clientId = m_clientId.left(23);
    m_housekeeping = new QTimer(this);
    m_housekeeping->setInterval(1000);
    connect(m_housekeeping, &QTimer::timeout, this, &MqttSession::housekeeping);
    m_connectTimer = new QTimer(this);
    m_connectTimer->setSingleShot(true);
    connect(m_connectTimer, &QTimer::timeout, this, [this] {
        if (m_state == State::Connecting)
            handleDrop(MOSQ_ERR_TIMEOUT, QStringLiteral("no CONNACK within %1 ms").arg(m_settings.connectTimeoutMs));
    });
    m_reconnectTimer = new QTimer(this);
    m_reconnectTimer->setSingleShot(true);
    connect(m_reconnectTimer, &QTimer::timeout, this, &MqttSession::attemptReconnect);
}

MqttSession::~MqttSession()
{
    abandonPendingConnect();
    // Notifiers go before the socket they watch.
    removeNotifiers();
    if (m_mosq) {
        mosquitto_destroy(m_mosq);
        m_mosq = nullptr;
    }
}

void MqttSession::open()
{
    if (m_state != State::Idle)
        return;
    m_state = State::Connecting;
    QTimer::singleShot(0, this, &MqttSession::firstConnect);
}

void MqttSession::firstConnect()
{
    if (m_state != State::Connecting)
        return;
    startAttempt();
}

mosquitto* MqttSession::newHandle(Error::ErrorCode* code, QString* message)
{
    mosquitto* handle = mosquitto_new(m_clientId.toUtf8().constData(), true, this);
    if (!handle) {
        *code = Error::MessagingErrorOther;
        *message = QStringLiteral("cannot create an MQTT client");
        return nullptr;
    }
    mosquitto_int_option(handle, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_connect_callback_set(handle, &MqttSession::onConnectCallback);
    mosquitto_disconnect_callback_set(handle, &MqttSession::onDisconnectCallback);
    mosquitto_subscribe_callback_set(handle, &MqttSession::onSubscribeCallback);
    mosquitto_message_callback_set(handle, &MqttSession::onMessageCallback);
    if (m_credentials.authenticate) {
        const QByteArray user = m_credentials.username.toUtf8();
        const QByteArray password = m_credentials.password.toUtf8();
        const int rc = mosquitto_username_pw_set(handle, user.isEmpty() ? nullptr : user.constData(),
                                                 user.isEmpty() ? nullptr : password.constData());
        if (rc != MOSQ_ERR_SUCCESS) {
            *code = errorForMosquitto(rc);
            *message = QStringLiteral("invalid credentials: %1").arg(describeMosquitto(rc));
            mosquitto_destroy(handle);
            return nullptr;
        }
    }
    if (m_settings.tls) {
        const QByteArray caFile = m_settings.caFile.toLocal8Bit();
        const int rc = mosquitto_tls_set(handle, caFile.isEmpty() ? nullptr : caFile.constData(),
                                         caFile.isEmpty() ? "/etc/ssl/certs" : nullptr, nullptr, nullptr, nullptr);
        if (rc != MOSQ_ERR_SUCCESS) {
            *code = Error::SslErrorOther;
            *message = QStringLiteral("cannot use CA file '%1': %2").arg(m_settings.caFile, describeMosquitto(rc));
            mosquitto_destroy(handle);
            return nullptr;
        }
    }
    return handle;
}

void MqttSession::startAttempt()
{
    // Every attempt gets a fresh handle: one abandoned to a connect that
    // never returned cannot be reused, and a new one costs nothing.
    removeNotifiers();
    if (m_mosq) {
        mosquitto_destroy(m_mosq);
        m_mosq = nullptr;
    }
    Error::ErrorCode code = Error::NoError;
    QString message;
    mosquitto* handle = newHandle(&code, &message);
    if (!handle) {
        if (m_everConnected)
            scheduleReconnect();
        else
            fail(code, message);
        return;
    }
    m_state = State::Connecting;
    // Counts from here, so that it covers the look-up and TCP handshake
    // running elsewhere as well as the TLS handshake and CONNACK.
    m_connectTimer->start(m_settings.connectTimeoutMs);
    m_pendingConnect = MqttConnectAttempt::start(handle, m_settings.host.toUtf8(), m_settings.port,
                                                 m_settings.keepAliveSeconds, this,
                                                 [this](mosquitto* connected, int rc, int savedErrno) {
                                                     connectReturned(connected, rc, savedErrno);
                                                 });
}

void MqttSession::connectReturned(mosquitto* handle, int rc, int savedErrno)
{
    m_pendingConnect.reset();
    m_mosq = handle;
    if (m_state != State::Connecting)
        return; // closed meanwhile (the handle goes with the session)
    if (rc != MOSQ_ERR_SUCCESS) {
        errno = savedErrno;
        const QString why = QStringLiteral("cannot connect to %1:%2: %3")
                                .arg(m_settings.host)
                                .arg(m_settings.port)
                                .arg(describeMosquitto(rc));
        m_connectTimer->stop();
        if (m_everConnected)
            scheduleReconnect();
        else
            fail(errorForMosquitto(rc), why);
        return;
    }
    connectionEstablished();
}

void MqttSession::abandonPendingConnect()
{
    if (m_pendingConnect) {
        m_pendingConnect->abandon();
        m_pendingConnect.reset();
    }
}

void MqttSession::connectionEstablished()
{
    m_housekeeping->start();
    createNotifiers();
    updateWriteInterest();
}

void MqttSession::attemptReconnect()
{
    if (m_state != State::WaitingToReconnect)
        return;
    startAttempt();
}

void MqttSession::close()
{
    if (m_state == State::Closed)
        return;
    const bool online = m_state == State::Connected || m_state == State::Connecting;
    m_state = State::Closed;
    abandonPendingConnect();
    m_reconnectTimer->stop();
    m_connectTimer->stop();
    m_housekeeping->stop();
    removeNotifiers();
    if (online && m_mosq) {
        // Queues DISCONNECT and, on a writable socket, sends it at once.
        mosquitto_disconnect(m_mosq);
        mosquitto_loop_write(m_mosq, 1);
    }
    m_events.clear();
}

int MqttSession::subscribe(const QStringList& filters, int qos, Error::ErrorCode* error, QString* message)
{
    if (m_state != State::Connected) {
        *error = Error::NotConnected;
        *message = QStringLiteral("not connected to the broker");
        return 0;
    }
    std::vector<QByteArray> encoded;
    std::vector<char*> pointers;
    encoded.reserve(size_t(filters.size()));
    for (const QString& filter : filters) {
        encoded.push_back(filter.toUtf8());
        pointers.push_back(encoded.back().data());
    }
    int mid = 0;
    const int rc = mosquitto_subscribe_multiple(m_mosq, &mid, int(pointers.size()), pointers.data(), qos, 0, nullptr);
    if (rc != MOSQ_ERR_SUCCESS) {
        *error = rc == MOSQ_ERR_INVAL || rc == MOSQ_ERR_MALFORMED_UTF8 ? Error::InvalidArgument
                                                                         : errorForMosquitto(rc);
        *message = QStringLiteral("cannot subscribe: %1").arg(describeMosquitto(rc));
        return 0;
    }
    updateWriteInterest();
    return mid;
}

void MqttSession::unsubscribe(const QStringList& filters)
{
    if (m_state != State::Connected || filters.isEmpty())
        return;
    std::vector<QByteArray> encoded;
    std::vector<char*> pointers;
    encoded.reserve(size_t(filters.size()));
    for (const QString& filter : filters) {
        encoded.push_back(filter.toUtf8());
        pointers.push_back(encoded.back().data());
    }
    mosquitto_unsubscribe_multiple(m_mosq, nullptr, int(pointers.size()), pointers.data(), nullptr);
    updateWriteInterest();
}

void MqttSession::onConnectCallback(mosquitto*, void* self, int code)
{
    static_cast<MqttSession*>(self)->m_events.push_back({Event::ConnAck, code, {}, {}, {}});
}

void MqttSession::onDisconnectCallback(mosquitto*, void* self, int code)
{
    static_cast<MqttSession*>(self)->m_events.push_back({Event::Disconnected, code, {}, {}, {}});
}

void MqttSession::onSubscribeCallback(mosquitto*, void* self, int mid, int count, const int* granted)
{
    Event event{Event::SubAck, mid, {}, {}, {}};
    for (int i = 0; i < count; ++i)
        event.granted.append(granted[i]);
    static_cast<MqttSession*>(self)->m_events.push_back(std::move(event));
}

void MqttSession::onMessageCallback(mosquitto*, void* self, const mosquitto_message* message)
{
    static_cast<MqttSession*>(self)->m_events.push_back(
        {Event::Message, 0, {}, QString::fromUtf8(message->topic),
         QByteArray(static_cast<const char*>(message->payload), message->payloadlen)});
}

void MqttSession::readReady()
{
    if (m_state != State::Connecting && m_state != State::Connected)
        return;
    // Keep reading while whole packets come out; a call that completes no
    // packet (partial data or none left) ends the turn, and the level-
    // triggered notifier brings us back when more bytes arrive.
    int rounds = 0;
    int rc = MOSQ_ERR_SUCCESS;
    size_t before = 0;
    do {
        before = m_events.size();
        rc = mosquitto_loop_read(m_mosq, 1);
    } while (rc == MOSQ_ERR_SUCCESS && ++rounds < kMaxReadsPerTurn && (m_events.size() > before || moreTlsData()));
    afterLoopStep(rc);
}

void MqttSession::writeReady()
{
    if (m_state != State::Connecting && m_state != State::Connected)
        return;
    const int rc = mosquitto_loop_write(m_mosq, 1);
    afterLoopStep(rc);
}

void MqttSession::housekeeping()
{
    if ((m_state != State::Connecting && m_state != State::Connected) || m_pendingConnect)
        return;
    const int rc = mosquitto_loop_misc(m_mosq);
    afterLoopStep(rc);
}

void MqttSession::afterLoopStep(int rc)
{
    // Events first; a receiver may have deleted the session.
    if (!dispatchEvents())
        return;
    if (rc != MOSQ_ERR_SUCCESS) {
        handleDrop(rc, describeMosquitto(rc));
        return;
    }
    updateWriteInterest();
}

bool MqttSession::dispatchEvents()
{
    if (m_events.empty())
        return true;
    std::vector<Event> events;
    events.swap(m_events);
    QPointer<MqttSession> self(this);
    for (Event& event : events) {
        if (!self)
            return false;
        if (m_state == State::Closed || m_state == State::WaitingToReconnect)
            break;
        switch (event.kind) {
        case Event::ConnAck:
            if (event.code == 0) {
                m_connectTimer->stop();
                m_state = State::Connected;
                m_everConnected = true;
                m_attempt = 0;
                emit connected();
            } else if (!m_everConnected) {
                fail(errorForConnack(event.code),
                     QStringLiteral("broker refused the connection: %1")
                         .arg(QString::fromUtf8(mosquitto_connack_string(event.code))));
            } else {
                const Error::ErrorCode code = errorForConnack(event.code);
                const QString message = QStringLiteral("broker refused the reconnection: %1")
                                            .arg(QString::fromUtf8(mosquitto_connack_string(event.code)));
                close();
                emit gaveUp(code, message);
            }
            break;
        case Event::Disconnected:
            // Code 0 answers our own DISCONNECT; anything else is a drop.
            if (event.code != 0)
                handleDrop(event.code == MOSQ_ERR_SUCCESS ? MOSQ_ERR_CONN_LOST : event.code,
                           describeMosquitto(event.code));
            break;
        case Event::SubAck:
            emit subscribeAcknowledged(event.code, event.granted);
            break;
        case Event::Message:
            emit messageArrived(event.topic, event.payload);
            break;
        }
    }
    return !self.isNull();
}

void MqttSession::handleDrop(int mosquittoResult, const QString& why)
{
    if (m_state == State::Closed || m_state == State::WaitingToReconnect)
        return;
    abandonPendingConnect();
    removeNotifiers();
    m_connectTimer->stop();
    m_housekeeping->stop();
    if (!m_everConnected) {
        // The first attempt is the caller's to judge: report, no retry.
        fail(mosquittoResult == MOSQ_ERR_TIMEOUT ? Error::TimedOut : errorForMosquitto(mosquittoResult), why);
        return;
    }
    const bool wasConnected = m_state == State::Connected;
    m_state = State::WaitingToReconnect;
    if (wasConnected) {
        QPointer<MqttSession> self(this);
        emit connectionLost();
        if (!self || m_state != State::WaitingToReconnect)
            return;
    }
    scheduleReconnect();
}

void MqttSession::scheduleReconnect()
{
    m_state = State::WaitingToReconnect;
    ++m_attempt;
    if (m_attempt > m_settings.reconnectMaxAttempts) {
        close();
        emit gaveUp(Error::ConnectionLost,
                    QStringLiteral("gave up after %1 reconnection attempts").arg(m_settings.reconnectMaxAttempts));
        return;
    }
    m_reconnectTimer->start(m_settings.reconnectDelayMs(m_attempt));
}

void MqttSession::fail(Error::ErrorCode code, const QString& message)
{
    close();
    emit connectFailed(code, message);
}

void MqttSession::createNotifiers()
{
    removeNotifiers();
    const int fd = mosquitto_socket(m_mosq);
    if (fd < 0)
        return;
    m_readNotifier = new QSocketNotifier(fd, QSocketNotifier::Read, this);
    connect(m_readNotifier, &QSocketNotifier::activated, this, &MqttSession::readReady);
    m_writeNotifier = new QSocketNotifier(fd, QSocketNotifier::Write, this);
    m_writeNotifier->setEnabled(false);
    connect(m_writeNotifier, &QSocketNotifier::activated, this, &MqttSession::writeReady);
}

void MqttSession::removeNotifiers()
{
    // A notifier may be the sender of the slot that got here: disable it
    // now (its socket may close at once) and delete it later.
    for (QSocketNotifier** notifier : {&m_readNotifier, &m_writeNotifier}) {
        if (*notifier) {
            (*notifier)->setEnabled(false);
            (*notifier)->deleteLater();
            *notifier = nullptr;
        }
    }
}

void MqttSession::updateWriteInterest()
{
    // Enabled only while there is something to send; otherwise a writable
    // socket would wake the loop continuously.
    if (m_writeNotifier)
        m_writeNotifier->setEnabled(m_mosq && mosquitto_want_write(m_mosq));
}

bool MqttSession::moreTlsData() const
{
    // Bytes already decrypted inside OpenSSL never wake the socket notifier.
    auto* ssl = static_cast<SSL*>(mosquitto_ssl_get(m_mosq));
    return ssl && SSL_pending(ssl) > 0;
}

} // namespace Nubra
