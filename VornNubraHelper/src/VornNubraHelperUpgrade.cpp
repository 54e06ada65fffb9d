// SPDX-License-Identifier: MIT
// Automatic upgrade (configure, check), software package download (start,
// pause, existence test) and fire-and-forget file download.

#include "VornNubraHelper.h"

#include "DebugText.h"
#include "LocalWait.h"
#include "VornLog.h"

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <QDebug>
#include <QTimer>
#include <QVariantList>

#include <functional>

namespace {

using NubraCommon::ErrorCode;

constexpr int kReplyWaitMs = 15000;

// Waits for one upgrade-service reply: 15 s at most, user input held back.
// onSuccess runs for a "success" answer and may change the result code.
ErrorCode waitForUpgradeReply(Nubra::Manager* manager, Nubra::Reply* reply,
                              const std::function<void(const QVariantMap& answer, ErrorCode& code)>& onSuccess)
{
    // A handler that fires after this call returned sees a null or stopped
    // loop and does nothing.
    LocalWait wait;
    const LocalWait::Handle loop = wait.handle();
    ErrorCode code = NubraCommon::Success;

    wait.startTimeout(kReplyWaitMs, Qt::CoarseTimer, [&code] { code = NubraCommon::Timeout; });

    QObject::connect(
        reply, &Nubra::Reply::finished, manager,
        [loop, &code, &onSuccess](const QVariantMap& answer) {
            if (!loop.isRunning())
                return;
            if (answer.value(QStringLiteral("status")).toString() != QLatin1String("success"))
                code = NubraCommon::ResponseFailed;
            else
                onSuccess(answer, code);
            loop.quit();
        },
        Qt::AutoConnection);

    // get's error text for the upgrade calls is kept for compatibility with applications built against this
    // interface.
    wait.quitOnError(reply, code, "Nubra Get ErrorOccurred: ");

    wait.exec(QEventLoop::ExcludeUserInputEvents);

    wait.deleteLoopLater();
    LocalWait::releaseReply(reply);
    return code;
}

void releaseReply(Nubra::Reply* reply)
{
    if (reply)
        reply->deleteLater();
}

} // namespace

NubraCommon::ErrorCode VornNubraHelper::setSoftwareAutoUpgrade(const QString& modelCode, const QString& version,
                                                               const QString& versionType, const QString& langType,
                                                               const QString& path)
{
    if (!m_manager)
        return NubraCommon::NoManager;

    QVariantMap model;
    model.insert(QStringLiteral("modelCode"), modelCode);
    model.insert(QStringLiteral("versionType"), versionType);
    model.insert(QStringLiteral("version"), version);
    // The fixed maxPatch, "mac" and checkInterval are kept for compatibility
    // with applications built against this interface.
    model.insert(QStringLiteral("maxPatch"), 10);
    model.insert(QStringLiteral("osType"), QStringLiteral("mac"));
    model.insert(QStringLiteral("langType"), langType);

    QVariantMap body;
    body.insert(model.value(QStringLiteral("modelCode")).toString(), model);
    body.insert(QStringLiteral("checkInterval"), 10);
    body.insert(QStringLiteral("path"), path);

    Nubra::Reply* reply =
        m_manager->request(QStringLiteral("autoUpgrade:setAutoUpgradeConfig"), body, QVariantMap());
    if (!reply || reply->status() != 0) {
        releaseReply(reply);
        return NubraCommon::RequestRejected;
    }
    return waitForUpgradeReply(m_manager, reply,
                               [](const QVariantMap&, ErrorCode&) { VORN_LOG << "Soft Version Config Success"; });
}

NubraCommon::ErrorCode VornNubraHelper::checkSoftwareUpgrade(const QString& modelCode, QVariantMap& upgradeInfo)
{
    if (!m_manager)
        return NubraCommon::NoManager;

    if (!m_upgradeConfigured) {
        LocalWait wait;
        const LocalWait::Handle loop = wait.handle();
        Nubra::Reply* configReply =
            m_manager->setConfigData(QVariantMap{{QStringLiteral("timeout"), 3}}, QVariantMap());
        if (!configReply || configReply->status() != 0) {
            // The two blanks are kept for compatibility with applications built against this interface.
            VORN_LOG << "set config  fail" << (configReply ? configReply->status() : -1);
            m_upgradeConfigured = false;
            wait.deleteLoopNow();
            releaseReply(configReply);
            return NubraCommon::RequestRejected;
        }
        QObject::connect(
            configReply, &Nubra::Reply::finished, configReply,
            [this, loop, configReply](const QVariantMap& answer) {
                m_upgradeConfigured = true;
                if (answer.value(QStringLiteral("errorCode")).toInt() != 0) {
                    m_upgradeConfigured = false;
                    VORN_LOG << "init fail" << configReply->status();
                }
                if (loop.exists())
                    loop.quit();
            },
            Qt::DirectConnection);
        // No time-out here: the check waits as long as the configuration
        // takes, and goes on whatever the answer said. Kept for compatibility
        // with applications built against this interface.
        wait.exec(QEventLoop::AllEvents);
        wait.deleteLoopNow();
        LocalWait::releaseReply(configReply);
    }

    Nubra::Reply* reply = m_manager->request(QStringLiteral("autoUpgrade:checkUpgrade"),
                                             QVariantMap{{QStringLiteral("modelCode"), modelCode}}, QVariantMap());
    if (!reply || reply->status() != 0) {
        releaseReply(reply);
        return NubraCommon::RequestRejected;
    }
    return waitForUpgradeReply(m_manager, reply, [&upgradeInfo](const QVariantMap& answer, ErrorCode&) {
        VORN_LOG << "Soft Version Get Success";
        upgradeInfo = answer.value(QStringLiteral("result")).toMap();
    });
}

NubraCommon::ErrorCode VornNubraHelper::startDownloadSoftware(const QString& modelCode, const QString& version)
{
    if (!m_manager)
        return NubraCommon::NoManager;
    if (m_downloadReply && m_downloadReply->property("download").toString() == QLatin1String("run"))
        return NubraCommon::DownloadRunning;

    const QVariantMap item{{QStringLiteral("modelCode"), modelCode}, {QStringLiteral("version"), version}};
    const QVariantMap body{{QStringLiteral("upgrades"), QVariantList{item}}};
    // The loop goes when this call returns (deleteLoopNow at the end), and
    // the handlers that quit it are disconnected before.
    LocalWait wait;
    QEventLoop* const loop = wait.loop();

    // Stored at once: a pause from inside the wait reaches the reply here.
    m_downloadReply = QSharedPointer<Nubra::Reply>(
        m_manager->request(QStringLiteral("autoUpgrade:startDownload"), body, QVariantMap()),
        [](Nubra::Reply* reply) {
            if (reply)
                reply->deleteLater();
        });
    if (!m_downloadReply || m_downloadReply->status() != 0) {
        // The refused reply stays held until the next start: kept for
        // compatibility with applications built against this interface.
        loop->quit();
        wait.deleteLoopNow();
        return NubraCommon::RequestRejected;
    }

    m_downloadReply->setProperty("download", QStringLiteral("run"));
    // Starts true on purpose: a wait ended by a pause counts as a success.
    // Kept for compatibility with applications built against this interface.
    bool succeeded = true;

    Nubra::Reply* reply = m_downloadReply.data();
    const QMetaObject::Connection finishedConnection = QObject::connect(
        reply, &Nubra::Reply::finished, reply,
        [loop, &succeeded](const QVariantMap& answer) {
            if (answer.value(QStringLiteral("status")).toString() == QLatin1String("success")) {
                qDebug().noquote() << "startDownloadSoftware success." << VornDebugText::ofMap(answer);
                succeeded = true;
            } else {
                qDebug().noquote() << "startDownloadSoftware fail." << VornDebugText::ofMap(answer);
                succeeded = false;
            }
            loop->quit();
        },
        Qt::DirectConnection);
    // Only logged, the wait goes on: kept for compatibility with applications
    // built against this interface.
    const QMetaObject::Connection errorConnection = QObject::connect(
        reply, &Nubra::Reply::errorOccurred, reply,
        [](Nubra::Error::ErrorCode error) { VORN_LOG << "Nubra Get ErrorOccurred: " << int(error); },
        Qt::DirectConnection);
    const QMetaObject::Connection progressConnection = QObject::connect(
        reply, &Nubra::Reply::downloadProgressOfOne, reply,
        [this](const QString& name, qint64 received, qint64 total) {
            // The number glued to "result:" is kept for compatibility with applications built against this
            // interface.
            VORN_LOG << 832 << "result:" << name.toUtf8().constData() << " bytesReceived: " << received
                     << " bytesTotal: " << total;
            emit downloadProgress(received, total);
        },
        Qt::DirectConnection);
    const QMetaObject::Connection quitConnection = QObject::connect(
        VornNubraHelper::getInstance(), &VornNubraHelper::quitDownloadLoop, loop, [loop] { loop->quit(); },
        Qt::DirectConnection);

    // All events allowed: the user must be able to press pause.
    wait.exec(QEventLoop::AllEvents);

    // Set and never read: kept for compatibility with applications built against this interface.
    m_downloadLoopEnded = true;
    QObject::disconnect(finishedConnection);
    QObject::disconnect(errorConnection);
    QObject::disconnect(progressConnection);
    QObject::disconnect(quitConnection);
    m_downloadReply.clear();
    qDebug() << "startDownloadSoftware loop quit end.";
    if (succeeded)
        emit downloadSuccess();
    else
        emit downloadFail();
    wait.deleteLoopNow();
    return NubraCommon::Success;
}

NubraCommon::ErrorCode VornNubraHelper::pauseDownloadSoftware()
{
    if (!m_manager)
        return NubraCommon::NoManager;
    if (!m_downloadReply)
        return NubraCommon::NoDownload;
    m_downloadReply->setProperty("download", QStringLiteral("stop"));
    emit m_downloadReply->stop();
    emit quitDownloadLoop();
    return NubraCommon::Success;
}

NubraCommon::ErrorCode VornNubraHelper::checkDownloadSoftwareExist(const QString& modelCode, const QString& version)
{
    if (!m_manager)
        return NubraCommon::NoManager;
    if (m_downloadReply && m_downloadReply->property("download").toString() == QLatin1String("run"))
        return NubraCommon::DownloadRunning;

    const QVariantMap body{{QStringLiteral("modelCode"), modelCode}, {QStringLiteral("version"), version}};
    Nubra::Reply* reply = m_manager->request(QStringLiteral("autoUpgrade:isExist"), body, QVariantMap());
    if (!reply || reply->status() != 0) {
        releaseReply(reply);
        return NubraCommon::RequestRejected;
    }
    return waitForUpgradeReply(m_manager, reply, [this](const QVariantMap& answer, ErrorCode& code) {
        const QVariantMap result = answer.value(QStringLiteral("result")).toMap();
        // 32-bit reads, widened afterwards: sizes past 2 GiB wrap here.
        // 32-bit reads are kept for compatibility with applications built against this interface.
        if (result.value(QStringLiteral("bytesReceived")).toInt() >= 1)
            code = NubraCommon::PackageExists;
        emit downloadProgress(qint64(result.value(QStringLiteral("bytesReceived")).toInt()),
                              qint64(result.value(QStringLiteral("bytesTotal")).toInt()));
        VORN_LOG << "Soft Version Get Success";
    });
}

NubraCommon::ErrorCode VornNubraHelper::downloadFile(const QString& url, const QString& path)
{
    if (!m_manager)
        return NubraCommon::NoManager;
    const QVariantMap body{{QStringLiteral("urls"), url}, {QStringLiteral("path"), path}};
    Nubra::Reply* reply = m_manager->request(QStringLiteral("startDownload"), body, QVariantMap());
    if (!reply || reply->status() != 0) {
        releaseReply(reply);
        return NubraCommon::RequestRejected;
    }
    QObject::connect(
        reply, &Nubra::Reply::finished, reply,
        [reply](const QVariantMap& answer) {
            // Success and failure end alike (the reply goes on a later turn):
            // kept for compatibility with applications built against this interface.
            const bool succeeded = answer.value(QStringLiteral("status")).toString() == QLatin1String("success");
            Q_UNUSED(succeeded)
            QTimer::singleShot(0, Qt::PreciseTimer, [reply] { reply->deleteLater(); });
        },
        Qt::DirectConnection);
    QObject::connect(
        reply, &Nubra::Reply::errorOccurred, reply,
        [](Nubra::Error::ErrorCode error) { VORN_LOG << "Nubra Get ErrorOccurred: " << int(error); },
        Qt::DirectConnection);
    QObject::connect(
        reply, &Nubra::Reply::downloadProgressOfOne, reply,
        [](const QString& name, qint64 received, qint64 total) {
            // The number glued to "result:" is kept for compatibility with applications built against this
            // interface.
            VORN_LOG << 1140 << "result:" << name.toUtf8().constData() << " bytesReceived: " << received
                     << " bytesTotal: " << total;
        },
        Qt::DirectConnection);
    return NubraCommon::Success;
}
