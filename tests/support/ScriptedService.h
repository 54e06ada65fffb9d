// SPDX-License-Identifier: MIT
#pragma once

// A cloud service whose answers a test scripts with exact timing. Handed to
// one Nubra::Manager, it takes that manager's requests (or only the names
// given) before the manager's own services see them.

#include "core/Service.h"

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <QList>
#include <QPointer>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <map>

namespace VornTest {

// A reply the test drives by hand. The send* functions emit the raw signal
// (no once-only guard), so tests can also play a misbehaving client.
class ScriptedReply : public Nubra::Reply {
    Q_OBJECT
public:
    explicit ScriptedReply(const QString& name, int status = 0);

    void sendFinished(const QVariantMap& map)
    {
        ++finishedSent;
        emit finished(map);
    }
    void sendError(Nubra::Error::ErrorCode code) { emit errorOccurred(code); }
    void sendReceived(const QString& topic, const QVariantMap& data) { emit received(topic, data); }
    void sendUploadProgress(qint64 sent, qint64 total) { emit uploadProgress(sent, total); }
    void sendDownloadProgress(qint64 received, qint64 total) { emit downloadProgress(received, total); }
    void sendDownloadProgressOfOne(const QString& item, qint64 received, qint64 total)
    {
        emit downloadProgressOfOne(item, received, total);
    }
    void sendOneError(const QString& item, Nubra::Error::ErrorCode code) { emit oneErrorOccurred(item, code); }
    void sendAbort() { notifyAbort(); }

    int stopCalls = 0;
    int finishedSent = 0; // also while the reply's signals are blocked

protected:
    void onStop(const QString& item) override;
    void onAbort(const QString&) override {}
};

class ScriptedService : public Nubra::Service {
public:
    struct Call {
        QString name;
        QString extra;
        QVariantMap record;
        QVariantMap options;
        QPointer<ScriptedReply> reply;
    };
    // Runs right after a reply was created, before request() returns.
    using Script = std::function<void(ScriptedReply* reply, const Call& call)>;

    // names empty: takes every request (the configuration calls
    // "setConfigPath" and "setConfigData" only when named).
    explicit ScriptedService(Nubra::Manager* manager, QStringList names = {});
    ~ScriptedService() override;

    bool handles(const QString& name) const override;
    Nubra::Reply* start(const Nubra::RequestContext& request) override;

    // What the next requests of a name get. Status non-zero refuses.
    void setStatus(const QString& name, int status) { m_status[name] = status; }
    void setNullReply(const QString& name) { m_null[name] = true; }
    void setScript(const QString& name, Script script) { m_scripts[name] = std::move(script); }
    // Answers `map` after delayMs (0 = next loop turn).
    void answerAfter(const QString& name, int delayMs, const QVariantMap& map);
    // Reports an error after delayMs, then finishes with a failure map.
    void errorAfter(const QString& name, int delayMs, Nubra::Error::ErrorCode code);

    QList<Call> calls;
    QList<Call> callsNamed(const QString& name) const;

private:
    QPointer<Nubra::Manager> m_manager;
    QStringList m_names;
    std::map<QString, int> m_status;
    std::map<QString, bool> m_null;
    std::map<QString, Script> m_scripts;
    QList<QPointer<ScriptedReply>> m_created;
};

} // namespace VornTest
