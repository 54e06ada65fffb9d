// SPDX-License-Identifier: MIT
#include "ScriptedService.h"

#include "core/ManagerPrivate.h"

#include <QTimer>

namespace VornTest {

ScriptedReply::ScriptedReply(const QString& name, int status)
    : Nubra::Reply(name)
{
    setStatus(status);
}

void ScriptedReply::onStop(const QString&) { ++stopCalls; }

ScriptedService::ScriptedService(Nubra::Manager* manager, QStringList names)
    : m_manager(manager)
    , m_names(std::move(names))
{
    Nubra::ManagerPrivate::get(manager)->addService(this);
}

ScriptedService::~ScriptedService()
{
    if (m_manager) // a test may delete the manager first
        Nubra::ManagerPrivate::get(m_manager)->removeService(this);
    // Every reply it made, also those of calls a test cleared: a reply whose
    // deferred deletion was posted outside a running loop would otherwise
    // outlive the test.
    for (const QPointer<ScriptedReply>& reply : qAsConst(m_created))
        if (reply)
            delete reply.data();
}

bool ScriptedService::handles(const QString& name) const
{
    if (m_names.isEmpty())
        return name != QLatin1String("setConfigPath") && name != QLatin1String("setConfigData");
    return m_names.contains(name);
}

Nubra::Reply* ScriptedService::start(const Nubra::RequestContext& request)
{
    Call call{request.name, request.extra, request.record, request.options, nullptr};
    if (m_null.count(request.name) && m_null[request.name]) {
        calls.append(call);
        return nullptr;
    }
    const int status = m_status.count(request.name) ? m_status[request.name] : 0;
    auto* reply = new ScriptedReply(request.name, status);
    m_created.append(reply);
    call.reply = reply;
    calls.append(call);
    auto script = m_scripts.find(request.name);
    if (script != m_scripts.end())
        script->second(reply, call);
    return reply;
}

void ScriptedService::answerAfter(const QString& name, int delayMs, const QVariantMap& map)
{
    setScript(name, [delayMs, map](ScriptedReply* reply, const Call&) {
        QTimer::singleShot(delayMs, Qt::PreciseTimer, reply, [reply, map] { reply->sendFinished(map); });
    });
}

void ScriptedService::errorAfter(const QString& name, int delayMs, Nubra::Error::ErrorCode code)
{
    setScript(name, [delayMs, code](ScriptedReply* reply, const Call&) {
        QTimer::singleShot(delayMs, Qt::PreciseTimer, reply, [reply, code] {
            reply->sendError(code);
            reply->sendFinished({{QStringLiteral("status"), QStringLiteral("failure")}});
        });
    });
}

QList<ScriptedService::Call> ScriptedService::callsNamed(const QString& name) const
{
    QList<Call> out;
    for (const Call& call : calls)
        if (call.name == name)
            out.append(call);
    return out;
}

} // namespace VornTest
