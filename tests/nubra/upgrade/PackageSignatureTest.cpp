// SPDX-License-Identifier: MIT
// Package signatures as a maker makes them: a key and a signature from the
// openssl command line (the commands docs/upgrade.md shows), checked by the
// client's PackageSignature; every change to a signed field, a foreign key
// or a damaged signature is refused; rotation lets any pinned key sign.

#include "upgrade/PackageSignature.h"

#include "TestFiles.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using namespace Nubra::PackageSignature;

const QString kSha = QStringLiteral("9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08");

// Runs openssl with arguments; true on exit status 0.
bool openssl(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral("openssl"), arguments);
    return process.waitForFinished(30000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

// A maker's key pair made with the openssl command line.
struct MakerKey {
    QString pem;
    QString rawBase64; // the 32-byte key, as the configuration pins it
    QString derBase64; // its DER SubjectPublicKeyInfo
};

MakerKey makeKey(const QTemporaryDir& dir, const QString& name)
{
    MakerKey key;
    key.pem = dir.filePath(name + ".pem");
    const QString der = dir.filePath(name + ".pub.der");
    EXPECT_TRUE(openssl({"genpkey", "-algorithm", "ed25519", "-out", key.pem}));
    EXPECT_TRUE(openssl({"pkey", "-in", key.pem, "-pubout", "-outform", "DER", "-out", der}));
    QFile file(der);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    key.derBase64 = QString::fromLatin1(bytes.toBase64());
    key.rawBase64 = QString::fromLatin1(bytes.right(32).toBase64());
    return key;
}

// `openssl pkeyutl -sign -rawin` over the bytes; the signature in base64.
QString signWithOpenssl(const QTemporaryDir& dir, const MakerKey& key, const QByteArray& message)
{
    const QString in = dir.filePath("message.txt");
    const QString out = dir.filePath("message.sig");
    EXPECT_TRUE(VornTest::writeFile(in, message));
    EXPECT_TRUE(openssl({"pkeyutl", "-sign", "-inkey", key.pem, "-rawin", "-in", in, "-out", out}));
    QFile file(out);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    return QString::fromLatin1(file.readAll().toBase64());
}

QVariantList pinned(const QList<QPair<QString, QString>>& keys)
{
    QVariantList list;
    for (const auto& [name, publicKey] : keys)
        list.append(QVariantMap{{"name", name}, {"publicKey", publicKey}});
    return list;
}

class PackageSignatureTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dir.isValid()); }
    QTemporaryDir dir;
};

TEST_F(PackageSignatureTest, canonicalBytesAreTheDocumentedLines)
{
    // The example of docs/upgrade.md, byte for byte.
    const QByteArray documented = "nubra-package-v1\n"
                                  "modelCode=VS-300 Pro\n"
                                  "version=2.1.0\n"
                                  "packageSize=8400896\n"
                                  "sha256=" + kSha.toLatin1() + "\n";
    EXPECT_EQ(canonicalBytes({"VS-300 Pro", "2.1.0", 8400896, kSha}), documented);

    const struct {
        const char* label;
        SignedFields fields;
    } unsignable[] = {
        {"line break in the model", {"VS-200\nversion=9", "1.0.0", 1, kSha}},
        {"carriage return in the version", {"VS-200", "1.0.0\r", 1, kSha}},
        {"empty version", {"VS-200", "", 1, kSha}},
        {"negative size", {"VS-200", "1.0.0", -1, kSha}},
        {"upper-case digest", {"VS-200", "1.0.0", 1, kSha.toUpper()}},
        {"short digest", {"VS-200", "1.0.0", 1, kSha.left(63)}},
    };
    for (const auto& c : unsignable)
        EXPECT_TRUE(canonicalBytes(c.fields).isEmpty()) << c.label;
}

TEST_F(PackageSignatureTest, opensslSignaturesVerifyAndEveryAlterationIsRefused)
{
    const MakerKey maker = makeKey(dir, "maker");
    const MakerKey other = makeKey(dir, "other");
    const SignedFields fields{"VS-200", "1.2.0", 8388608, kSha};
    const QString signature = signWithOpenssl(dir, maker, canonicalBytes(fields));
    ASSERT_FALSE(signature.isEmpty());

    // Both key forms, alone or after another key (rotation).
    for (const QVariantList& keys : {pinned({{"maker-2026", maker.rawBase64}}),
                                     pinned({{"maker-2026", maker.derBase64}}),
                                     pinned({{"old", other.rawBase64}, {"maker-2026", maker.rawBase64}})}) {
        const Verdict verdict = checkPackage(keys, fields, signature);
        EXPECT_EQ(verdict.code, Nubra::Error::NoError) << verdict.message.toStdString();
        EXPECT_EQ(verdict.signedBy, "maker-2026");
    }
    // A key pinned without a name is reported by its fingerprint.
    const Verdict unnamed = checkPackage(QVariantList{maker.rawBase64}, fields, signature);
    EXPECT_TRUE(unnamed.signedBy.startsWith("ed25519:")) << unnamed.signedBy.toStdString();
    EXPECT_EQ(unnamed.signedBy.size(), 8 + 16);

    QByteArray flipped = QByteArray::fromBase64(signature.toLatin1());
    flipped[10] = char(flipped[10] ^ 0x01);
    const QVariantList makerOnly = pinned({{"maker-2026", maker.rawBase64}});
    const struct {
        const char* label;
        QVariantList keys;
        SignedFields fields;
        QString signature;
    } refused[] = {
        {"another model", makerOnly, {"VS-300 Pro", "1.2.0", 8388608, kSha}, signature},
        {"another version", makerOnly, {"VS-200", "1.2.1", 8388608, kSha}, signature},
        {"another size", makerOnly, {"VS-200", "1.2.0", 8388609, kSha}, signature},
        {"another digest", makerOnly, {"VS-200", "1.2.0", 8388608, QString(kSha).replace(0, 1, "0")}, signature},
        {"signature not from a pinned key", pinned({{"old", other.rawBase64}}), fields, signature},
        {"one bit of the signature flipped", makerOnly, fields, QString::fromLatin1(flipped.toBase64())},
        {"signature missing", makerOnly, fields, QString()},
        {"signature not base64", makerOnly, fields, "not*base64"},
        {"signature too short", makerOnly, fields, QString::fromLatin1(QByteArray(63, 'x').toBase64())},
    };
    for (const auto& c : refused) {
        const Verdict verdict = checkPackage(c.keys, c.fields, c.signature);
        EXPECT_EQ(verdict.code, Nubra::Error::SignatureInvalid) << c.label;
        EXPECT_TRUE(verdict.signedBy.isEmpty()) << c.label;
        EXPECT_FALSE(verdict.message.isEmpty()) << c.label;
    }
}

TEST_F(PackageSignatureTest, pinnedKeysAreCheckedAndNoKeyMeansNoSignatureRequired)
{
    // Nothing pinned: anything passes, and no key is named.
    for (const QVariant& none : {QVariant(), QVariant(QVariantList{})}) {
        const Verdict verdict = checkPackage(none, {"VS-200", "1.0.0", 1, kSha}, QString());
        EXPECT_EQ(verdict.code, Nubra::Error::NoError);
        EXPECT_TRUE(verdict.signedBy.isEmpty());
    }
    const struct {
        const char* label;
        QVariant keys;
    } unusable[] = {
        {"not a list", QVariant(QStringLiteral("AAAA"))},
        {"not base64", QVariantList{QVariantMap{{"publicKey", "!!"}}}},
        {"31 bytes", QVariantList{QString::fromLatin1(QByteArray(31, 'k').toBase64())}},
        {"a truncated SubjectPublicKeyInfo", QVariantList{QStringLiteral("MCowBQYDK2VwAyEA")}},
        {"entry without a key", QVariantList{QVariantMap{{"name", "x"}}}},
    };
    for (const auto& c : unusable) {
        const Verdict verdict = checkPackage(c.keys, {"VS-200", "1.0.0", 1, kSha}, QString());
        EXPECT_EQ(verdict.code, Nubra::Error::ConfigMalformed) << c.label;
        EXPECT_TRUE(verdict.message.contains("signingKeys")) << c.label;
    }
}

} // namespace
