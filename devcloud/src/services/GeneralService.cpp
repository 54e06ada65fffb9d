// SPDX-License-Identifier: MIT
// Devices, profiles, scan packages and token checks: the general catalogue
// of the cloud API.

#include "Services.h"

#include "Passwords.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QJsonArray>

namespace devcloud {

namespace {

QJsonArray devicesOf(Store& store, qint64 userId)
{
    QJsonArray devices;
    const auto rows = store.query(
        QStringLiteral("SELECT sn, model_code, firmware, state FROM devices WHERE user_id = ?1 ORDER BY sn"), {userId});
    if (rows) {
        for (const auto& row : *rows)
            devices.append(QJsonObject{{QStringLiteral("sn"), row[0].toString()},
                                       {QStringLiteral("modelCode"), row[1].toString()},
                                       {QStringLiteral("firmware"), row[2].toString()},
                                       {QStringLiteral("state"), row[3].toString()}});
    }
    return devices;
}

void getUserProfile(ServiceContext& context, ApiCall& call)
{
    const QJsonValue requested = call.arg(QStringLiteral("userID"));
    qint64 userId = call.user->id;
    if (!requested.isUndefined() && !requested.isNull()) {
        userId = requested.isString() ? requested.toString().toLongLong() : qint64(requested.toDouble());
        if (userId != call.user->id) {
            replyFailure(call, 403, QStringLiteral("forbidden"), QStringLiteral("a token reads only its own profile"));
            return;
        }
    }
    const auto rows = context.store.query(
        QStringLiteral("SELECT id, account, name, phone, country, created_at FROM users WHERE id = ?1"), {userId});
    if (!rows || rows->empty()) {
        replyFailure(call, 404, QStringLiteral("notFound"), QStringLiteral("no such user"));
        return;
    }
    const auto& row = rows->front();
    replySuccess(call, QJsonObject{{QStringLiteral("userID"), row[0].toLongLong()},
                                   {QStringLiteral("account"), row[1].toString()},
                                   {QStringLiteral("name"), row[2].toString()},
                                   {QStringLiteral("phone"), row[3].toString()},
                                   {QStringLiteral("country"), row[4].toString()},
                                   {QStringLiteral("memberSince"), row[5].toLongLong()},
                                   {QStringLiteral("devices"), devicesOf(context.store, userId)}});
}

void getDeviceAction(ServiceContext& context, ApiCall& call)
{
    const QString sn = call.arg(QStringLiteral("sn")).toString();
    if (sn.isEmpty()) {
        replyFailure(call, 400, QStringLiteral("badRequest"), QStringLiteral("\"sn\" must be a non-empty string"));
        return;
    }
    const auto rows = context.store.query(
        QStringLiteral("SELECT model_code, firmware, state, factory_resets FROM devices WHERE sn = ?1"), {sn});
    if (!rows || rows->empty()) {
        replyFailure(call, 404, QStringLiteral("unknownDevice"), QStringLiteral("no device with sn %1").arg(sn));
        return;
    }
    const auto& row = rows->front();
    const QString state = row[2].toString();
    // A device that was told to restore its factory settings picks that
    // action up on its next poll.
    const QString action = state == QLatin1String("restoring") ? QStringLiteral("restoreFactorySettings")
                                                               : QStringLiteral("none");
    replySuccess(call, QJsonObject{{QStringLiteral("sn"), sn},
                                   {QStringLiteral("modelCode"), row[0].toString()},
                                   {QStringLiteral("firmware"), row[1].toString()},
                                   {QStringLiteral("state"), state},
                                   {QStringLiteral("action"), action},
                                   {QStringLiteral("factoryResets"), row[3].toLongLong()}});
}

void restoreScanFactorySettings(ServiceContext& context, ApiCall& call)
{
    const QString sn = call.arg(QStringLiteral("sn")).toString();
    if (sn.isEmpty()) {
        replyFailure(call, 400, QStringLiteral("badRequest"), QStringLiteral("\"sn\" must be a non-empty string"));
        return;
    }
    const QVariant owner = context.store.scalar(QStringLiteral("SELECT user_id FROM devices WHERE sn = ?1"), {sn});
    if (!owner.isValid()) {
        replyFailure(call, 404, QStringLiteral("unknownDevice"), QStringLiteral("no device with sn %1").arg(sn));
        return;
    }
    if (owner.toLongLong() != call.user->id) {
        replyFailure(call, 403, QStringLiteral("forbidden"), QStringLiteral("device %1 belongs to another user").arg(sn));
        return;
    }
    context.store.query(QStringLiteral("UPDATE devices SET state = 'restoring', factory_resets = factory_resets + 1 "
                                       "WHERE sn = ?1"),
                        {sn});
    const qint64 resets =
        context.store.scalar(QStringLiteral("SELECT factory_resets FROM devices WHERE sn = ?1"), {sn}).toLongLong();
    replySuccess(call, QJsonObject{{QStringLiteral("sn"), sn},
                                   {QStringLiteral("accepted"), true},
                                   {QStringLiteral("factoryResets"), resets}});
}

void parseScanPackage(ServiceContext& context, ApiCall& call)
{
    const QString sn = call.arg(QStringLiteral("sn")).toString();
    const QString bucket = call.arg(QStringLiteral("bucket")).toString();
    const QString dfsId = call.arg(QStringLiteral("dfsID")).toString();
    if (sn.isEmpty() || bucket.isEmpty() || dfsId.isEmpty()) {
        replyFailure(call, 400, QStringLiteral("badRequest"),
                     QStringLiteral("\"sn\", \"bucket\" and \"dfsID\" must be non-empty strings"));
        return;
    }
    const auto rows = context.store.query(
        QStringLiteral("SELECT name, size, points, frames, created_at FROM scan_packages "
                       "WHERE user_id = ?1 AND sn = ?2 AND bucket = ?3 AND dfs_id = ?4"),
        {call.user->id, sn, bucket, dfsId});
    if (!rows || rows->empty()) {
        replyFailure(call, 404, QStringLiteral("unknownPackage"),
                     QStringLiteral("no scan package %1/%2 for device %3").arg(bucket, dfsId, sn));
        return;
    }
    const auto& row = rows->front();
    replySuccess(call, QJsonObject{{QStringLiteral("sn"), sn},
                                   {QStringLiteral("bucket"), bucket},
                                   {QStringLiteral("dfsID"), dfsId},
                                   {QStringLiteral("name"), row[0].toString()},
                                   {QStringLiteral("size"), row[1].toLongLong()},
                                   {QStringLiteral("points"), row[2].toLongLong()},
                                   {QStringLiteral("frames"), row[3].toLongLong()},
                                   {QStringLiteral("format"), QStringLiteral("vscan")},
                                   {QStringLiteral("createdAt"), row[4].toLongLong()}});
}

void listFAPackageInstance(ServiceContext& context, ApiCall& call)
{
    QJsonArray list;
    const auto rows = context.store.query(
        QStringLiteral("SELECT id, name, version, model_code, state FROM fa_packages WHERE user_id = ?1 ORDER BY id"),
        {call.user->id});
    if (rows) {
        for (const auto& row : *rows)
            list.append(QJsonObject{{QStringLiteral("id"), row[0].toLongLong()},
                                    {QStringLiteral("name"), row[1].toString()},
                                    {QStringLiteral("version"), row[2].toString()},
                                    {QStringLiteral("modelCode"), row[3].toString()},
                                    {QStringLiteral("state"), row[4].toString()}});
    }
    replySuccess(call, QJsonObject{{QStringLiteral("total"), list.size()}, {QStringLiteral("list"), list}});
}

void authToken(ServiceContext& context, ApiCall& call)
{
    const QString token = call.arg(QStringLiteral("token")).toString();
    if (token.isEmpty()) {
        replyFailure(call, 400, QStringLiteral("badRequest"), QStringLiteral("parameter \"token\" is required"));
        return;
    }
    const auto rows = context.store.query(
        QStringLiteral("SELECT user_id, expires_at FROM sessions WHERE token_sha256 = ?1 AND expires_at > ?2"),
        {tokenHash(token), QDateTime::currentSecsSinceEpoch()});
    if (!rows || rows->empty()) {
        replySuccess(call, QJsonObject{{QStringLiteral("valid"), false}});
        return;
    }
    replySuccess(call, QJsonObject{{QStringLiteral("valid"), true},
                                   {QStringLiteral("userID"), rows->front()[0].toLongLong()},
                                   {QStringLiteral("expiresAt"), rows->front()[1].toLongLong()}});
}

} // namespace

void registerGeneralService(ServiceContext& context)
{
    using Auth = ApiRouter::Auth;
    ApiRouter& r = context.router;
    ServiceContext* c = &context;
    r.add(QStringLiteral("getUserProfile"), QStringLiteral("POST"), QStringLiteral("/api/v1/user/profile"),
          Auth::Token, [c](ApiCall& call) { getUserProfile(*c, call); });
    r.add(QStringLiteral("getDeviceAction"), QStringLiteral("POST"), QStringLiteral("/api/v1/device/action"),
          Auth::None, [c](ApiCall& call) { getDeviceAction(*c, call); });
    r.add(QStringLiteral("restoreScanFactorySettings"), QStringLiteral("POST"),
          QStringLiteral("/api/v1/device/restore-factory"), Auth::Token,
          [c](ApiCall& call) { restoreScanFactorySettings(*c, call); });
    r.add(QStringLiteral("parseScanPackage"), QStringLiteral("POST"), QStringLiteral("/api/v1/scan/parse-package"),
          Auth::Token, [c](ApiCall& call) { parseScanPackage(*c, call); });
    r.add(QStringLiteral("listFAPackageInstance"), QStringLiteral("GET"), QStringLiteral("/api/v1/scan/fa-packages"),
          Auth::Token, [c](ApiCall& call) { listFAPackageInstance(*c, call); });
    r.add(QStringLiteral("authToken"), QStringLiteral("GET"), QStringLiteral("/api/v1/auth/token"), Auth::None,
          [c](ApiCall& call) { authToken(*c, call); });

    // Test control: gives a device to a user, adding it when new (a VS-200).
    // The broker's permissions follow before the answer leaves.
    context.server.Post("/devcloud/device/owner", [c](const httplib::Request& request, httplib::Response& response) {
        const QJsonObject body = QJsonDocument::fromJson(QByteArray::fromStdString(request.body)).object();
        const QString sn = body.value(QStringLiteral("sn")).toString();
        const qint64 userId = body.value(QStringLiteral("userID")).toVariant().toLongLong();
        static const QRegularExpression serial(QStringLiteral("^[A-Za-z0-9-]{1,64}$"));
        if (!serial.match(sn).hasMatch()
            || c->store.scalar(QStringLiteral("SELECT COUNT(*) FROM users WHERE id = ?1"), {userId}).toLongLong() != 1) {
            writeFailure(response, 400, QStringLiteral("badRequest"),
                         QStringLiteral("\"sn\" (letters, digits, '-') and \"userID\" of a user are required"));
            return;
        }
        c->store.query(QStringLiteral("INSERT INTO devices (sn, user_id, model_code, firmware) VALUES (?1, ?2, "
                                      "'VS-200', '2.4.1') ON CONFLICT(sn) DO UPDATE SET user_id = ?2"),
                       {sn, userId});
        writeJson(response, 200,
                  {{QStringLiteral("status"), QStringLiteral("success")},
                   {QStringLiteral("result"), QJsonObject{{QStringLiteral("sn"), sn}, {QStringLiteral("userID"), userId}}}});
    });
}

} // namespace devcloud
