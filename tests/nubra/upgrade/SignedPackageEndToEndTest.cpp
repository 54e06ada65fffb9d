// SPDX-License-Identifier: MIT
// Signed packages through the real client against the dev cloud: the
// configuration the cloud wrote pins the key it created at first start;
// its catalogue verifies, its bad-signature fault is refused before any
// byte is fetched, and a configuration without the key accepts anything.

#include "PrivateCloud.h"
#include "TestFiles.h"
#include "Waiting.h"

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

// The private cloud of this binary.
const bool g_cloud = VornTest::usePrivateCloud();

using Nubra::Error;

VornTest::CloudAdmin& admin() { return VornTest::privateCloudAdmin(); }

const QString kModel = QStringLiteral("VS-300 Pro");
const QString kVersion = QStringLiteral("2.1.0"); // the newest release: the check offers it

class SignedPackageEndToEnd : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(folder.isValid());
        ASSERT_TRUE(VornTest::loadConfig(manager, VornTest::privateCloud().configPath()));
        const QVariantMap model{{"modelCode", kModel}, {"version", "1.0.0"}, {"versionType", "release"},
                                {"langType", "en"},    {"osType", "mac"},    {"maxPatch", 3}};
        ASSERT_EQ(VornTest::finishOf(manager.request("autoUpgrade:setAutoUpgradeConfig",
                                                     {{"m", model}, {"path", folder.path()}}, {}))
                      .value("status"),
                  "success");
    }
    void TearDown() override { setFault("none"); }

    void setFault(const QString& fault)
    {
        admin().call("POST", "/devcloud/upgrade/signature", {{"modelCode", kModel}, {"version", kVersion}, {"fault", fault}});
        ASSERT_EQ(admin().lastStatus(), 200);
    }
    QVariantMap download(QList<Error::ErrorCode>* errors)
    {
        Nubra::Reply* reply = manager.request(
            "autoUpgrade:startDownload",
            {{"upgrades", QVariantList{QVariantMap{{"modelCode", kModel}, {"version", kVersion}}}}}, {});
        QObject::connect(reply, &Nubra::Reply::errorOccurred, reply,
                         [errors](Error::ErrorCode code) { errors->append(code); });
        return VornTest::finishOf(reply, 60000);
    }
    QString target() const { return folder.filePath("VS-300_Pro-2.1.0.vpkg"); }
    QString packageUrl() const { return "/packages/VS-300_Pro-2.1.0.vpkg"; }

    QTemporaryDir folder;
    Nubra::Manager manager;
};

TEST_F(SignedPackageEndToEnd, theWrittenConfigurationPinsTheCloudsKeyAndItsCatalogueVerifies)
{
    const QVariantList keys = manager.configData().value("upgrade").toMap().value("signingKeys").toList();
    ASSERT_EQ(keys.size(), 1);
    EXPECT_EQ(keys[0].toMap().value("name"), "nubra-devcloud");
    // Created once, kept in the data folder: owner-only.
    const QFileInfo keyFile(VornTest::privateCloud().dataDir() + "/upgrade-signing-key.pem");
    ASSERT_TRUE(keyFile.exists());
    EXPECT_EQ(keyFile.permissions() & (QFile::ReadGroup | QFile::ReadOther | QFile::WriteGroup | QFile::WriteOther),
              QFile::Permissions());

    const QVariantMap check = VornTest::finishOf(manager.request("autoUpgrade:checkUpgrade", {{"modelCode", kModel}}, {}));
    EXPECT_EQ(check.value("result").toMap().value("signedBy"), "nubra-devcloud");

    QList<Error::ErrorCode> errors;
    const QVariantMap finished = download(&errors);
    EXPECT_TRUE(errors.isEmpty());
    EXPECT_EQ(finished.value("result").toMap().value("signedBy"), "nubra-devcloud");
    EXPECT_TRUE(QFileInfo::exists(target()));
}

TEST_F(SignedPackageEndToEnd, badOrMissingSignaturesAreRefusedBeforeAnyByteIsFetched)
{
    for (const char* fault : {"bad", "missing"}) {
        SCOPED_TRACE(fault);
        setFault(fault);
        const qint64 requestsBefore = admin().stat(packageUrl(), "requests");
        QList<Error::ErrorCode> errors;
        const QVariantMap finished = download(&errors);
        EXPECT_EQ(errors, QList<Error::ErrorCode>{Error::SignatureInvalid});
        EXPECT_EQ(finished.value("errorCode").toInt(), int(Error::SignatureInvalid));
        EXPECT_EQ(admin().stat(packageUrl(), "requests"), requestsBefore);
        EXPECT_FALSE(QFileInfo::exists(target()));
        EXPECT_FALSE(QFileInfo::exists(target() + ".part"));
        // The check says so too, without failing.
        const QVariantMap check =
            VornTest::finishOf(manager.request("autoUpgrade:checkUpgrade", {{"modelCode", kModel}}, {}));
        EXPECT_EQ(check.value("status"), "success");
        EXPECT_TRUE(check.value("result").toMap().value("signatureError").toString().contains("refused"));
    }

    // Without pinned keys the client takes the digest's word, as before.
    ASSERT_EQ(VornTest::finishOf(manager.setConfigData({{"upgrade", QVariantMap{}}}, {})).value("status"), "success");
    QList<Error::ErrorCode> errors;
    const QVariantMap finished = download(&errors);
    EXPECT_TRUE(errors.isEmpty());
    EXPECT_TRUE(finished.value("result").toMap().value("signedBy").toString().isEmpty());
    EXPECT_TRUE(QFileInfo::exists(target()));
}

} // namespace
