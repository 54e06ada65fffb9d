// SPDX-License-Identifier: MIT
// post, postv1, postv2 and get: one catalogue request, waited for in a local
// event loop that a single-shot timer can end.

#include "VornNubraHelper.h"

#include "DebugText.h"
#include "LocalWait.h"
#include "VornLog.h"

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <QDebug>

#include <functional>

namespace {

using NubraCommon::ErrorCode;

// What differs between the four calls.
struct Variant {
    const char* startLog;    // "Nubra Post :" / "Nubra Get :"
    const char* property;    // "postInterface" / "getInterface"
    const char* successLog;  // "Nubra Post Success" / "Nubra Get Success"
    const char* errorLog;    // "Nubra Post ErrorOccurred: " / "Nubra Get ErrorOccurred: "
    bool logFailure;         // get writes no "fail." message
    // Stores the answer in the caller's result argument.
    std::function<void(const QVariantMap& answer)> store;
};

ErrorCode waitForReply(Nubra::Reply* reply, const QString& name, int interfaceValue, int timeout,
                       const Variant& variant)
{
    VORN_LOG << variant.startLog << name.toUtf8().constData();
    reply->setProperty(variant.property, interfaceValue);

    // A handler that runs after this call returned finds the loop gone (or
    // not running) and does nothing, instead of touching a dead stack frame.
    LocalWait wait;
    const LocalWait::Handle loop = wait.handle();
    ErrorCode code = NubraCommon::Success;

    wait.startTimeout(timeout, LocalWait::defaultTimerType(timeout), [&code] { code = NubraCommon::Timeout; });

    QObject::connect(
        reply, &Nubra::Reply::finished, reply,
        [loop, &code, &variant](const QVariantMap& answer) {
            if (!loop.isRunning())
                return;
            if (answer.value(QStringLiteral("status")).toString() != QLatin1String("success")) {
                if (variant.logFailure)
                    // Logged by the post calls only, not by get: kept for compatibility with applications
                    // built against this interface.
                    qDebug().noquote() << "Nubra Post fail." << VornDebugText::ofMap(answer);
                variant.store(answer);
                code = NubraCommon::ResponseFailed;
            } else {
                VORN_LOG << variant.successLog;
                variant.store(answer);
            }
            loop.quit();
        },
        Qt::DirectConnection);

    wait.quitOnError(reply, code, variant.errorLog);

    wait.exec(QEventLoop::ExcludeUserInputEvents);

    wait.deleteLoopLater();
    LocalWait::releaseReply(reply);
    return code;
}

} // namespace

namespace {

// Steps shared by the four calls up to the start of the request. Returns
// the reply, or sets code and returns null.
struct Prepared {
    Nubra::Reply* reply = nullptr;
    QString name;
    ErrorCode code = NubraCommon::Success;
};

Prepared prepare(Nubra::Manager* manager, const std::map<NubraCommon::Interface, const QVariantMap>& catalogue,
                 NubraCommon::Interface interface, const QVariantMap& checked,
                 const std::function<QVariantMap(const QVariantMap& templ)>& buildRecord,
                 const QVariantMap& options)
{
    Prepared prepared;
    if (!manager) {
        prepared.code = NubraCommon::NoManager;
        return prepared;
    }
    const auto found = catalogue.find(interface);
    if (catalogue.empty() || found == catalogue.end()) {
        prepared.code = NubraCommon::UnknownInterface;
        return prepared;
    }
    const QVariantMap templ = found->second;
    const QStringList required = templ.value(QStringLiteral("body")).toStringList();
    for (const QString& key : required) {
        if (!checked.contains(key)) {
            prepared.code = NubraCommon::MissingField;
            return prepared;
        }
    }
    prepared.name = templ.value(QStringLiteral("name")).toString();
    Nubra::Reply* reply = manager->request(prepared.name, buildRecord(templ), options);
    if (!reply || reply->status() != 0) {
        if (reply)
            reply->deleteLater();
        prepared.code = NubraCommon::RequestRejected;
        return prepared;
    }
    prepared.reply = reply;
    return prepared;
}

QVariantMap tokenHeaders(const QVariantMap& templ, const QString& token)
{
    QVariantMap headers;
    if (templ.contains(QStringLiteral("X-Auth-Token")))
        headers.insert(QStringLiteral("X-Auth-Token"), token);
    return headers;
}

// post and postv1 hand the caller the answer's "result" as a map.
Variant postStoringMap(QVariantMap& result)
{
    return Variant{"Nubra Post :", "postInterface", "Nubra Post Success", "Nubra Post ErrorOccurred: ", true,
                   [&result](const QVariantMap& answer) { result = answer.value(QStringLiteral("result")).toMap(); }};
}

QVariantMap makeRecord(const QVariantMap& headers, const QVariantMap& templ, const QVariantMap& params,
                       const QVariantMap& body)
{
    QVariantMap record;
    if (!headers.isEmpty())
        record.insert(QStringLiteral("headers"), headers);
    if (templ.contains(QStringLiteral("params")))
        record.insert(QStringLiteral("params"), params);
    record.insert(QStringLiteral("body"), body);
    return record;
}

} // namespace

NubraCommon::ErrorCode VornNubraHelper::post(const NubraCommon::Interface& interface, QVariantMap body,
                                             QVariantMap& result, QVariantMap params, int timeout)
{
    const Prepared prepared = prepare(
        m_manager, m_interfaceMap, interface, body,
        [&](const QVariantMap& templ) { return makeRecord(tokenHeaders(templ, m_userToken), templ, params, body); },
        {{QStringLiteral("timeout"), timeout}});
    if (!prepared.reply)
        return prepared.code;
    return waitForReply(prepared.reply, prepared.name, int(interface), timeout, postStoringMap(result));
}

NubraCommon::ErrorCode VornNubraHelper::postv1(const NubraCommon::Interface& interface, QVariantMap headers,
                                               QVariantMap body, QVariantMap& result, QVariantMap params,
                                               int timeout)
{
    const Prepared prepared = prepare(
        m_manager, m_interfaceMap, interface, body,
        [&](const QVariantMap& templ) { return makeRecord(headers, templ, params, body); },
        {{QStringLiteral("timeout"), timeout}});
    if (!prepared.reply)
        return prepared.code;
    return waitForReply(prepared.reply, prepared.name, int(interface), timeout, postStoringMap(result));
}

NubraCommon::ErrorCode VornNubraHelper::postv2(const NubraCommon::Interface& interface, QVariantMap body,
                                               QVariant& result, QVariantMap params, int timeout)
{
    const Prepared prepared = prepare(
        m_manager, m_interfaceMap, interface, body,
        [&](const QVariantMap& templ) { return makeRecord(tokenHeaders(templ, m_userToken), templ, params, body); },
        {{QStringLiteral("timeout"), timeout}});
    if (!prepared.reply)
        return prepared.code;
    const Variant variant{"Nubra Post :", "postInterface", "Nubra Post Success", "Nubra Post ErrorOccurred: ", true,
                          [&result](const QVariantMap& answer) { result = answer.value(QStringLiteral("result")); }};
    return waitForReply(prepared.reply, prepared.name, int(interface), timeout, variant);
}

NubraCommon::ErrorCode VornNubraHelper::get(const NubraCommon::Interface& interface, QVariantMap params,
                                            QVariantMap& result, int timeout)
{
    // get checks and sends the caller's one map as the body, with an empty
    // "params" and no options; the answer is the whole reply map. These
    // asymmetries are kept for compatibility with applications built against
    // this interface.
    const Prepared prepared = prepare(
        m_manager, m_interfaceMap, interface, params,
        [&](const QVariantMap& templ) {
            QVariantMap record;
            const QVariantMap headers = tokenHeaders(templ, m_userToken);
            if (!headers.isEmpty())
                record.insert(QStringLiteral("headers"), headers);
            record.insert(QStringLiteral("params"), QVariantMap());
            record.insert(QStringLiteral("body"), params);
            return record;
        },
        QVariantMap());
    if (!prepared.reply)
        return prepared.code;
    const Variant variant{"Nubra Get :", "getInterface", "Nubra Get Success", "Nubra Get ErrorOccurred: ", false,
                          [&result](const QVariantMap& answer) { result = answer; }};
    return waitForReply(prepared.reply, prepared.name, int(interface), timeout, variant);
}
