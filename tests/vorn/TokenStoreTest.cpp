// SPDX-License-Identifier: MIT
// The token file: private permissions, atomic replacement, and secrets
// masked wherever vorn shows a configuration.

#include "TokenStore.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

mode_t modeOf(const QString& path)
{
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : mode_t(-1);
}

// XDG_CONFIG_HOME pointed at a temporary folder for one test.
struct ConfigHome {
    QTemporaryDir dir;
    QByteArray saved = qgetenv("XDG_CONFIG_HOME");
    ConfigHome() { qputenv("XDG_CONFIG_HOME", dir.path().toUtf8()); }
    ~ConfigHome() { qputenv("XDG_CONFIG_HOME", saved); }
};

} // namespace

TEST(TokenStore, savesPrivatelyReplacesWholeAndRemoves)
{
    ConfigHome home;
    EXPECT_EQ(TokenStore::path(), home.dir.filePath("vorn/token"));
    EXPECT_FALSE(TokenStore::load().ok());

    // A folder that exists too open is tightened.
    ASSERT_TRUE(QDir().mkpath(home.dir.filePath("vorn")));
    ASSERT_EQ(::chmod(QFile::encodeName(home.dir.filePath("vorn")).constData(), 0755), 0);
    QString error;
    ASSERT_TRUE(TokenStore::save({"first-token", "a@example", "http://127.0.0.1:1", {}}, &error)) << error.toStdString();
    EXPECT_EQ(modeOf(TokenStore::path()), mode_t(0600));
    EXPECT_EQ(modeOf(home.dir.filePath("vorn")), mode_t(0700));
    ASSERT_TRUE(TokenStore::save({"second-token", "b@example", "http://127.0.0.1:2", {}}, &error));
    const TokenStore::Stored stored = TokenStore::load();
    EXPECT_EQ(stored.token, "second-token");
    EXPECT_EQ(stored.account, "b@example");
    EXPECT_FALSE(stored.savedAt.isEmpty());
    // Nothing but the file itself is left in the folder (no temporary files).
    EXPECT_EQ(QDir(home.dir.filePath("vorn")).entryList(QDir::Files | QDir::Hidden), QStringList{"token"});

    bool existed = false;
    ASSERT_TRUE(TokenStore::remove(&existed, &error));
    EXPECT_TRUE(existed);
    ASSERT_TRUE(TokenStore::remove(&existed, &error));
    EXPECT_FALSE(existed);
}

TEST(TokenStore, unusableFileIsReportedNotUsed)
{
    ConfigHome home;
    ASSERT_TRUE(QDir().mkpath(home.dir.filePath("vorn")));
    QFile file(TokenStore::path());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("{\"account\": \"a\"}");
    file.close();
    QString error;
    EXPECT_FALSE(TokenStore::load(&error).ok());
    EXPECT_TRUE(error.contains("holds no token")) << error.toStdString();
}

TEST(TokenStore, secretsAreMaskedAtAnyDepth)
{
    const QVariantMap config{
        {"host", "127.0.0.1"},
        {"password", "hunter2"},
        {"nested", QVariantMap{{"userToken", "abc"}, {"apiKey", "k"}, {"keyboard", "stays"}, {"port", 1883}}},
        {"list", QVariantList{QVariantMap{{"clientSecret", "s3"}}}},
        {"passwordLength", 8}, // not a string: nothing to hide
    };
    const QVariantMap masked = TokenStore::maskSecrets(config).toMap();
    EXPECT_EQ(masked.value("host").toString(), "127.0.0.1");
    EXPECT_EQ(masked.value("password").toString(), "(set, 7 characters)");
    const QVariantMap nested = masked.value("nested").toMap();
    EXPECT_EQ(nested.value("userToken").toString(), "(set, 3 characters)");
    EXPECT_EQ(nested.value("apiKey").toString(), "(set, 1 character)");
    EXPECT_EQ(nested.value("keyboard").toString(), "stays");
    EXPECT_EQ(nested.value("port").toInt(), 1883);
    EXPECT_EQ(masked.value("list").toList().first().toMap().value("clientSecret").toString(), "(set, 2 characters)");
    EXPECT_EQ(masked.value("passwordLength").toInt(), 8);
    EXPECT_EQ(TokenStore::masked(QString()), "(empty)");
}
