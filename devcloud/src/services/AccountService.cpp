// SPDX-License-Identifier: MIT
// User accounts: sign-in by password or verification code, countries and
// the caller's country, captchas, user-information checks and privacy texts.

#include "Services.h"

#include "Passwords.h"
#include "image/Captcha.h"

#include <openssl/rand.h>

#include <QRegularExpression>

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <cstdio>
#include <mutex>

namespace devcloud {

namespace {

constexpr qint64 kTokenLifetimeSeconds = 24 * 3600;

// Issues a token for a user; returns the login answer.
QJsonObject issueToken(ServiceContext& context, qint64 userId, const QString& name)
{
    return QJsonObject{{QStringLiteral("token"), context.sessions.issue(userId, kTokenLifetimeSeconds)},
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
    replySuccess(call, issueToken(context, (*rows)[0][0].toLongLong(), (*rows)[0][1].toString()));
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


// ---- verification codes -------------------------------------------------

constexpr qint64 kCodeLifetimeSeconds = 300;
constexpr int kCodeAttempts = 5;

// A dev-only "ttl" argument shortens lifetimes so that tests can see expiry
// without waiting; 0 gives an already expired code or token.
qint64 lifetimeArg(const ApiCall& call, qint64 fallback, qint64 maximum)
{
    const QJsonValue ttl = call.arg(QStringLiteral("ttl"));
    if (ttl.isUndefined() || ttl.isNull())
        return fallback;
    const qint64 value = ttl.isString() ? ttl.toString().toLongLong() : qint64(ttl.toDouble());
    return qBound<qint64>(0, value, maximum);
}

QString sixDigits()
{
    unsigned char bytes[4];
    RAND_bytes(bytes, sizeof bytes);
    const quint32 n = (quint32(bytes[0]) << 24) | (quint32(bytes[1]) << 16) | (quint32(bytes[2]) << 8) | bytes[3];
    return QStringLiteral("%1").arg(n % 1000000, 6, 10, QLatin1Char('0'));
}

void requestCode(ServiceContext& context, ApiCall& call, const QString& account)
{
    if (!context.store.scalar(QStringLiteral("SELECT id FROM users WHERE account = ?1"), {account}).isValid()) {
        replyFailure(call, 404, QStringLiteral("unknownAccount"), QStringLiteral("no account %1").arg(account));
        return;
    }
    const qint64 ttl = lifetimeArg(call, kCodeLifetimeSeconds, 3600);
    const QString code = sixDigits();
    context.store.query(QStringLiteral("INSERT INTO verification_codes (account, code, expires_at, attempts, used) "
                                       "VALUES (?1, ?2, ?3, 0, 0)"),
                        {account, code, QDateTime::currentSecsSinceEpoch() + ttl});
    // No mail or SMS here: the code goes to the log and, for development,
    // into the answer.
    std::fprintf(stderr, "nubra-devcloud: verification code for %s: %s\n", qPrintable(account), qPrintable(code));
    replySuccess(call, QJsonObject{{QStringLiteral("codeSent"), true},
                                   {QStringLiteral("account"), account},
                                   {QStringLiteral("expiresIn"), ttl},
                                   {QStringLiteral("devCode"), code}});
}

void userCodeLogin(ServiceContext& context, ApiCall& call)
{
    const QString account = call.arg(QStringLiteral("account")).toString();
    if (account.isEmpty()) {
        replyFailure(call, 400, QStringLiteral("badRequest"), QStringLiteral("\"account\" is required"));
        return;
    }
    const QString code = call.arg(QStringLiteral("code")).toString();
    if (code.isEmpty()) {
        requestCode(context, call, account);
        return;
    }
    const auto rows = context.store.query(
        QStringLiteral("SELECT rowid, code, expires_at, attempts, used FROM verification_codes WHERE account = ?1 "
                       "ORDER BY rowid DESC LIMIT 1"),
        {account});
    if (!rows || rows->empty()) {
        replyFailure(call, 401, QStringLiteral("noCode"),
                     QStringLiteral("no verification code was requested for %1").arg(account));
        return;
    }
    const auto& row = rows->front();
    const qint64 rowId = row[0].toLongLong();
    if (row[4].toInt() != 0) {
        replyFailure(call, 401, QStringLiteral("codeUsed"),
                     QStringLiteral("verification code already used or locked; request a new one"));
        return;
    }
    if (row[2].toLongLong() <= QDateTime::currentSecsSinceEpoch()) {
        replyFailure(call, 401, QStringLiteral("codeExpired"),
                     QStringLiteral("verification code expired; request a new one"));
        return;
    }
    if (row[1].toString() != code) {
        const int attempts = row[3].toInt() + 1;
        context.store.query(QStringLiteral("UPDATE verification_codes SET attempts = ?1, used = ?2 WHERE rowid = ?3"),
                            {attempts, attempts >= kCodeAttempts ? 1 : 0, rowId});
        replyFailure(call, 401, QStringLiteral("wrongCode"),
                     QStringLiteral("wrong verification code (%1 of %2 attempts)").arg(attempts).arg(kCodeAttempts));
        return;
    }
    context.store.query(QStringLiteral("UPDATE verification_codes SET used = 1 WHERE rowid = ?1"), {rowId});
    const auto user = context.store.query(QStringLiteral("SELECT id, name FROM users WHERE account = ?1"), {account});
    if (!user || user->empty()) {
        replyFailure(call, 404, QStringLiteral("unknownAccount"), QStringLiteral("no account %1").arg(account));
        return;
    }
    replySuccess(call, issueToken(context, (*user)[0][0].toLongLong(), (*user)[0][1].toString()));
}

// ---- the caller's country -----------------------------------------------

constexpr const char* kDefaultCountry = "DE";

QString countryName(const QString& code)
{
    for (const QJsonValue& entry : countries()) {
        const QJsonObject e = entry.toObject();
        if (e.value(QStringLiteral("code")).toString() == code)
            return e.value(QStringLiteral("name")).toString();
    }
    return QString();
}

bool isLocalAddress(const QString& ip)
{
    static const QRegularExpression local(QStringLiteral(
        R"(^(127\.|10\.|192\.168\.|172\.(1[6-9]|2\d|3[01])\.|::1$|::ffff:127\.|fc|fd|fe80:))"),
        QRegularExpression::CaseInsensitiveOption);
    return local.match(ip).hasMatch();
}

// Address prefixes reserved for documentation (RFC 5737, RFC 3849) stand in
// for real geolocation data.
QString countryForAddress(const QString& ip)
{
    static const struct {
        const char* prefix;
        const char* country;
    } table[] = {
        {"192.0.2.", "US"}, {"198.51.100.", "GB"}, {"203.0.113.", "JP"}, {"2001:db8:", "FR"},
    };
    for (const auto& entry : table)
        if (ip.startsWith(QLatin1String(entry.prefix), Qt::CaseInsensitive))
            return QString::fromLatin1(entry.country);
    return QString();
}

void ipCountry(ServiceContext&, ApiCall& call)
{
    QString ip = call.header("X-Forwarded-For").section(QLatin1Char(','), 0, 0).trimmed();
    if (ip.isEmpty())
        ip = QString::fromStdString(call.request.remote_addr);
    QString country;
    QString source;
    if (isLocalAddress(ip)) {
        country = QString::fromLatin1(kDefaultCountry);
        source = QStringLiteral("default");
    } else {
        country = countryForAddress(ip);
        source = QStringLiteral("table");
    }
    if (country.isEmpty()) {
        replyFailure(call, 404, QStringLiteral("unknownAddress"), QStringLiteral("no country known for address %1").arg(ip));
        return;
    }
    replySuccess(call, QJsonObject{{QStringLiteral("ip"), ip},
                                   {QStringLiteral("country"), country},
                                   {QStringLiteral("countryName"), countryName(country)},
                                   {QStringLiteral("source"), source}});
}

// ---- captcha and user-information checks --------------------------------

constexpr qint64 kCaptchaLifetimeSeconds = 120;

void captcha(ServiceContext& context, ApiCall& call)
{
    const CaptchaImage image = makeCaptcha(5);
    if (image.png.isEmpty()) {
        replyFailure(call, 500, QStringLiteral("internal"), QStringLiteral("captcha image could not be drawn"));
        return;
    }
    const QString id = newToken();
    const qint64 ttl = lifetimeArg(call, kCaptchaLifetimeSeconds, 3600);
    context.store.query(QStringLiteral("INSERT INTO captchas (id, answer, expires_at) VALUES (?1, ?2, ?3)"),
                        {id, image.text, QDateTime::currentSecsSinceEpoch() + ttl});
    replySuccess(call, QJsonObject{{QStringLiteral("captchaId"), id},
                                   {QStringLiteral("mimeType"), QStringLiteral("image/png")},
                                   {QStringLiteral("width"), image.width},
                                   {QStringLiteral("height"), image.height},
                                   {QStringLiteral("length"), image.text.size()},
                                   {QStringLiteral("expiresIn"), ttl},
                                   {QStringLiteral("image"), QString::fromLatin1(image.png.toBase64())}});
}

QJsonObject verdict(bool valid, const QString& reason)
{
    QJsonObject v{{QStringLiteral("valid"), valid}};
    if (!reason.isEmpty())
        v.insert(QStringLiteral("reason"), reason);
    return v;
}

// Checks and consumes a captcha answer (one try per captcha).
QJsonObject checkCaptcha(Store& store, const QString& id, const QString& text)
{
    const auto rows = store.query(QStringLiteral("SELECT answer, expires_at FROM captchas WHERE id = ?1"), {id});
    if (!rows || rows->empty())
        return verdict(false, QStringLiteral("unknown or already used captcha"));
    store.query(QStringLiteral("DELETE FROM captchas WHERE id = ?1"), {id});
    if (rows->front()[1].toLongLong() <= QDateTime::currentSecsSinceEpoch())
        return verdict(false, QStringLiteral("captcha expired"));
    if (rows->front()[0].toString().compare(text.trimmed(), Qt::CaseInsensitive) != 0)
        return verdict(false, QStringLiteral("captcha text does not match"));
    return verdict(true, QString());
}

void userInfoValid(ServiceContext& context, ApiCall& call)
{
    QJsonObject fields;
    const QString account = call.arg(QStringLiteral("account")).toString();
    if (!account.isEmpty()) {
        static const QRegularExpression email(QStringLiteral(R"(^[^@\s]+@[^@\s]+\.[^@\s]+$)"));
        QJsonObject v = email.match(account).hasMatch() ? verdict(true, QString())
                                                        : verdict(false, QStringLiteral("not an e-mail address"));
        v.insert(QStringLiteral("registered"),
                 context.store.scalar(QStringLiteral("SELECT id FROM users WHERE account = ?1"), {account}).isValid());
        fields.insert(QStringLiteral("account"), v);
    }
    const QString phone = call.arg(QStringLiteral("phone")).toString();
    if (!phone.isEmpty()) {
        static const QRegularExpression e164(QStringLiteral(R"(^\+[1-9]\d{7,14}$)"));
        QString digits = phone;
        digits.remove(QLatin1Char(' ')).remove(QLatin1Char('-'));
        fields.insert(QStringLiteral("phone"),
                      e164.match(digits).hasMatch()
                          ? verdict(true, QString())
                          : verdict(false, QStringLiteral("expected + and 8 to 15 digits (E.164)")));
    }
    if (call.body.contains(QStringLiteral("name")) || call.query.contains(QStringLiteral("name"))) {
        const QString name = call.arg(QStringLiteral("name")).toString().trimmed();
        fields.insert(QStringLiteral("name"), name.isEmpty() || name.size() > 64
                                                  ? verdict(false, QStringLiteral("1 to 64 characters"))
                                                  : verdict(true, QString()));
    }
    const QString password = call.arg(QStringLiteral("password")).toString();
    if (!password.isEmpty()) {
        const bool letters = password.contains(QRegularExpression(QStringLiteral("[A-Za-z]")));
        const bool digits = password.contains(QRegularExpression(QStringLiteral("[0-9]")));
        fields.insert(QStringLiteral("password"),
                      password.size() >= 8 && letters && digits
                          ? verdict(true, QString())
                          : verdict(false, QStringLiteral("at least 8 characters with letters and digits")));
    }
    const QString captchaId = call.arg(QStringLiteral("captchaId")).toString();
    if (!captchaId.isEmpty())
        fields.insert(QStringLiteral("captcha"),
                      checkCaptcha(context.store, captchaId, call.arg(QStringLiteral("captchaText")).toString()));
    if (fields.isEmpty()) {
        replyFailure(call, 400, QStringLiteral("badRequest"),
                     QStringLiteral("give at least one of account, phone, name, password, captchaId"));
        return;
    }
    bool valid = true;
    for (const QJsonValue& v : fields)
        valid = valid && v.toObject().value(QStringLiteral("valid")).toBool();
    replySuccess(call, QJsonObject{{QStringLiteral("valid"), valid}, {QStringLiteral("fields"), fields}});
}

// ---- privacy texts --------------------------------------------------------

void getOEMPrivacyColorInfoByTypeV2(ServiceContext&, ApiCall& call)
{
    struct Entry {
        const char* type;
        const char* title;
        const char* primary;
        const char* accent;
    };
    static const Entry entries[] = {
        {"privacy", "Privacy Policy", "#1F6FEB", "#F2A33A"},
        {"agreement", "User Agreement", "#2DA44E", "#F2A33A"},
        {"cloud", "Cloud Storage Terms", "#8250DF", "#1F6FEB"},
    };
    QString type = call.arg(QStringLiteral("type")).toString();
    if (type.isEmpty())
        type = QStringLiteral("privacy");
    const QString oem = call.arg(QStringLiteral("oem")).toString().isEmpty() ? QStringLiteral("vorn")
                                                                              : call.arg(QStringLiteral("oem")).toString();
    for (const Entry& e : entries) {
        if (type != QLatin1String(e.type))
            continue;
        replySuccess(call, QJsonObject{{QStringLiteral("type"), type},
                                       {QStringLiteral("oem"), oem},
                                       {QStringLiteral("version"), QStringLiteral("2026.03")},
                                       {QStringLiteral("title"), QString::fromLatin1(e.title)},
                                       {QStringLiteral("url"), QStringLiteral("https://legal.vorn.example/%1/%2")
                                                                    .arg(oem, type)},
                                       {QStringLiteral("colors"),
                                        QJsonObject{{QStringLiteral("primary"), QString::fromLatin1(e.primary)},
                                                    {QStringLiteral("accent"), QString::fromLatin1(e.accent)},
                                                    {QStringLiteral("background"), QStringLiteral("#FFFFFF")},
                                                    {QStringLiteral("text"), QStringLiteral("#1F2328")}}}});
        return;
    }
    replyFailure(call, 404, QStringLiteral("unknownType"),
                 QStringLiteral("no privacy information of type \"%1\" (privacy, agreement, cloud)").arg(type));
}

void factoryPrivacyView(ServiceContext&, ApiCall& call)
{
    struct Text {
        const char* lang;
        const char* title;
        const char* body;
    };
    static const Text texts[] = {
        {"en", "Scanner privacy notice",
         "<h1>Scanner privacy notice</h1><p>Your scanner sends its serial number, model and firmware version to "
         "the Vorn cloud when it checks for updates. Scans stay on your computer unless you upload them.</p>"},
        {"de", "Datenschutzhinweis zum Scanner",
         "<h1>Datenschutzhinweis zum Scanner</h1><p>Ihr Scanner sendet Seriennummer, Modell und Firmware-Version an "
         "die Vorn-Cloud, wenn er nach Updates sucht. Scans bleiben auf Ihrem Rechner, solange Sie sie nicht "
         "hochladen.</p>"},
    };
    QString lang = call.arg(QStringLiteral("lang")).toString();
    if (lang.isEmpty())
        lang = QStringLiteral("en");
    const Text* chosen = &texts[0];
    for (const Text& t : texts)
        if (lang == QLatin1String(t.lang))
            chosen = &t;
    replySuccess(call, QJsonObject{{QStringLiteral("lang"), QString::fromLatin1(chosen->lang)},
                                   {QStringLiteral("requestedLang"), lang},
                                   {QStringLiteral("fallback"), lang != QLatin1String(chosen->lang)},
                                   {QStringLiteral("version"), QStringLiteral("2026.01")},
                                   {QStringLiteral("title"), QString::fromUtf8(chosen->title)},
                                   {QStringLiteral("content"), QString::fromUtf8(chosen->body)}});
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

    context.store.execScript(QStringLiteral(R"sql(
CREATE TABLE IF NOT EXISTS verification_codes (
  account TEXT NOT NULL,
  code TEXT NOT NULL,
  expires_at INTEGER NOT NULL,
  attempts INTEGER NOT NULL DEFAULT 0,
  used INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE IF NOT EXISTS captchas (
  id TEXT PRIMARY KEY,
  answer TEXT NOT NULL,
  expires_at INTEGER NOT NULL
);
)sql"));
    const struct {
        const char* name;
        const char* method;
        const char* path;
        void (*handler)(ServiceContext&, ApiCall&);
    } routes[] = {
        {"userCodeLogin", "POST", "/api/v1/user/code-login", userCodeLogin},
        {"ipCountry", "GET", "/api/v1/ip/country", ipCountry},
        {"captcha", "GET", "/api/v1/captcha", captcha},
        {"userInfoValid", "POST", "/api/v1/user/info-valid", userInfoValid},
        {"getOEMPrivacyColorInfoByTypeV2", "GET", "/api/v2/privacy/oem-color-info", getOEMPrivacyColorInfoByTypeV2},
        {"factoryPrivacyView", "GET", "/api/v1/privacy/factory-view", factoryPrivacyView},
    };
    for (const auto& route : routes) {
        auto handler = route.handler;
        context.router.add(QString::fromLatin1(route.name), QString::fromLatin1(route.method),
                           QString::fromLatin1(route.path), Auth::None,
                           [c, handler](ApiCall& call) { handler(*c, call); });
    }
}

} // namespace devcloud
