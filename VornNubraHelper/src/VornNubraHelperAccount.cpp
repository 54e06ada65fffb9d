// SPDX-License-Identifier: MIT
// User-account and cloud-disk requests: one request of the user-account or
// cloud-disk catalogue, run blocking or handed back as a response watcher.

#include "VornNubraHelper.h"

#include "DebugText.h"
#include "LocalWait.h"

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <QDebug>

#include <stdexcept>

namespace {

using Watcher = VornNubraHelperRespWatcher;

// The record both services send: the caller's maps stay nested under their
// own keys, never merged into the top level.
QVariantMap composeRecord(const QVariantMap& headers, const QVariantMap& body, const QVariantMap& params,
                          const QString& source)
{
    QVariantMap record;
    record.insert(QStringLiteral("headers"), headers);
    record.insert(QStringLiteral("body"), body);
    record.insert(QStringLiteral("params"), params);
    record.insert(QStringLiteral("source"), source);
    return record;
}

// The checked lookup of the catalogue. Applications catch the message that
// std::map::at gives on the platform the helper first shipped on (two blanks
// after the colon); libstdc++'s own text is only "map::at", so the exception
// is raised here with the expected text instead of relying on at().
template <typename Map, typename Key>
const QVariantMap& checkedEntry(const Map& map, const Key& key)
{
    const auto it = map.find(key);
    if (it == map.end())
        // The text is kept for compatibility with applications built against this interface.
        throw std::out_of_range("map::at:  key not found");
    return it->second;
}

// Upload controls ("startUpload:start" = 5, "startUpload:removeAll" = 7)
// travel with the params map alone. The blocking call and the request maker
// test for them in two different ways that select the same two values.
// The two tests and what each call sends are kept for compatibility with applications built against this
// interface.
bool isUploadControlForBlockingCall(int value) { return (value & ~2) == 5; }
bool isUploadControlForMaker(int value) { return (value | 2) == 7; }

} // namespace

// ---- user-account requests -------------------------------------------------

VornNubraHelperRespWatcher VornNubraHelper::VornUserAccountRequest(NubraCommon::VornUserAccountInterface iface,
                                                                   QVariantMap body, QVariantMap params,
                                                                   QVariantMap headers, QString extra, QString source)
{
    VornNubraHelper* helper = this;
    // The maker owns copies of everything: the caller may change or drop its
    // arguments before the watcher runs.
    auto maker = [helper, iface, headers, body, params, source, extra](Nubra::Manager* manager,
                                                                        const QVariantMap&) -> Nubra::Reply* {
        const QVariantMap& entry = checkedEntry(helper->m_userAccountMap, iface);
        const QString name = entry.value(QStringLiteral("name")).toString();
        qDebug() << "VornUserAccountRequest interface is " << name;
        const QVariantMap record = composeRecord(headers, body, params, source);
        if (extra.isEmpty())
            return manager->request(name, record, QVariantMap());
        return manager->request(name, extra, record, QVariantMap());
    };
    return VornNubraHelperRespWatcher(QVariantMap(), this, maker);
}

void VornNubraHelper::VornUserAccountRequest(NubraCommon::VornUserAccountInterface iface, QVariantMap& result,
                                             QVariantMap body, QVariantMap params, QVariantMap headers, QString extra,
                                             QString source)
{
    VornNubraHelperRespWatcher watcher = VornUserAccountRequest(iface, body, params, headers, extra, source);
    // The callback only holds a reference to result: in Sync mode it cannot
    // fire after this frame is gone, since exec() returns after Finished.
    watcher
        .onResp(QStringLiteral("VornUserAccountRequest"),
                [&result](QString, Watcher::ResponseEvent event, const Watcher::Info& info) {
                    // The six underscores are kept for compatibility with applications built against this
                    // interface.
                    qDebug() << "finished______" << info.name;
                    if (event == Watcher::Finished)
                        result = info.params;
                })
        .exec();
}

// ---- cloud-disk requests ---------------------------------------------------

VornNubraHelperRespWatcher VornNubraHelper::VornCloudDiskRequest(NubraCommon::VornCloudDiskInterface iface,
                                                                 QVariantMap body, QVariantMap params,
                                                                 QVariantMap headers, QString source)
{
    VornNubraHelper* helper = this;
    auto maker = [helper, iface](Nubra::Manager* manager, const QVariantMap& record) -> Nubra::Reply* {
        const auto it = helper->m_cloudDiskMap.find(iface);
        if (it == helper->m_cloudDiskMap.end()) {
            qDebug().noquote() << QStringLiteral("VornCloudDiskRequest have not %1 interface").arg(int(iface));
            return nullptr;
        }
        const QString name = it->second.value(QStringLiteral("name")).toString();
        // No "timeout" option here, unlike the blocking call.
        if (isUploadControlForMaker(int(iface)))
            return manager->request(name, record.value(QStringLiteral("params")).toMap(), QVariantMap());
        return manager->request(name, record, QVariantMap());
    };
    return VornNubraHelperRespWatcher(composeRecord(headers, body, params, source), this, maker);
}

void VornNubraHelper::VornCloudDiskRequest(NubraCommon::VornCloudDiskInterface iface, QVariantMap& result,
                                           QVariantMap body, QVariantMap params, QVariantMap headers, QString source)
{
    if (!m_manager) {
        // The text is kept for compatibility with applications built against this interface.
        qDebug() << "VornCloudDiskRequest manager error " << m_manager;
        return;
    }
    const auto entry = m_cloudDiskMap.find(iface);
    if (entry == m_cloudDiskMap.end()) {
        qDebug().noquote() << QStringLiteral("VornCloudDiskRequest have not %1 interface").arg(int(iface));
        return;
    }
    const QString name = entry->second.value(QStringLiteral("name")).toString();
    qDebug() << "VornCloudDiskRequest interface is " << name;

    const QVariantMap record = composeRecord(headers, body, params, source);
    const int value = int(iface);
    Nubra::Reply* reply = nullptr;
    if (isUploadControlForBlockingCall(value)) {
        const QVariantMap uploadOptions{{QStringLiteral("timeout"), 30}};
        reply = m_manager->request(name, params, uploadOptions);
    } else {
        reply = m_manager->request(name, record, QVariantMap());
    }

    const int status = reply ? reply->status() : int(Nubra::Error::RequestErrorOther);
    if (!reply || status != 0) {
        qDebug() << "VornCloudDiskRequest reply error " << reply << "," << Nubra::Error::ErrorCode(status);
        if (reply)
            reply->deleteLater();
        return;
    }

    // No time-out: the wait lasts until the reply finishes. A finished()
    // that arrives after this call returned finds the loop gone and leaves
    // result alone.
    LocalWait wait;
    const LocalWait::Handle loop = wait.handle();
    QObject::connect(
        reply, &Nubra::Reply::finished, reply,
        [loop, &result](const QVariantMap& data) {
            QVariantMap copy = data;
            if (!loop.isRunning())
                return;
            // Inserting lookup: an answer without "status" reaches the
            // caller with an empty "status" entry.
            // The inserting lookup is kept for compatibility with applications built against this interface.
            const QVariant& answerStatus = copy[QStringLiteral("status")];
            if (answerStatus.toString() != QLatin1String("success"))
                qDebug().noquote() << "VornCloudDiskRequest finished error " << VornDebugText::ofMap(copy);
            result = copy;
            loop.quit();
        },
        Qt::DirectConnection);
    QObject::connect(reply, &Nubra::Reply::uploadProgress, reply, [this, value](qint64 bytesSent, qint64 bytesTotal) {
        // Only the queue start reports the progress of the uploads.
        // Progress for 5 only, not 7: kept for compatibility with applications built against this interface.
        if (value == int(NubraCommon::VornCloudDiskInterface::StartUploadStart))
            emit uploadProgress(bytesSent, bytesTotal);
    });

    wait.exec(QEventLoop::ExcludeUserInputEvents);

    wait.deleteLoopLater();
    LocalWait::releaseReply(reply);
    qDebug() << "VornCloudDiskRequest interface " << name << " finished";
}
