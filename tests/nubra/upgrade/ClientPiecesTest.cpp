// SPDX-License-Identifier: MIT
// Pieces of the client's upgrade and download services that decide names,
// registrations and digests.

#include "transfer/BackgroundSha256.h"
#include "transfer/FileDownloadService.h"
#include "upgrade/UpgradeRegistry.h"

#include <QCryptographicHash>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QUrl>

#include <gtest/gtest.h>

namespace {

using Nubra::BackgroundSha256;
using Nubra::UpgradeRegistry;

QByteArray expectedDigest(const QByteArray& data)
{
    return QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex();
}

TEST(BackgroundSha256, matchesAOneShotDigestForAnyChunkingAndAcrossResets)
{
    QRandomGenerator random(42);
    BackgroundSha256 hash;
    // Sizes around the batch size and the queue bound, and empty input.
    const std::vector<int> sizes = {0, 1, 63, BackgroundSha256::kBatch - 1, BackgroundSha256::kBatch,
                                    BackgroundSha256::kBatch + 1, 3 * BackgroundSha256::kBatch + 17,
                                    int(BackgroundSha256::kMaxQueued) * 2 + 5};
    for (int size : sizes) {
        SCOPED_TRACE(size);
        QByteArray data(size, Qt::Uninitialized);
        for (char& c : data)
            c = char(random.generate());
        // Garbage first, then a reset: only what follows counts.
        hash.update("stale bytes", 11);
        hash.reset();
        for (int at = 0; at < size;) {
            const int n = std::min(size - at, 1 + int(random.bounded(200000)));
            hash.update(data.constData() + at, size_t(n));
            at += n;
        }
        EXPECT_EQ(hash.finish(), expectedDigest(data));
        // finish() starts a new digest.
        EXPECT_EQ(hash.finish(), expectedDigest(QByteArray()));
    }
}

TEST(UpgradeRegistry, packageFileNamesStayPlainNamesInsideTheFolder)
{
    const std::vector<std::tuple<QString, QString, QString>> cases = {
        {"VS-200", "1.2.0", "VS-200-1.2.0.vpkg"},
        {"VS-300 Pro", "2.1.0", "VS-300_Pro-2.1.0.vpkg"},
        {"../..", "1", "_.._..-1.vpkg"},
        {"a/b\\c", "x:y", "a_b_c-x_y.vpkg"},
        {QString::fromUtf8("扫描仪"), "1.0", "___-1.0.vpkg"},
    };
    for (const auto& [model, version, expected] : cases)
        EXPECT_EQ(UpgradeRegistry::packageFileName(model, version), expected) << model.toStdString();
}

TEST(UpgradeRegistry, registrationBodiesAreCheckedAndEveryModelEntryIsKept)
{
    const QVariantMap vs200{{"modelCode", "VS-200"}, {"version", "1.0.0"}, {"versionType", "beta"},
                            {"langType", "de"},       {"osType", "mac"},    {"maxPatch", 10}};
    QString message;
    const auto ok = UpgradeRegistry::parse({{"VS-200", vs200}, {"checkInterval", 10}, {"path", "/p/"}}, &message);
    ASSERT_TRUE(ok.has_value()) << message.toStdString();
    ASSERT_EQ(ok->size(), 1);
    EXPECT_EQ(ok->first().toMap(), (QVariantMap{{"modelCode", "VS-200"}, {"version", "1.0.0"},
                                                {"versionType", "beta"}, {"langType", "de"},
                                                {"osType", "mac"},      {"maxPatch", 10},
                                                {"checkInterval", 10},  {"path", "/p"}}));

    QVariantMap noVersion = vs200;
    noVersion.remove("version");
    const std::vector<QVariantMap> bad = {
        {{"VS-200", vs200}, {"checkInterval", 10}},                     // no folder
        {{"checkInterval", 10}, {"path", "/p"}},                        // no model
        {{"VS-200", noVersion}, {"path", "/p"}},                        // model without version
        {{"", QVariantMap{{"modelCode", ""}, {"version", "1"}}}, {"path", "/p"}}, // empty model code
    };
    for (const QVariantMap& body : bad) {
        message.clear();
        EXPECT_FALSE(UpgradeRegistry::parse(body, &message).has_value());
        EXPECT_FALSE(message.isEmpty());
    }
}

TEST(FileDownloadService, pathIsAFileUnlessItIsAFolder)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QUrl url("http://127.0.0.1:1/files/manual.pdf?x=1");
    const std::vector<std::pair<QString, QString>> cases = {
        {dir.path(), dir.path() + "/manual.pdf"},
        {dir.path() + "/", dir.path() + "/manual.pdf"},
        {dir.path() + "/new/", dir.path() + "/new/manual.pdf"},
        {dir.path() + "/copy.pdf", dir.path() + "/copy.pdf"},
        {dir.path() + "/a/../b.pdf", dir.path() + "/b.pdf"},
        {"", ""},
    };
    for (const auto& [path, expected] : cases)
        EXPECT_EQ(Nubra::FileDownloadService::destinationFor(url, path), expected) << path.toStdString();
    EXPECT_EQ(Nubra::FileDownloadService::destinationFor(QUrl("http://127.0.0.1:1/"), dir.path()), QString());
}

} // namespace
