// SPDX-License-Identifier: MIT
// The response watcher's life cycle against a scripted cloud client: one
// request per watcher, the CallBack outliving its caller, and nothing left
// behind afterwards.

#include <VornNubraHelper.h>
#include <VornNubraHelperRespWatcher.h>

#include "HelperTestAccess.h"
#include "ScriptedService.h"
#include "Waiting.h"

#include <Nubra/Manager.h>

#include <QCoreApplication>
#include <QPointer>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>
#include <memory>

using Watcher = VornNubraHelperRespWatcher;
using VornTest::ScriptedReply;
using VornTest::ScriptedService;

namespace {

const QString kName = QStringLiteral("watched");

struct Event {
    QString name;
    Watcher::ResponseEvent event;
    Watcher::Info info;
};

// Events seen by a callback, shared so that it may outlive the test's frame.
struct Recorder {
    std::shared_ptr<QList<Event>> events = std::make_shared<QList<Event>>();
    Watcher::Callback callback() const
    {
        auto list = events;
        return [list](QString name, Watcher::ResponseEvent event, const Watcher::Info& info) {
            list->append({name, event, info});
        };
    }
    QList<int> kinds() const
    {
        QList<int> out;
        for (const Event& e : *events)
            out << int(e.event);
        return out;
    }
};

Watcher::Requester sendTo(const QString& name)
{
    return [name](Nubra::Manager* manager, QVariantMap record) { return manager->request(name, record, {}); };
}

Watcher makeWatcher(const QVariantMap& record = {{QStringLiteral("k"), 1}})
{
    return Watcher(record, VornNubraHelper::getInstance(), sendTo(kName));
}

// Waits (bounded) until a guarded object is gone; the CallBack deletes
// itself about 2 s after finished(), so the bound is generous.
bool waitGone(const QPointer<QObject>& object)
{
    return VornTest::waitUntil([&] { return object.isNull(); }, 8000);
}

class RespWatcher : public ::testing::Test {
protected:
    ScriptedService service{helperManager(), {kName}};
};

} // namespace

TEST_F(RespWatcher, syncExecWaitsForFinishedThenCallBackAndReplyAreReleased)
{
    service.answerAfter(kName, 30, {{QStringLiteral("status"), QStringLiteral("success")}});
    Recorder recorder;
    Watcher watcher = makeWatcher();
    Watcher::Exec exec = watcher.onResp(QStringLiteral("label"), recorder.callback());
    EXPECT_TRUE(exec.exec(Watcher::Sync));
    // exec() came back only after the answer: the callback has seen it.
    ASSERT_EQ(recorder.kinds(), QList<int>{Watcher::Finished});
    EXPECT_EQ(recorder.events->first().name, QStringLiteral("label"));
    EXPECT_EQ(recorder.events->first().info.params.value(QStringLiteral("status")).toString(), "success");
    ASSERT_EQ(service.calls.size(), 1);
    EXPECT_EQ(service.calls[0].record, (QVariantMap{{QStringLiteral("k"), 1}}));

    QPointer<QObject> callBack = exec.callBack;
    ASSERT_TRUE(callBack);
    EXPECT_TRUE(waitGone(callBack));
    EXPECT_TRUE(waitGone(service.calls[0].reply.data()));
}

TEST_F(RespWatcher, onlyTheFirstOnRespCounts)
{
    service.answerAfter(kName, 0, {{QStringLiteral("status"), QStringLiteral("success")}});
    Recorder first, second;
    Watcher watcher = makeWatcher();
    Watcher::Exec e1 = watcher.onResp(QStringLiteral("first"), first.callback());
    Watcher::Exec e2 = watcher.onResp(QStringLiteral("second"), second.callback());
    EXPECT_EQ(watcher.name, QStringLiteral("second")); // the name follows every call
    EXPECT_EQ(e2.watcher, nullptr);
    EXPECT_FALSE(e2.exec());
    EXPECT_TRUE(service.calls.isEmpty());
    EXPECT_TRUE(e1.exec());
    EXPECT_EQ(service.calls.size(), 1);
    EXPECT_EQ(first.kinds(), QList<int>{Watcher::Finished});
    EXPECT_TRUE(second.events->isEmpty());
}

TEST_F(RespWatcher, execRunsOnceWhateverTheCaller)
{
    // Table: how the caller treats the watcher and its Exec; each row must
    // send exactly one request.
    struct Row {
        const char* what;
        std::function<void(Recorder&)> run;
        QList<int> expectedEvents;
    };
    const Row rows[] = {
        {"exec twice",
         [](Recorder& r) {
             Watcher w = makeWatcher();
             Watcher::Exec e = w.onResp(kName, r.callback());
             EXPECT_TRUE(e.exec());
             EXPECT_FALSE(e.exec());
             EXPECT_FALSE(e.exec(Watcher::Async));
         },
         {Watcher::Finished}},
        {"Exec dropped unexecuted (runs blocking)",
         [](Recorder& r) {
             Watcher w = makeWatcher();
             { Watcher::Exec e = w.onResp(kName, r.callback()); }
             // Blocking: the answer was already delivered when the Exec died.
             EXPECT_EQ(r.kinds(), QList<int>{Watcher::Finished});
         },
         {Watcher::Finished}},
        {"watcher never armed (runs blocking, no callback)",
         [](Recorder&) { Watcher w = makeWatcher(); },
         {}},
        {"moved Exec runs once",
         [](Recorder& r) {
             Watcher w = makeWatcher();
             Watcher::Exec a = w.onResp(kName, r.callback());
             Watcher::Exec b = std::move(a);
             EXPECT_TRUE(a.done);
             EXPECT_FALSE(a.exec());
             EXPECT_TRUE(b.exec());
         },
         {Watcher::Finished}},
        {"moved watcher runs once",
         [](Recorder&) {
             Watcher w = makeWatcher();
             Watcher moved = std::move(w);
         },
         {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        service.calls.clear();
        service.answerAfter(kName, 0, {{QStringLiteral("status"), QStringLiteral("success")}});
        Recorder recorder;
        row.run(recorder);
        EXPECT_EQ(service.calls.size(), 1);
        EXPECT_EQ(recorder.kinds(), row.expectedEvents);
    }
}

TEST_F(RespWatcher, failedStartGivesErrorThenFinishedAndReleasesAtOnce)
{
    struct Row {
        const char* what;
        bool nullReply;
        int status;
        bool expectedResult;
        int expectedError;
    };
    const Row rows[] = {
        {"refused reply", false, int(Nubra::Error::Busy), true, int(Nubra::Error::Busy)},
        {"no reply", true, 0, false, Watcher::NoReplyError},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        ScriptedService local{helperManager(), {QStringLiteral("failing")}};
        if (row.nullReply)
            local.setNullReply(QStringLiteral("failing"));
        else
            local.setStatus(QStringLiteral("failing"), row.status);
        Recorder recorder;
        Watcher w(QVariantMap(), VornNubraHelper::getInstance(), sendTo(QStringLiteral("failing")));
        Watcher::Exec e = w.onResp(QStringLiteral("f"), recorder.callback());
        EXPECT_EQ(e.exec(Watcher::Sync), row.expectedResult);
        ASSERT_EQ(recorder.kinds(), (QList<int>{Watcher::Error, Watcher::Finished}));
        EXPECT_EQ(recorder.events->at(0).info.error, row.expectedError);
        EXPECT_EQ(recorder.events->at(1).info.error, row.expectedError);
        EXPECT_TRUE(recorder.events->at(1).info.params.isEmpty());
        QPointer<QObject> callBack = e.callBack;
        QPointer<QObject> reply = row.nullReply ? nullptr : local.calls.value(0).reply.data();
        // Deleted on the next turns of the loop, not after the 2 s timer.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        EXPECT_TRUE(callBack.isNull());
        EXPECT_TRUE(reply.isNull());
        // The refused reply's own late signals must not reach the callback.
        VornTest::deliverQueued(3);
        EXPECT_EQ(recorder.events->size(), 2);
    }
}

TEST_F(RespWatcher, withoutManagerOrRequesterNothingIsSent)
{
    Recorder recorder;
    Watcher orphan(QVariantMap(), nullptr, sendTo(kName));
    EXPECT_EQ(orphan.manager(), nullptr);
    Watcher::Exec e = orphan.onResp(kName, recorder.callback());
    EXPECT_FALSE(e.exec());
    EXPECT_EQ(e.callBack, nullptr);
    EXPECT_TRUE(recorder.events->isEmpty());

    Watcher empty(QVariantMap(), VornNubraHelper::getInstance(), Watcher::Requester());
    Watcher::Exec e2 = empty.onResp(kName, recorder.callback());
    EXPECT_THROW(e2.exec(), std::bad_function_call);
    EXPECT_FALSE(e2.exec()); // done, even though it threw
    EXPECT_TRUE(service.calls.isEmpty());
}

namespace {
// Starts an Async request and returns before anything happened.
QPointer<QObject> startAsync(const Recorder& recorder)
{
    Watcher w = makeWatcher();
    Watcher::Exec e = w.onResp(QStringLiteral("async"), recorder.callback());
    EXPECT_TRUE(e.exec(Watcher::Async));
    return e.callBack;
}
} // namespace

TEST_F(RespWatcher, asyncCallbacksArriveAfterTheCallerReturned)
{
    service.setScript(kName, [](ScriptedReply* reply, const ScriptedService::Call&) {
        QTimer::singleShot(10, reply, [reply] {
            reply->sendDownloadProgressOfOne(QStringLiteral("part-1"), 5, 10);
            reply->sendUploadProgress(3, 9);
            reply->sendDownloadProgress(7, 10);
            reply->sendOneError(QStringLiteral("part-2"), Nubra::Error::FileWriteFailed);
            reply->sendError(Nubra::Error::ConnectionClosed);
            reply->sendAbort();
            reply->stop(QStringLiteral("part-3"));
            reply->sendFinished({{QStringLiteral("status"), QStringLiteral("failure")}});
        });
    });
    Recorder recorder;
    QPointer<QObject> callBack = startAsync(recorder);
    ASSERT_TRUE(callBack);
    EXPECT_TRUE(recorder.events->isEmpty()); // nothing yet: the call did not wait
    ASSERT_TRUE(VornTest::waitUntil([&] { return recorder.events->size() >= 8; }));

    const QList<Event>& ev = *recorder.events;
    const QList<int> expected{Watcher::DownloadProgress, Watcher::UploadProgress, Watcher::DownloadProgress,
                              Watcher::Error,            Watcher::Error,          Watcher::Abort,
                              Watcher::Stop,             Watcher::Finished};
    EXPECT_EQ(recorder.kinds(), expected);
    EXPECT_EQ(ev[0].info.name, QStringLiteral("part-1"));
    // Upload progress keeps the item name of the per-item download before it.
    EXPECT_EQ(ev[1].info.name, QStringLiteral("part-1"));
    EXPECT_EQ(ev[1].info.bytes, 3);
    EXPECT_EQ(ev[1].info.bytesTotal, 9);
    EXPECT_EQ(ev[2].info.name, QString());
    EXPECT_EQ(ev[3].info.name, QStringLiteral("part-2"));
    EXPECT_EQ(ev[3].info.error, int(Nubra::Error::FileWriteFailed));
    EXPECT_EQ(ev[4].info.name, QString());
    EXPECT_EQ(ev[4].info.error, int(Nubra::Error::ConnectionClosed));
    EXPECT_EQ(ev[6].info.name, QStringLiteral("part-3"));
    EXPECT_EQ(ev[7].info.params.value(QStringLiteral("status")).toString(), "failure");
    EXPECT_TRUE(waitGone(callBack));
    EXPECT_TRUE(waitGone(service.calls[0].reply.data()));
}

TEST_F(RespWatcher, sessionSlotsAreInvocableByName)
{
    Recorder recorder;
    QPointer<QObject> callBack = startAsync(recorder); // never answered until the end
    ASSERT_TRUE(callBack);
    ASSERT_TRUE(QMetaObject::invokeMethod(callBack, "subscribed", Q_ARG(QVariantList, QVariantList{"a/b"}),
                                          Q_ARG(uchar, 1)));
    ASSERT_TRUE(QMetaObject::invokeMethod(callBack, "unsubscribed", Q_ARG(QVariantList, QVariantList{"c"})));
    ASSERT_TRUE(QMetaObject::invokeMethod(callBack, "connected"));
    ASSERT_TRUE(QMetaObject::invokeMethod(callBack, "disconnected"));
    ASSERT_EQ(recorder.kinds(), (QList<int>{Watcher::Subscribed, Watcher::Unsubscribed, Watcher::Connected,
                                            Watcher::Disconnected}));
    EXPECT_EQ(recorder.events->at(0).info.topic, QVariantList{"a/b"});
    EXPECT_EQ(recorder.events->at(0).info.qos, 1);
    EXPECT_EQ(recorder.events->at(1).info.topic, QVariantList{"c"});
    // connected/disconnected hand over a fresh Info, not the running one.
    EXPECT_TRUE(recorder.events->at(2).info.topic.isEmpty());
    EXPECT_TRUE(recorder.events->at(3).info.topic.isEmpty());

    service.calls[0].reply->sendFinished({});
    EXPECT_TRUE(waitGone(callBack));
}

TEST_F(RespWatcher, replyFinishingTwiceDeletesTheCallBackOnce)
{
    // A misbehaving client: finished() twice starts two deletion timers.
    service.setScript(kName, [](ScriptedReply* reply, const ScriptedService::Call&) {
        QTimer::singleShot(0, reply, [reply] {
            reply->sendFinished({{QStringLiteral("n"), 1}});
            reply->sendFinished({{QStringLiteral("n"), 2}});
        });
    });
    Recorder recorder;
    QPointer<QObject> callBack = startAsync(recorder);
    ASSERT_TRUE(VornTest::waitUntil([&] { return recorder.events->size() >= 2; }));
    // Both 2 s deletion timers are coarse (at most 5 % late), so they have
    // fired once this precise one, started after them, has.
    bool pastBothTimers = false;
    QTimer::singleShot(2100, Qt::PreciseTimer, [&pastBothTimers] { pastBothTimers = true; });
    EXPECT_EQ(recorder.kinds(), (QList<int>{Watcher::Finished, Watcher::Finished}));
    EXPECT_TRUE(waitGone(callBack));
    // The second timer found the object gone: no crash, nothing more reported.
    ASSERT_TRUE(VornTest::waitUntil([&] { return pastBothTimers; }, 5000));
    EXPECT_EQ(recorder.events->size(), 2);
}
