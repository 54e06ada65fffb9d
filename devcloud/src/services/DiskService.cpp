// SPDX-License-Identifier: MIT
// Cloud disk: spaces with quotas, the user's front space, upload tokens that
// expire, and file uploads streamed to disk with their SHA-256.
//
// Uploads: PUT or POST /api/v1/disk/upload?name=FILE with the raw file as
// body and the upload token (from "sdkDynamicEncodeToken") in the
// "X-Upload-Token" header; "X-Content-Sha256" (hex), when given, must match
// the bytes received. Blobs are stored once per content under
// DATA/disk/blobs/<sha256>; every upload adds a file entry to the token's
// space. "checkCloudSpaceFile" answers whether a space already holds a file
// of a given size and SHA-256 (or, without a digest, how many files of that
// size it holds), so that clients can skip the upload.

#include "Services.h"

#include "Passwords.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

#include <cstdio>
#include <memory>

namespace devcloud {

namespace {

constexpr qint64 kUploadTokenLifetimeSeconds = 3600;
constexpr qint64 kMaxUploadTokenLifetimeSeconds = 24 * 3600;
const QString kUploadPath = QStringLiteral("/api/v1/disk/upload");

struct SeedSpace {
    const char* name;
    qint64 quotaBytes;
    bool isDefault;
};
// Every user starts with these; the small sandbox makes quota errors easy
// to reach from tests and demos.
const SeedSpace kSeedSpaces[] = {
    {"Personal", 10LL * 1024 * 1024 * 1024, true},
    {"Shared Scans", 2LL * 1024 * 1024 * 1024, false},
    {"Sandbox", 1024 * 1024, false},
};

bool createDiskSchema(Store& store)
{
    return store.execScript(QStringLiteral(R"sql(
CREATE TABLE IF NOT EXISTS spaces (
  id INTEGER PRIMARY KEY,
  user_id INTEGER NOT NULL REFERENCES users(id),
  name TEXT NOT NULL,
  quota_bytes INTEGER NOT NULL,
  is_default INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE IF NOT EXISTS front_spaces (
  user_id INTEGER PRIMARY KEY REFERENCES users(id),
  space_id INTEGER NOT NULL REFERENCES spaces(id)
);
-- Upload tokens are kept as hashes only; "upload_tokens" held them in clear.
DROP TABLE IF EXISTS upload_tokens;
CREATE TABLE IF NOT EXISTS upload_grants (
  token_sha256 TEXT PRIMARY KEY,
  user_id INTEGER NOT NULL REFERENCES users(id),
  space_id INTEGER NOT NULL REFERENCES spaces(id),
  expires_at INTEGER NOT NULL
);
CREATE TABLE IF NOT EXISTS disk_files (
  id INTEGER PRIMARY KEY,
  space_id INTEGER NOT NULL REFERENCES spaces(id),
  name TEXT NOT NULL,
  size INTEGER NOT NULL,
  sha256 TEXT NOT NULL,
  created_at INTEGER NOT NULL
);
CREATE INDEX IF NOT EXISTS disk_files_content ON disk_files (space_id, size, sha256);
)sql"));
}

void seedSpaces(Store& store)
{
    const auto users = store.query(
        QStringLiteral("SELECT id FROM users WHERE id NOT IN (SELECT DISTINCT user_id FROM spaces) ORDER BY id"));
    if (!users)
        return;
    for (const auto& user : *users) {
        for (const SeedSpace& s : kSeedSpaces)
            store.query(QStringLiteral("INSERT INTO spaces (user_id, name, quota_bytes, is_default) "
                                       "VALUES (?1, ?2, ?3, ?4)"),
                        {user[0], QString::fromLatin1(s.name), s.quotaBytes, s.isDefault ? 1 : 0});
    }
}

qint64 usedBytes(Store& store, qint64 spaceId)
{
    return store.scalar(QStringLiteral("SELECT COALESCE(SUM(size), 0) FROM disk_files WHERE space_id = ?1"), {spaceId})
        .toLongLong();
}

std::optional<QJsonObject> spaceInfo(Store& store, qint64 spaceId)
{
    const auto rows = store.query(
        QStringLiteral("SELECT id, name, quota_bytes, is_default, "
                       "(SELECT COUNT(*) FROM disk_files WHERE space_id = spaces.id) FROM spaces WHERE id = ?1"),
        {spaceId});
    if (!rows || rows->empty())
        return std::nullopt;
    const auto& row = rows->front();
    const qint64 quota = row[2].toLongLong();
    const qint64 used = usedBytes(store, spaceId);
    return QJsonObject{{QStringLiteral("spaceId"), row[0].toLongLong()},
                       {QStringLiteral("name"), row[1].toString()},
                       {QStringLiteral("quotaBytes"), quota},
                       {QStringLiteral("usedBytes"), used},
                       {QStringLiteral("freeBytes"), qMax<qint64>(0, quota - used)},
                       {QStringLiteral("fileCount"), row[4].toLongLong()},
                       {QStringLiteral("isDefault"), row[3].toInt() != 0}};
}

qint64 defaultSpaceOf(Store& store, qint64 userId)
{
    return store
        .scalar(QStringLiteral("SELECT id FROM spaces WHERE user_id = ?1 ORDER BY is_default DESC, id LIMIT 1"),
                {userId})
        .toLongLong();
}

qint64 frontSpaceOf(Store& store, qint64 userId)
{
    const QVariant front =
        store.scalar(QStringLiteral("SELECT space_id FROM front_spaces WHERE user_id = ?1"), {userId});
    return front.isValid() ? front.toLongLong() : defaultSpaceOf(store, userId);
}

qint64 integerArg(const QJsonValue& value, qint64 fallback)
{
    if (value.isUndefined() || value.isNull())
        return fallback;
    if (value.isString()) {
        bool ok = false;
        const qint64 n = value.toString().toLongLong(&ok);
        return ok ? n : fallback;
    }
    return value.isDouble() ? qint64(value.toDouble()) : fallback;
}

// Resolves the "spaceId" argument (default: the front space) and checks that
// it belongs to the caller; answers the failure itself.
std::optional<qint64> ownedSpace(ServiceContext& context, ApiCall& call)
{
    const qint64 spaceId = integerArg(call.arg(QStringLiteral("spaceId")), frontSpaceOf(context.store, call.user->id));
    const QVariant owner = context.store.scalar(QStringLiteral("SELECT user_id FROM spaces WHERE id = ?1"), {spaceId});
    if (!owner.isValid()) {
        replyFailure(call, 404, QStringLiteral("unknownSpace"), QStringLiteral("no space %1").arg(spaceId));
        return std::nullopt;
    }
    if (owner.toLongLong() != call.user->id) {
        replyFailure(call, 403, QStringLiteral("forbidden"), QStringLiteral("space %1 belongs to another user").arg(spaceId));
        return std::nullopt;
    }
    return spaceId;
}

void fetchFrontSpace(ServiceContext& context, ApiCall& call)
{
    QJsonArray spaces;
    const auto rows = context.store.query(QStringLiteral("SELECT id FROM spaces WHERE user_id = ?1 ORDER BY id"),
                                          {call.user->id});
    if (rows)
        for (const auto& row : *rows)
            if (auto info = spaceInfo(context.store, row[0].toLongLong()))
                spaces.append(*info);
    const auto front = spaceInfo(context.store, frontSpaceOf(context.store, call.user->id));
    if (!front) {
        replyFailure(call, 404, QStringLiteral("noSpace"), QStringLiteral("the user has no cloud space"));
        return;
    }
    replySuccess(call, QJsonObject{{QStringLiteral("frontSpace"), *front}, {QStringLiteral("spaces"), spaces}});
}

void getDefaultSpaceInfo(ServiceContext& context, ApiCall& call)
{
    const auto info = spaceInfo(context.store, defaultSpaceOf(context.store, call.user->id));
    if (!info) {
        replyFailure(call, 404, QStringLiteral("noSpace"), QStringLiteral("the user has no cloud space"));
        return;
    }
    replySuccess(call, *info);
}

void changeSpace(ServiceContext& context, ApiCall& call)
{
    if (integerArg(call.arg(QStringLiteral("spaceId")), -1) < 0) {
        replyFailure(call, 400, QStringLiteral("badRequest"), QStringLiteral("\"spaceId\" is required"));
        return;
    }
    const auto spaceId = ownedSpace(context, call);
    if (!spaceId)
        return;
    context.store.query(QStringLiteral("INSERT OR REPLACE INTO front_spaces (user_id, space_id) VALUES (?1, ?2)"),
                        {call.user->id, *spaceId});
    replySuccess(call, QJsonObject{{QStringLiteral("frontSpace"), *spaceInfo(context.store, *spaceId)}});
}

void sdkDynamicEncodeToken(ServiceContext& context, ApiCall& call)
{
    const auto spaceId = ownedSpace(context, call);
    if (!spaceId)
        return;
    // "ttl" (seconds) lets tests get short-lived or already expired tokens.
    const qint64 ttl = qBound<qint64>(0, integerArg(call.arg(QStringLiteral("ttl")), kUploadTokenLifetimeSeconds),
                                      kMaxUploadTokenLifetimeSeconds);
    const QString token = newToken();
    const qint64 expiresAt = QDateTime::currentSecsSinceEpoch() + ttl;
    context.store.query(
        QStringLiteral("INSERT INTO upload_grants (token_sha256, user_id, space_id, expires_at) VALUES (?1, ?2, ?3, ?4)"),
        {tokenHash(token), call.user->id, *spaceId, expiresAt});
    replySuccess(call, QJsonObject{{QStringLiteral("uploadToken"), token},
                                   {QStringLiteral("spaceId"), *spaceId},
                                   {QStringLiteral("expiresIn"), ttl},
                                   {QStringLiteral("expiresAt"), expiresAt},
                                   {QStringLiteral("uploadPath"), kUploadPath},
                                   {QStringLiteral("uploadUrl"), context.baseUrl + kUploadPath}});
}

struct UploadGrant {
    qint64 userId = 0;
    qint64 spaceId = 0;
    int httpStatus = 0; // non-zero: refused
    QString code;
    QString message;
};

UploadGrant checkUploadToken(Store& store, const QString& token)
{
    UploadGrant grant;
    if (token.isEmpty()) {
        grant = {0, 0, 401, QStringLiteral("unauthorized"),
                 QStringLiteral("missing upload token (header X-Upload-Token; get one with sdkDynamicEncodeToken)")};
        return grant;
    }
    const auto rows =
        store.query(QStringLiteral("SELECT user_id, space_id, expires_at FROM upload_grants WHERE token_sha256 = ?1"),
                    {tokenHash(token)});
    if (!rows || rows->empty()) {
        grant = {0, 0, 401, QStringLiteral("unauthorized"), QStringLiteral("unknown upload token")};
        return grant;
    }
    const auto& row = rows->front();
    if (row[2].toLongLong() <= QDateTime::currentSecsSinceEpoch()) {
        grant = {0, 0, 401, QStringLiteral("tokenExpired"),
                 QStringLiteral("upload token expired; get a new one with sdkDynamicEncodeToken")};
        return grant;
    }
    grant.userId = row[0].toLongLong();
    grant.spaceId = row[1].toLongLong();
    return grant;
}

void checkCloudSpaceFile(ServiceContext& context, ApiCall& call)
{
    QString token = call.header("X-Upload-Token");
    if (token.isEmpty())
        token = call.arg(QStringLiteral("uploadToken")).toString();
    const UploadGrant grant = checkUploadToken(context.store, token);
    if (grant.httpStatus) {
        replyFailure(call, grant.httpStatus, grant.code, grant.message);
        return;
    }
    const qint64 expectedSpace = integerArg(call.arg(QStringLiteral("spaceId")), -1);
    if (expectedSpace >= 0 && expectedSpace != grant.spaceId) {
        replyFailure(call, 403, QStringLiteral("wrongSpace"),
                     QStringLiteral("the upload token is for space %1, not %2").arg(grant.spaceId).arg(expectedSpace));
        return;
    }
    const qint64 size = integerArg(call.arg(QStringLiteral("size")), -1);
    const QString sha = call.arg(QStringLiteral("sha256")).toString().toLower();
    if (size < 0 || (!sha.isEmpty() && sha.size() != 64)) {
        replyFailure(call, 400, QStringLiteral("badRequest"),
                     QStringLiteral("\"size\" (bytes) is required; \"sha256\", when given, has 64 hex digits"));
        return;
    }
    // Without a digest only the size can be compared: a client that hears
    // "no file of that size" may send at once and hash while sending.
    const qint64 sameSize =
        context.store
            .scalar(QStringLiteral("SELECT COUNT(*) FROM disk_files WHERE space_id = ?1 AND size = ?2"),
                    {grant.spaceId, size})
            .toLongLong();
    if (sha.isEmpty()) {
        replySuccess(call, QJsonObject{{QStringLiteral("exists"), false},
                                       {QStringLiteral("sameSize"), sameSize},
                                       {QStringLiteral("space"), *spaceInfo(context.store, grant.spaceId)}});
        return;
    }
    const QVariant fileId = context.store.scalar(
        QStringLiteral("SELECT id FROM disk_files WHERE space_id = ?1 AND size = ?2 AND sha256 = ?3 LIMIT 1"),
        {grant.spaceId, size, sha});
    QJsonObject result{{QStringLiteral("exists"), fileId.isValid()},
                       {QStringLiteral("sameSize"), sameSize},
                       {QStringLiteral("space"), *spaceInfo(context.store, grant.spaceId)}};
    if (fileId.isValid())
        result.insert(QStringLiteral("fileId"), fileId.toLongLong());
    replySuccess(call, result);
}

QJsonObject failure(const QString& code, const QString& message)
{
    return {{QStringLiteral("status"), QStringLiteral("failure")},
            {QStringLiteral("code"), code},
            {QStringLiteral("message"), message}};
}

// Reads the rest of a request body into nowhere, so that a refused upload
// leaves the keep-alive connection usable.
void drain(const httplib::ContentReader& reader)
{
    reader([](const char*, size_t) { return true; });
}

QString safeFileName(const std::string& raw)
{
    QString name = QFileInfo(QString::fromStdString(raw)).fileName().trimmed();
    name.remove(QLatin1Char('\0'));
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        name = QStringLiteral("upload.bin");
    return name.left(255);
}

void upload(ServiceContext& context, const httplib::Request& request, httplib::Response& response,
            const httplib::ContentReader& reader)
{
    if (request.is_multipart_form_data()) {
        drain(reader);
        writeJson(response, 415,
                  failure(QStringLiteral("unsupportedMediaType"), QStringLiteral("send the file as the raw body")));
        return;
    }
    std::string token = request.get_header_value("X-Upload-Token");
    if (token.empty())
        token = request.get_param_value("uploadToken");
    const UploadGrant grant = checkUploadToken(context.store, QString::fromStdString(token));
    if (grant.httpStatus) {
        drain(reader);
        writeJson(response, grant.httpStatus, failure(grant.code, grant.message));
        return;
    }
    if (request.has_param("spaceId")) {
        const qint64 expectedSpace = QByteArray::fromStdString(request.get_param_value("spaceId")).toLongLong();
        if (expectedSpace != grant.spaceId) {
            drain(reader);
            writeJson(response, 403,
                      failure(QStringLiteral("wrongSpace"), QStringLiteral("the upload token is for space %1, not %2")
                                                                .arg(grant.spaceId)
                                                                .arg(expectedSpace)));
            return;
        }
    }
    const QString name = safeFileName(request.get_param_value("name"));
    const QString expectedSha = QString::fromStdString(request.get_header_value("X-Content-Sha256")).toLower();
    const qint64 declared =
        request.has_header("Content-Length") ? QByteArray::fromStdString(request.get_header_value("Content-Length")).toLongLong() : -1;
    const auto space = spaceInfo(context.store, grant.spaceId);
    const qint64 freeBytes = space ? space->value(QStringLiteral("freeBytes")).toVariant().toLongLong() : 0;
    const auto overQuota = [&](qint64 bytes) {
        return failure(QStringLiteral("overQuota"),
                       QStringLiteral("upload of %1 bytes exceeds the free space of %2 bytes in space \"%3\"")
                           .arg(bytes)
                           .arg(freeBytes)
                           .arg(space ? space->value(QStringLiteral("name")).toString() : QString()));
    };
    if (declared > freeBytes) {
        drain(reader);
        writeJson(response, 413, overQuota(declared));
        return;
    }

    const QString incoming = context.dataDir + QStringLiteral("/disk/incoming");
    const QString blobs = context.dataDir + QStringLiteral("/disk/blobs");
    QDir().mkpath(incoming);
    QDir().mkpath(blobs);
    const QString partPath = incoming + QStringLiteral("/%1.part").arg(newToken());
    std::FILE* file = std::fopen(QFile::encodeName(partPath).constData(), "wb");
    if (!file) {
        drain(reader);
        writeJson(response, 507, failure(QStringLiteral("storageError"), QStringLiteral("cannot create upload file")));
        return;
    }
    std::setvbuf(file, nullptr, _IOFBF, 1 << 20);
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> sha(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    EVP_DigestInit_ex(sha.get(), EVP_sha256(), nullptr);

    qint64 received = 0;
    bool writeFailed = false;
    // Keeps reading past a problem (discarding) so that the answer reaches
    // the client on a connection in a known state.
    const bool complete = reader([&](const char* data, size_t length) {
        received += qint64(length);
        if (writeFailed || received > freeBytes)
            return true;
        if (std::fwrite(data, 1, length, file) != length)
            writeFailed = true;
        EVP_DigestUpdate(sha.get(), data, length);
        return true;
    });
    const bool closed = std::fclose(file) == 0;

    const auto discard = [&](int status, const QJsonObject& answer) {
        QFile::remove(partPath);
        writeJson(response, status, answer);
    };
    if (!complete || (declared >= 0 && received != declared)) {
        discard(400, failure(QStringLiteral("incomplete"),
                             QStringLiteral("upload ended after %1 of %2 bytes").arg(received).arg(declared)));
        return;
    }
    if (received > freeBytes) {
        discard(413, overQuota(received));
        return;
    }
    if (writeFailed || !closed) {
        discard(507, failure(QStringLiteral("storageError"), QStringLiteral("cannot write the upload to disk")));
        return;
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLength = 0;
    EVP_DigestFinal_ex(sha.get(), digest, &digestLength);
    const QString actualSha =
        QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(digest), int(digestLength)).toHex());
    if (!expectedSha.isEmpty() && expectedSha != actualSha) {
        discard(422, failure(QStringLiteral("checksumMismatch"),
                             QStringLiteral("received bytes have SHA-256 %1, expected %2").arg(actualSha, expectedSha)));
        return;
    }

    // Content-addressed storage: the same bytes are kept once.
    const QString blobPath = blobs + QLatin1Char('/') + actualSha;
    bool deduplicated = false;
    if (QFileInfo::exists(blobPath) && QFileInfo(blobPath).size() == received) {
        QFile::remove(partPath);
        deduplicated = true;
    } else {
        QFile::remove(blobPath);
        if (!QFile::rename(partPath, blobPath)) {
            discard(507, failure(QStringLiteral("storageError"), QStringLiteral("cannot store the upload")));
            return;
        }
    }
    // The quota is checked again under the store's lock: parallel uploads
    // into one space must not overrun it together.
    const qint64 fileId = context.store.transaction([&]() -> qint64 {
        const qint64 quota = context.store.scalar(QStringLiteral("SELECT quota_bytes FROM spaces WHERE id = ?1"),
                                                  {grant.spaceId})
                                 .toLongLong();
        if (usedBytes(context.store, grant.spaceId) + received > quota)
            return -1;
        context.store.query(QStringLiteral("INSERT INTO disk_files (space_id, name, size, sha256, created_at) "
                                           "VALUES (?1, ?2, ?3, ?4, ?5)"),
                            {grant.spaceId, name, received, actualSha, QDateTime::currentSecsSinceEpoch()});
        return context.store.lastInsertId();
    });
    if (fileId < 0) {
        writeJson(response, 413, overQuota(received));
        return;
    }
    writeJson(response, 200,
              {{QStringLiteral("status"), QStringLiteral("success")},
               {QStringLiteral("result"),
                QJsonObject{{QStringLiteral("fileId"), fileId},
                            {QStringLiteral("name"), name},
                            {QStringLiteral("size"), received},
                            {QStringLiteral("sha256"), actualSha},
                            {QStringLiteral("spaceId"), grant.spaceId},
                            {QStringLiteral("deduplicated"), deduplicated}}}});
}

} // namespace

void registerDiskService(ServiceContext& context)
{
    using Auth = ApiRouter::Auth;
    createDiskSchema(context.store);
    seedSpaces(context.store);

    ServiceContext* c = &context;
    ApiRouter& r = context.router;
    r.add(QStringLiteral("fetchFrontSpace"), QStringLiteral("POST"), QStringLiteral("/api/v1/disk/front-space"),
          Auth::Token, [c](ApiCall& call) { fetchFrontSpace(*c, call); });
    r.add(QStringLiteral("getDefaultSpaceInfo"), QStringLiteral("POST"), QStringLiteral("/api/v1/disk/default-space"),
          Auth::Token, [c](ApiCall& call) { getDefaultSpaceInfo(*c, call); });
    r.add(QStringLiteral("sdkDynamicEncodeToken"), QStringLiteral("POST"), QStringLiteral("/api/v1/disk/upload-token"),
          Auth::Token, [c](ApiCall& call) { sdkDynamicEncodeToken(*c, call); });
    r.add(QStringLiteral("changeSpace"), QStringLiteral("POST"), QStringLiteral("/api/v1/disk/change-space"),
          Auth::Token, [c](ApiCall& call) { changeSpace(*c, call); });
    // The upload token authorises this one, not the user token.
    r.add(QStringLiteral("checkCloudSpaceFile"), QStringLiteral("POST"), QStringLiteral("/api/v1/disk/file-exists"),
          Auth::None, [c](ApiCall& call) { checkCloudSpaceFile(*c, call); });

    const std::string uploadPath = kUploadPath.toStdString();
    auto uploadHandler = [c](const httplib::Request& request, httplib::Response& response,
                             const httplib::ContentReader& reader) { upload(*c, request, response, reader); };
    context.server.Put(uploadPath, uploadHandler);
    context.server.Post(uploadPath, uploadHandler);
    context.router.markStreamed(uploadPath);

    context.configSections.insert(QStringLiteral("disk"),
                                  QJsonObject{{QStringLiteral("uploadPath"), kUploadPath},
                                              {QStringLiteral("existsRequest"), QStringLiteral("checkCloudSpaceFile")}});
}

} // namespace devcloud
