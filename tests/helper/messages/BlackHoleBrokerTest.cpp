// SPDX-License-Identifier: MIT
// A broker address that never completes the TCP handshake (a listener whose
// backlog is kept full): the connect runs off the application's thread, so
// the helper's subscribe returns at its own time-out, the client's connect
// reply fails with TimedOut at the configured time-out, reconnections to a
// broker that turned into such an address give up on schedule, and the
// thread's timers keep firing all along.

#include "BlackHoleListener.h"
#include "HelperTestAccess.h"
#include "Waiting.h"

#include <VornNubraHelper.h>

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace {

using Nubra::Error;
using VornTest::ReplyPtr;

// Largest gap between the ticks of a 10 ms timer while it lives: a blocked
// thread shows as a gap of seconds.
class TickGapMeter {
public:
    TickGapMeter()
    {
        m_clock.start();
        QObject::connect(&m_timer, &QTimer::timeout, [this] {
            m_largestGapMs = std::max(m_largestGapMs, m_clock.restart());
        });
        m_timer.start(10);
    }
    qint64 largestGapMs() const { return std::max(m_largestGapMs, m_clock.elapsed()); }

private:
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_largestGapMs = 0;
};

// Generous: catches a thread frozen in connect() (two minutes of SYN
// retries), not a slow machine (832 ms was seen once at load average 10).
constexpr qint64 kLargestTolerableGapMs = 1000;

class BlackHoleBroker : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(blackHole.isValid()) << "the loopback listener's backlog did not fill";
        const QVariantMap mqtt{{"host", "127.0.0.1"}, {"port", blackHole.port()}, {"connectTimeout", 10}};
        ASSERT_EQ(VornTest::finishOf(manager()->setConfigData({{"mqtt", mqtt}}, {})).value("status"), "success");
    }
    void TearDown() override
    {
        VornNubraHelper::getInstance()->disconnectFromServer();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    static Nubra::Manager* manager() { return VornNubraHelperTestAccess::manager(VornNubraHelper::getInstance()); }

    VornTest::BlackHoleListener blackHole;
};

TEST_F(BlackHoleBroker, helperSubscribeReturnsAtItsOwnTimeoutWhileTimersKeepFiring)
{
    VornNubraHelper::getInstance()->setUserToken("token-of-nobody");
    TickGapMeter ticks;
    QElapsedTimer clock;
    clock.start();
    const int result = VornNubraHelper::getInstance()->subscribe("user", {}, {"devices/#"}, 3000);
    const qint64 elapsed = clock.elapsed();
    EXPECT_EQ(result, NubraCommon::Timeout);
    // The helper's wait uses a coarse timer, which may fire 5% early.
    EXPECT_GE(elapsed, 2800);
    EXPECT_LT(elapsed, 3000 + 2000);
    EXPECT_LT(ticks.largestGapMs(), kLargestTolerableGapMs);
    ::testing::Test::RecordProperty("largestTickGapMs", int(ticks.largestGapMs()));
}

TEST_F(BlackHoleBroker, connectFailsWithTimedOutAtTheConfiguredTimeoutWhileTimersKeepFiring)
{
    TickGapMeter ticks;
    QElapsedTimer clock;
    clock.start();
    ReplyPtr connection(manager()->request("connectToServer", {}, {{"timeout", 2}}));
    ASSERT_EQ(connection->status(), 0);
    QSignalSpy errors(connection.get(), &Nubra::Reply::errorOccurred);
    QSignalSpy finished(connection.get(), &Nubra::Reply::finished);
    ASSERT_TRUE(VornTest::waitUntil([&] { return !finished.isEmpty(); }, 15000));
    const qint64 elapsed = clock.elapsed();
    ASSERT_EQ(errors.size(), 1);
    EXPECT_EQ(errors[0][0].value<Error::ErrorCode>(), Error::TimedOut);
    EXPECT_GE(elapsed, 1900);
    EXPECT_LT(elapsed, 2000 + 2000);
    EXPECT_LT(ticks.largestGapMs(), kLargestTolerableGapMs);

    // A second attempt right away (the first one's connect still hangs
    // elsewhere) behaves the same.
    ReplyPtr again(manager()->request("connectToServer", {}, {{"timeout", 1}}));
    QSignalSpy againErrors(again.get(), &Nubra::Reply::errorOccurred);
    ASSERT_TRUE(VornTest::waitUntil([&] { return !againErrors.isEmpty(); }, 15000));
    EXPECT_EQ(againErrors[0][0].value<Error::ErrorCode>(), Error::TimedOut);
    EXPECT_LT(ticks.largestGapMs(), kLargestTolerableGapMs);
    ::testing::Test::RecordProperty("largestTickGapMs", int(ticks.largestGapMs()));
}

TEST_F(BlackHoleBroker, reconnectionsToAnAddressThatStoppedAnsweringGiveUpOnSchedule)
{
    // A "broker" that accepts one connection, answers its CONNECT with
    // CONNACK 0 (MQTT 3.1.1: 0x20 0x02 0x00 0x00), then goes away; its port
    // then becomes a black hole.
    QTcpServer broker;
    ASSERT_TRUE(broker.listen(QHostAddress::LocalHost));
    const quint16 port = broker.serverPort();
    QTcpSocket* session = nullptr;
    QObject::connect(&broker, &QTcpServer::newConnection, [&] {
        session = broker.nextPendingConnection();
        QObject::connect(session, &QTcpSocket::readyRead, session, [session] {
            session->readAll();
            session->write(QByteArray::fromHex("20020000"));
        });
    });
    const QVariantMap mqtt{{"host", "127.0.0.1"},
                           {"port", port},
                           {"connectTimeout", 1},
                           {"reconnect", QVariantMap{{"initialDelayMs", 100}, {"maxDelayMs", 200}, {"maxAttempts", 2}}}};
    ASSERT_EQ(VornTest::finishOf(manager()->setConfigData({{"mqtt", mqtt}}, {})).value("status"), "success");
    ReplyPtr connection(manager()->request("connectToServer", {}, {}));
    QSignalSpy connected(connection.get(), &Nubra::Reply::connected);
    QSignalSpy disconnected(connection.get(), &Nubra::Reply::disconnected);
    QSignalSpy gaveUp(connection.get(), qOverload<>(&Nubra::Reply::abort));
    ASSERT_TRUE(VornTest::waitUntil([&] { return !connected.isEmpty(); }, 10000));

    broker.close();
    delete session;
    VornTest::BlackHoleListener takenOver(port);
    ASSERT_TRUE(takenOver.isValid());
    TickGapMeter ticks;
    QElapsedTimer clock;
    clock.start();
    // Two attempts of 1 s each, 100 and 200 ms apart.
    ASSERT_TRUE(VornTest::waitUntil([&] { return !gaveUp.isEmpty(); }, 15000));
    EXPECT_LT(clock.elapsed(), 2300 + 3000);
    EXPECT_EQ(disconnected.size(), 1);
    EXPECT_EQ(connected.size(), 1);
    EXPECT_LT(ticks.largestGapMs(), kLargestTolerableGapMs);
    ::testing::Test::RecordProperty("largestTickGapMs", int(ticks.largestGapMs()));
}

} // namespace
