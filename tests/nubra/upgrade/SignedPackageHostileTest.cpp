// SPDX-License-Identifier: MIT
// The real client against a hostile upgrade server on loopback that answers
// package entries of its own making. With signing keys pinned, an entry the
// maker did not sign is refused before any byte of the package is asked
// for; a signed entry whose bytes differ from the signed digest ends with
// the partial file removed and nothing under the final name.

#include "upgrade/PackageSignature.h"

#include "HostileServer.h"
#include "TestFiles.h"
#include "Waiting.h"

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <mutex>

namespace {

using Nubra::Error;

// The hostile server's scripted answers: the package entry the test sets,
// and the test's bytes for the package URL.
class HostileUpgradeServer {
public:
    HostileUpgradeServer()
    {
        m_server.route("/api/v1/upgrade/package", [this](const VornTest::HostileServer::Request&) {
            std::lock_guard<std::mutex> lock(m_mutex);
            return VornTest::HostileServer::Response::json(
                QJsonDocument(QJsonObject{{"status", "success"}, {"result", m_entry}}).toJson());
        });
        m_server.route("/package", [this](const VornTest::HostileServer::Request&) {
            std::lock_guard<std::mutex> lock(m_mutex);
            VornTest::HostileServer::Response response;
            response.body = m_bytes;
            return response;
        });
        m_server.start();
    }
    QString baseUrl() const { return m_server.url(); }
    void set(const QJsonObject& entry, const QByteArray& bytes)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_entry = entry;
        m_bytes = bytes;
    }
    int packageRequests() const
    {
        int count = 0;
        for (const auto& request : m_server.requests())
            count += request.path() == "/package";
        return count;
    }

private:
    VornTest::HostileServer m_server;
    std::mutex m_mutex;
    QJsonObject m_entry;
    QByteArray m_bytes;
};

bool openssl(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral("openssl"), arguments);
    return process.waitForFinished(30000) && process.exitCode() == 0;
}

class SignedPackageHostile : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        ASSERT_TRUE(openssl({"genpkey", "-algorithm", "ed25519", "-out", dir.filePath("maker.pem")}));
        ASSERT_TRUE(openssl({"genpkey", "-algorithm", "ed25519", "-out", dir.filePath("attacker.pem")}));
        ASSERT_TRUE(openssl({"pkey", "-in", dir.filePath("maker.pem"), "-pubout", "-outform", "DER", "-out",
                             dir.filePath("maker.der")}));
        QFile der(dir.filePath("maker.der"));
        ASSERT_TRUE(der.open(QIODevice::ReadOnly));
        const QVariantMap upgrade{
            {"signingKeys", QVariantList{QVariantMap{{"name", "maker-2026"},
                                                     {"publicKey", QString::fromLatin1(der.readAll().toBase64())}}}}};
        ASSERT_EQ(VornTest::finishOf(manager.setConfigData({{"baseUrl", server.baseUrl()}, {"upgrade", upgrade}}, {}))
                      .value("status"),
                  "success");
        const QVariantMap model{{"modelCode", "VS-200"}, {"version", "1.0.0"}, {"versionType", "release"},
                                {"langType", "en"},      {"osType", "mac"},     {"maxPatch", 3}};
        ASSERT_EQ(VornTest::finishOf(manager.request("autoUpgrade:setAutoUpgradeConfig",
                                                     {{"m", model}, {"path", dir.filePath("packages")}}, {}))
                      .value("status"),
                  "success");
    }

    // An entry for VS-200 `version` over `bytes`, signed by `signer` (a key
    // file in dir, through the openssl command line) over `signedFields`.
    QJsonObject entry(const QByteArray& bytes, const QString& signer,
                      Nubra::PackageSignature::SignedFields signedFields)
    {
        QJsonObject e{{"modelCode", "VS-200"}, {"version", "1.2.0"},
                      {"packageSize", double(bytes.size())},
                      {"sha256", QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex())},
                      {"url", "/package"}};
        if (signer.isEmpty())
            return e;
        EXPECT_TRUE(VornTest::writeFile(dir.filePath("fields"), Nubra::PackageSignature::canonicalBytes(signedFields)));
        EXPECT_TRUE(openssl({"pkeyutl", "-sign", "-inkey", dir.filePath(signer + ".pem"), "-rawin", "-in",
                             dir.filePath("fields"), "-out", dir.filePath("fields.sig")}));
        QFile signature(dir.filePath("fields.sig"));
        EXPECT_TRUE(signature.open(QIODevice::ReadOnly));
        e.insert("signature", QString::fromLatin1(signature.readAll().toBase64()));
        return e;
    }

    struct Outcome {
        QList<Error::ErrorCode> errors;
        QVariantMap finished;
    };
    Outcome download()
    {
        Outcome outcome;
        Nubra::Reply* reply = manager.request("autoUpgrade:startDownload",
                                              {{"upgrades", QVariantList{QVariantMap{{"modelCode", "VS-200"},
                                                                                     {"version", "1.2.0"}}}}},
                                              {});
        QObject::connect(reply, &Nubra::Reply::errorOccurred, reply,
                         [&](Error::ErrorCode code) { outcome.errors.append(code); });
        outcome.finished = VornTest::finishOf(reply, 30000);
        return outcome;
    }

    QString finalPath() const { return dir.filePath("packages/VS-200-1.2.0.vpkg"); }

    QTemporaryDir dir;
    HostileUpgradeServer server;
    Nubra::Manager manager;
};

TEST_F(SignedPackageHostile, entriesTheMakerDidNotSignAreRefusedBeforeAnyByteIsFetched)
{
    const QByteArray bytes(70000, 'p');
    const QString sha = QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
    const struct {
        const char* label;
        QJsonObject entry;
    } cases[] = {
        {"no signature", entry(bytes, {}, {})},
        {"signed by a key nobody pinned", entry(bytes, "attacker", {"VS-200", "1.2.0", bytes.size(), sha})},
        {"the maker's signature of another version",
         entry(bytes, "maker", {"VS-200", "1.0.0", bytes.size(), sha})},
        {"the maker's signature of another model",
         entry(bytes, "maker", {"VS-300 Pro", "1.2.0", bytes.size(), sha})},
        {"the maker's signature of another size", entry(bytes, "maker", {"VS-200", "1.2.0", bytes.size() + 1, sha})},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        server.set(c.entry, bytes);
        const Outcome outcome = download();
        ASSERT_EQ(outcome.errors, QList<Error::ErrorCode>{Error::SignatureInvalid});
        EXPECT_EQ(outcome.finished.value("errorCode").toInt(), int(Error::SignatureInvalid));
        EXPECT_TRUE(outcome.finished.value("message").toString().contains("refused"));
        EXPECT_EQ(server.packageRequests(), 0);
        EXPECT_FALSE(QFileInfo::exists(finalPath()));
        EXPECT_FALSE(QFileInfo::exists(finalPath() + ".part"));
    }
}

TEST_F(SignedPackageHostile, signedDigestDecidesWhetherTheBytesGetTheFinalName)
{
    const QByteArray genuine(70000, 'g');
    QByteArray forged = genuine;
    forged[35000] = 'f';
    const QString sha = QString::fromLatin1(QCryptographicHash::hash(genuine, QCryptographicHash::Sha256).toHex());
    const QJsonObject signedEntry = entry(genuine, "maker", {"VS-200", "1.2.0", genuine.size(), sha});

    // Other bytes of the same size behind a genuine signed entry.
    server.set(signedEntry, forged);
    Outcome outcome = download();
    EXPECT_EQ(outcome.errors, QList<Error::ErrorCode>{Error::IntegrityCheckFailed});
    EXPECT_EQ(server.packageRequests(), 1);
    EXPECT_FALSE(QFileInfo::exists(finalPath()));
    EXPECT_FALSE(QFileInfo::exists(finalPath() + ".part"));

    server.set(signedEntry, genuine);
    outcome = download();
    EXPECT_TRUE(outcome.errors.isEmpty());
    EXPECT_EQ(outcome.finished.value("status"), "success");
    const QVariantList packages = outcome.finished.value("result").toMap().value("packages").toList();
    ASSERT_EQ(packages.size(), 1);
    EXPECT_EQ(packages[0].toMap().value("signedBy"), "maker-2026");
    EXPECT_EQ(VornTest::sha256OfFile(finalPath()), sha);
}

} // namespace
