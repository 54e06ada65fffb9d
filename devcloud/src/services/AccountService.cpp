// User accounts: sign-in and the country list.

#include "Services.h"

#include "Passwords.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <mutex>

namespace devcloud {

namespace {

constexpr qint64 kTokenLifetimeSeconds = 24 * 3600;

// Issues a token for a user; returns the login answer.
QJsonObject issueToken(Store& store, qint64 userId, const QString& name)
{
    const QString token = newToken();
    const qint64 expires = QDateTime::currentSecsSinceEpoch() + kTokenLifetimeSeconds;
    store.query(QStringLiteral("INSERT INTO tokens (token, user_id, expires_at) VALUES (?1, ?2, ?3)"),
                {token, userId, expires});
    return QJsonObject{{QStringLiteral("token"), token},
                       {QStringLiteral("userID"), userId},
                       {QStringLiteral("name"), name},
                       {QStringLiteral("expiresIn"), kTokenLifetimeSeconds}};
}

void userLogin(ServiceContext& context, ApiCall& call)
{
    QString account = call.arg(QStringLiteral("account")).toString();
    if (account.isEmpty())
        account = call.arg(QStringLiteral("email")).toString();
    const QString password = call.arg(QStringLiteral("password")).toString();
    if (account.isEmpty() || password.isEmpty()) {
        replyFailure(call, 400, QStringLiteral("badRequest"), QStringLiteral("\"account\" and \"password\" are required"));
        return;
    }
    const auto rows = context.store.query(
        QStringLiteral("SELECT id, name, password_salt, password_hash FROM users WHERE account = ?1"), {account});
    if (!rows || rows->empty() ||
        !passwordMatches(password, (*rows)[0][2].toByteArray(), (*rows)[0][3].toByteArray())) {
        replyFailure(call, 401, QStringLiteral("wrongCredentials"), QStringLiteral("wrong account or password"));
        return;
    }
    replySuccess(call, issueToken(context.store, (*rows)[0][0].toLongLong(), (*rows)[0][1].toString()));
}

// ISO 3166-1 from Debian's iso-codes, read once.
const QJsonArray& countries()
{
    static QJsonArray list;
    static std::once_flag once;
    std::call_once(once, [] {
        QFile file(QStringLiteral(DEVCLOUD_ISO_CODES_DIR "/iso_3166-1.json"));
        if (!file.open(QIODevice::ReadOnly))
            return;
        const QJsonArray entries =
            QJsonDocument::fromJson(file.readAll()).object().value(QStringLiteral("3166-1")).toArray();
        for (const QJsonValue& entry : entries) {
            const QJsonObject e = entry.toObject();
            list.append(QJsonObject{{QStringLiteral("code"), e.value(QStringLiteral("alpha_2"))},
                                    {QStringLiteral("alpha3"), e.value(QStringLiteral("alpha_3"))},
                                    {QStringLiteral("numeric"), e.value(QStringLiteral("numeric"))},
                                    {QStringLiteral("name"), e.value(QStringLiteral("name"))}});
        }
    });
    return list;
}

void fetchCountries(ServiceContext&, ApiCall& call)
{
    const QJsonArray& list = countries();
    if (list.isEmpty()) {
        replyFailure(call, 503, QStringLiteral("unavailable"),
                     QStringLiteral("country list unavailable (package iso-codes missing)"));
        return;
    }
    replySuccess(call, QJsonObject{{QStringLiteral("total"), list.size()}, {QStringLiteral("countries"), list}});
}

} // namespace

void registerAccountService(ServiceContext& context)
{
    using Auth = ApiRouter::Auth;
    ServiceContext* c = &context;
    context.router.add(QStringLiteral("userLogin"), QStringLiteral("POST"), QStringLiteral("/api/v1/user/login"),
                       Auth::None, [c](ApiCall& call) { userLogin(*c, call); });
    context.router.add(QStringLiteral("fetchCountries"), QStringLiteral("GET"), QStringLiteral("/api/v1/countries"),
                       Auth::None, [c](ApiCall& call) { fetchCountries(*c, call); });
}

} // namespace devcloud
