// SPDX-License-Identifier: MIT
// The helper's protected-data calls: result codes, the text conversions,
// the log lines, and real files (written, unwritable).

#include "VornNubraHelper.h"
#include "AESEncryption.h"
#include "eddata.h"

#include "GlogCapture.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QStandardPaths>
#include <QTemporaryDir>

namespace {

class Serialize : public ::testing::Test {
protected:
    static void SetUpTestSuite() { s_helper = new VornNubraHelper; }
    static void TearDownTestSuite()
    {
        delete s_helper;
        s_helper = nullptr;
    }

    static std::string readAll(const QString& path)
    {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return std::string();
        return file.readAll().toStdString();
    }

    static VornNubraHelper* s_helper;
    VornTest::GlogCapture m_sink;
    QTemporaryDir m_dir;
};

VornNubraHelper* Serialize::s_helper = nullptr;

QJsonObject sampleObject()
{
    return QJsonObject{{QStringLiteral("name"), QStringLiteral("Zoë scan")}, {QStringLiteral("count"), 3}};
}

} // namespace

TEST_F(Serialize, stringsRoundTripWithoutTheirZeroPadding)
{
    const QString samples[] = {QStringLiteral("a"), QStringLiteral("sixteen chars!!!"),
                               QStringLiteral("çà et là, 三维扫描"), QString(100, QLatin1Char('x'))};
    for (const QString& s : samples) {
        SCOPED_TRACE(s.toStdString());
        QString protectedText;
        ASSERT_EQ(s_helper->serializeData(s, protectedText), 0);
        EXPECT_EQ(protectedText.toStdString(), EDData::global_serialize(s.toUtf8().toStdString()));
        QString restored = QStringLiteral("stale");
        EXPECT_EQ(s_helper->deserializeData(protectedText, restored), 0);
        EXPECT_EQ(restored, s);
    }
}

TEST_F(Serialize, emptyStringFailsWithItsLogLineAndLeavesResult)
{
    QString result = QStringLiteral("untouched");
    EXPECT_EQ(s_helper->serializeData(QString(), result), NubraCommon::SerializeFailed);
    EXPECT_EQ(result, QStringLiteral("untouched"));
    const QString path = m_dir.filePath(QStringLiteral("empty.txt"));
    EXPECT_EQ(s_helper->serializeFile(QString(), path), NubraCommon::SerializeFailed);
    EXPECT_FALSE(QFile::exists(path));
    EXPECT_EQ(m_sink.texts(), QStringList({"serializeData is empty2!", "serializeData is empty2!"}));
}

TEST_F(Serialize, objectIsProtectedAsItsIndentedJson)
{
    QString protectedText;
    ASSERT_EQ(s_helper->serializeObj(sampleObject(), protectedText), 0);
    const std::string json = QJsonDocument(sampleObject()).toJson().toStdString();
    EXPECT_EQ(protectedText.toStdString(), EDData::global_serialize(json));
    QString restored;
    ASSERT_EQ(s_helper->deserializeData(protectedText, restored), 0);
    EXPECT_EQ(restored.toStdString(), json);
    EXPECT_TRUE(restored.contains(QStringLiteral("\n    \"count\": 3")));

    QString empty;
    ASSERT_EQ(s_helper->serializeObj(QJsonObject(), empty), 0);
    EXPECT_EQ(empty.toStdString(), EDData::global_serialize(QJsonDocument(QJsonObject()).toJson().toStdString()));
    EXPECT_TRUE(m_sink.texts().isEmpty());
}

TEST_F(Serialize, filesHoldTheProtectedText)
{
    const QString textPath = m_dir.filePath(QStringLiteral("text.dat"));
    ASSERT_EQ(s_helper->serializeFile(QStringLiteral("hello file"), textPath), 0);
    EXPECT_EQ(readAll(textPath), EDData::global_serialize("hello file"));

    // The object-to-file form protects the local 8-bit form of the JSON.
    const QString objectPath = m_dir.filePath(QStringLiteral("object.dat"));
    ASSERT_EQ(s_helper->serializeData(sampleObject(), objectPath), 0);
    const QString json = QString::fromUtf8(QJsonDocument(sampleObject()).toJson());
    EXPECT_EQ(readAll(objectPath), EDData::global_serialize(json.toLocal8Bit().toStdString()));
}

TEST_F(Serialize, unwritablePathFailsAndWritesNothing)
{
    const QString missingDir = m_dir.filePath(QStringLiteral("missing/out.dat"));
    EXPECT_EQ(s_helper->serializeFile(QStringLiteral("content"), missingDir), NubraCommon::SerializeFailed);
    EXPECT_EQ(s_helper->serializeData(sampleObject(), missingDir), NubraCommon::SerializeFailed);
    EXPECT_FALSE(QDir(m_dir.filePath(QStringLiteral("missing"))).exists());
    // Failing to open the file is not one of the logged cases.
    EXPECT_TRUE(m_sink.texts().isEmpty());
}

TEST_F(Serialize, callersKeyRestoresTextProtectedUnderIt)
{
    const std::string key = "0123456789abcdef";
    const std::string cipher = AESEncryption::Crypt(AESEncryption::Aes128, AESEncryption::Ecb, "under my key", key,
                                                    std::string(), AESEncryption::Zero);
    const std::string text =
        EDData::base64_encode(reinterpret_cast<const unsigned char*>(cipher.data()), static_cast<unsigned>(cipher.size()));
    QString restored;
    EXPECT_EQ(s_helper->deserializeData(QString::fromStdString(text), QString::fromStdString(key), restored), 0);
    EXPECT_EQ(restored, QStringLiteral("under my key"));
}

TEST_F(Serialize, wrongKeyStillSucceedsWithOtherText)
{
    QString protectedText;
    ASSERT_EQ(s_helper->serializeData(QStringLiteral("secret scan settings"), protectedText), 0);
    struct Case {
        const char* what;
        QString key;
    };
    const Case cases[] = {
        {"wrong 16-byte key", QStringLiteral("0123456789abcdef")},
        {"key too short for AES-128", QStringLiteral("short")},
        {"empty key", QString()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        QString restored = QStringLiteral("stale");
        EXPECT_EQ(s_helper->deserializeData(protectedText, c.key, restored), 0);
        EXPECT_NE(restored, QStringLiteral("secret scan settings"));
    }
}

TEST_F(Serialize, restoringGarbageSucceedsAndDeBase64Decodes)
{
    QString restored = QStringLiteral("stale");
    EXPECT_EQ(s_helper->deserializeData(QStringLiteral("!!not base64!!"), restored), 0);
    EXPECT_TRUE(restored.isEmpty());
    EXPECT_EQ(s_helper->deBase64("TWFu\nrest"), "Man");
    EXPECT_EQ(s_helper->deBase64("TWE="), "Ma");
}

int main(int argc, char** argv)
{
    QStandardPaths::setTestModeEnabled(true);
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
