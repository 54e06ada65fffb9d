// SPDX-License-Identifier: MIT
// A 200 MiB upload through the helper: progress reaches the total, the
// cloud stores exactly the bytes sent, the client streams the file instead
// of holding it, and a second upload of the same file is skipped. Runs
// against a private dev cloud whose data folder goes away with the test, so
// that repeated runs do not fill a shared cloud's disk or quota.

#include "DevCloudProcess.h"
#include "TestFiles.h"

#include <VornNubraHelper.h>

#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdio>

using NubraCommon::VornCloudDiskInterface;
using NubraCommon::VornUserAccountInterface;

namespace {

constexpr qint64 kFileBytes = 200LL * 1024 * 1024 + 12345; // not a multiple of any buffer size
constexpr qint64 kMaxGrowthKiB = 64 * 1024;

VornNubraHelper* helper() { return VornNubraHelper::getInstance(); }

// Peak resident set size of this process so far, in KiB.
qint64 peakRssKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    return -1;
}

QVariantMap resultOf(const QVariantMap& answer) { return answer.value(QStringLiteral("result")).toMap(); }

} // namespace

TEST(LargeUpload, streamsTwoHundredMebibytesAndSkipsTheSecondTime)
{
    VornTest::DevCloudProcess cloud;
    ASSERT_TRUE(cloud.start()) << cloud.output().toStdString();
    // The helper reads NUBRA_CONFIG when it is created, below.
    qputenv("NUBRA_CONFIG", cloud.configPath().toUtf8());

    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("scan-200MiB.vscan"));
    ASSERT_TRUE(VornTest::writeRandomFile(path, kFileBytes));
    const QString localSha = VornTest::sha256OfFile(path);

    QVariantMap login;
    helper()->VornUserAccountRequest(VornUserAccountInterface::UserLogin, login,
                                     {{"account", "demo@vorn.example"}, {"password", "scan3d!"}}, {}, {}, {}, {});
    const QString token = resultOf(login).value(QStringLiteral("token")).toString();
    ASSERT_FALSE(token.isEmpty());
    QVariantMap grant;
    helper()->VornCloudDiskRequest(VornCloudDiskInterface::SdkDynamicEncodeToken, grant, {}, {},
                                   {{"X-Auth-Token", token}}, {});
    const QString uploadToken = resultOf(grant).value(QStringLiteral("uploadToken")).toString();
    ASSERT_FALSE(uploadToken.isEmpty());

    const auto upload = [&] {
        QVariantMap queued;
        helper()->VornCloudDiskRequest(VornCloudDiskInterface::UploadCloudSpaceFile, queued, {},
                                       {{"files", QStringList{path}}, {"uploadToken", uploadToken}}, {}, {});
        EXPECT_EQ(queued.value(QStringLiteral("status")).toString(), "success");
        QVariantMap result;
        helper()->VornCloudDiskRequest(VornCloudDiskInterface::StartUploadStart, result, {}, {}, {}, {});
        return result;
    };

    const qint64 peakBefore = peakRssKiB();
    ASSERT_GT(peakBefore, 0);
    QSignalSpy progress(helper(), &VornNubraHelper::uploadProgress);
    const QVariantMap first = upload();
    const qint64 peakAfter = peakRssKiB();

    ASSERT_EQ(first.value(QStringLiteral("status")).toString(), "success")
        << first.value(QStringLiteral("message")).toString().toStdString();
    const QVariantMap entry = resultOf(first).value(QStringLiteral("files")).toList().value(0).toMap();
    EXPECT_EQ(entry.value(QStringLiteral("status")).toString(), "uploaded");
    EXPECT_EQ(entry.value(QStringLiteral("sha256")).toString(), localSha);
    EXPECT_EQ(resultOf(first).value(QStringLiteral("bytesSent")).toLongLong(), kFileBytes);

    ASSERT_GT(progress.size(), 2);
    EXPECT_EQ(progress.last().at(0).toLongLong(), kFileBytes);
    EXPECT_EQ(progress.last().at(1).toLongLong(), kFileBytes);
    for (int i = 1; i < progress.size(); ++i)
        ASSERT_GE(progress[i].at(0).toLongLong(), progress[i - 1].at(0).toLongLong());

    // The cloud kept the bytes under their digest; hash what it stored.
    const QString blob = cloud.dataDir() + QStringLiteral("/disk/blobs/") + localSha;
    EXPECT_EQ(QFileInfo(blob).size(), kFileBytes);
    EXPECT_EQ(VornTest::sha256OfFile(blob), localSha);

    RecordProperty("peakRssGrowthKiB", int(peakAfter - peakBefore));
    std::printf("peak RSS %lld KiB before the upload, %lld KiB after\n", peakBefore, peakAfter);
    EXPECT_LT(peakAfter - peakBefore, kMaxGrowthKiB)
        << "peak RSS grew from " << peakBefore << " KiB to " << peakAfter << " KiB";

    progress.clear();
    const QVariantMap second = upload();
    ASSERT_EQ(second.value(QStringLiteral("status")).toString(), "success");
    EXPECT_EQ(resultOf(second).value(QStringLiteral("skipped")).toInt(), 1);
    EXPECT_EQ(resultOf(second).value(QStringLiteral("bytesSent")).toLongLong(), 0);
    ASSERT_FALSE(progress.isEmpty());
    EXPECT_EQ(progress.last().at(0).toLongLong(), kFileBytes);
}
