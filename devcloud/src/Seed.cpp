// SPDX-License-Identifier: MIT
#include "Seed.h"

#include "Passwords.h"
#include "Store.h"

#include <QDateTime>

namespace devcloud {

bool createSchema(Store& store, QString* error)
{
    return store.execScript(QStringLiteral(R"sql(
CREATE TABLE IF NOT EXISTS users (
  id INTEGER PRIMARY KEY,
  account TEXT NOT NULL UNIQUE,
  name TEXT NOT NULL,
  phone TEXT NOT NULL DEFAULT '',
  country TEXT NOT NULL DEFAULT '',
  password_salt BLOB NOT NULL,
  password_hash BLOB NOT NULL,
  created_at INTEGER NOT NULL
);
-- Sign-in tokens are kept as hashes only (tokenHash); "tokens" held them in
-- clear and is dropped from databases made before.
DROP TABLE IF EXISTS tokens;
CREATE TABLE IF NOT EXISTS sessions (
  token_sha256 TEXT PRIMARY KEY,
  user_id INTEGER NOT NULL REFERENCES users(id),
  expires_at INTEGER NOT NULL
);
CREATE TABLE IF NOT EXISTS devices (
  sn TEXT PRIMARY KEY,
  user_id INTEGER NOT NULL REFERENCES users(id),
  model_code TEXT NOT NULL,
  firmware TEXT NOT NULL,
  state TEXT NOT NULL DEFAULT 'idle',
  factory_resets INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE IF NOT EXISTS scan_packages (
  id INTEGER PRIMARY KEY,
  user_id INTEGER NOT NULL REFERENCES users(id),
  sn TEXT NOT NULL,
  bucket TEXT NOT NULL,
  dfs_id TEXT NOT NULL,
  name TEXT NOT NULL,
  size INTEGER NOT NULL,
  points INTEGER NOT NULL,
  frames INTEGER NOT NULL,
  created_at INTEGER NOT NULL,
  UNIQUE(bucket, dfs_id)
);
CREATE TABLE IF NOT EXISTS fa_packages (
  id INTEGER PRIMARY KEY,
  user_id INTEGER NOT NULL REFERENCES users(id),
  name TEXT NOT NULL,
  version TEXT NOT NULL,
  model_code TEXT NOT NULL,
  state TEXT NOT NULL
);
)sql"),
                            error);
}

bool seedDemoData(Store& store, QString* error)
{
    if (store.scalar(QStringLiteral("SELECT COUNT(*) FROM users")).toLongLong() > 0)
        return true;
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    struct SeedUser {
        qint64 id;
        const char* account;
        const char* name;
        const char* phone;
        const char* country;
        const char* password;
    };
    const SeedUser users[] = {
        {kDemoUserId, kDemoAccount, "Demo User", "+49 30 1234567", "DE", kDemoPassword},
        {1002, "alice@vorn.example", "Alice Marsh", "+44 20 7946 0018", "GB", "alice-pass"},
    };
    for (const SeedUser& u : users) {
        const QByteArray salt = newSalt();
        if (!store.query(QStringLiteral("INSERT INTO users (id, account, name, phone, country, password_salt, "
                                        "password_hash, created_at) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)"),
                         {u.id, QString::fromUtf8(u.account), QString::fromUtf8(u.name), QString::fromUtf8(u.phone),
                          QString::fromUtf8(u.country), salt, hashPassword(QString::fromUtf8(u.password), salt), now},
                         error))
            return false;
    }
    const QVariantList devices[] = {
        {QString::fromLatin1(kDemoDeviceSn), kDemoUserId, QStringLiteral("VS-200"), QStringLiteral("2.4.1")},
        {QStringLiteral("VS2024000456"), kDemoUserId, QStringLiteral("VS-300 Pro"), QStringLiteral("3.1.0")},
        {QStringLiteral("VS2023009876"), 1002, QStringLiteral("VS-200"), QStringLiteral("2.3.7")},
    };
    for (const QVariantList& d : devices) {
        if (!store.query(QStringLiteral("INSERT INTO devices (sn, user_id, model_code, firmware) VALUES (?1, ?2, ?3, ?4)"),
                         d, error))
            return false;
    }
    const QVariantList packages[] = {
        {kDemoUserId, QString::fromLatin1(kDemoDeviceSn), QStringLiteral("scans-eu"), QStringLiteral("dfs-7f3a9c01"),
         QStringLiteral("turbine-blade.vscan"), 48211337, 2318842, 412},
        {kDemoUserId, QString::fromLatin1(kDemoDeviceSn), QStringLiteral("scans-eu"), QStringLiteral("dfs-7f3a9c02"),
         QStringLiteral("bust-statue.vscan"), 91022310, 5120331, 880},
        {kDemoUserId, QStringLiteral("VS2024000456"), QStringLiteral("scans-eu"), QStringLiteral("dfs-7f3a9c03"),
         QStringLiteral("engine-block.vscan"), 203377120, 11920210, 1533},
    };
    for (const QVariantList& p : packages) {
        QVariantList params = p;
        params << now;
        if (!store.query(QStringLiteral("INSERT INTO scan_packages (user_id, sn, bucket, dfs_id, name, size, points, "
                                        "frames, created_at) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9)"),
                         params, error))
            return false;
    }
    const QVariantList fa[] = {
        {kDemoUserId, QStringLiteral("auto-align"), QStringLiteral("1.8.0"), QStringLiteral("VS-200"),
         QStringLiteral("installed")},
        {kDemoUserId, QStringLiteral("texture-fusion"), QStringLiteral("2.0.3"), QStringLiteral("VS-300 Pro"),
         QStringLiteral("available")},
    };
    for (const QVariantList& f : fa) {
        if (!store.query(QStringLiteral("INSERT INTO fa_packages (user_id, name, version, model_code, state) VALUES "
                                        "(?1, ?2, ?3, ?4, ?5)"),
                         f, error))
            return false;
    }
    return true;
}

} // namespace devcloud
