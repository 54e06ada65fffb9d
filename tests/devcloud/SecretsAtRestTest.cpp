// SPDX-License-Identifier: MIT
// What the dev cloud keeps is its owner's only, and holds no token in clear.

#include <CloudAdmin.h>
#include <DevCloudProcess.h>

#include <QCryptographicHash>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <sys/stat.h>

TEST(SecretsAtRest, tokensAreKeptAsHashesInFilesOnlyTheOwnerCanRead)
{
    VornTest::DevCloudProcess cloud;
    ASSERT_TRUE(cloud.start()) << cloud.output().toStdString();
    VornTest::CloudAdmin admin(cloud.baseUrl(), cloud.caFile());
    const QString token = admin.signIn();
    ASSERT_FALSE(token.isEmpty());
    // The token works: it is checked by its hash.
    const QJsonObject check = admin.call("GET", "/api/v1/auth/token?token=" + token);
    EXPECT_TRUE(check["result"]["valid"].toBool());
    ASSERT_TRUE(cloud.stop());

    const QByteArray hash = QCryptographicHash::hash(token.toUtf8(), QCryptographicHash::Sha256).toHex();
    bool hashFound = false;
    int files = 0;
    QStringList paths{cloud.dataDir(), cloud.configPath()};
    QDirIterator it(cloud.dataDir(), QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        paths << it.next();
    for (const QString& path : paths) {
        SCOPED_TRACE(path.toStdString());
        struct stat info {};
        ASSERT_EQ(stat(path.toLocal8Bit().constData(), &info), 0);
        EXPECT_EQ(info.st_mode & 077, 0u) << "mode " << std::oct << (info.st_mode & 0777);
        if (!S_ISREG(info.st_mode))
            continue;
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        const QByteArray content = file.readAll();
        ++files;
        EXPECT_FALSE(content.contains(token.toUtf8()));
        hashFound = hashFound || content.contains(hash);
    }
    EXPECT_GT(files, 1);
    EXPECT_TRUE(hashFound) << "the session is stored, by its hash";
    EXPECT_FALSE(cloud.output().contains(token));
}
