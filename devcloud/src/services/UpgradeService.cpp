// SPDX-License-Identifier: MIT
// The upgrade catalogue: versions of each scanner model's software with
// release notes per language, packages generated into the data folder at
// start, the upgrade check, package entries and package downloads.

#include "Services.h"

#include "FileServing.h"
#include "GeneratedFile.h"
#include "PackageSigner.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

#include <cstdio>
#include <mutex>
#include <set>

namespace devcloud {

namespace {

struct Release {
    const char* model;
    const char* version;
    const char* type; // "release" or "beta"
    const char* date;
    qint64 size;
    const char* notesEn;
    const char* notesZh;
    const char* notesDe;
};

constexpr qint64 MiB = 1024 * 1024;

// The package of VS-200 1.2.0 is the one whose size the environment
// variable NUBRA_DEVCLOUD_PACKAGE_SIZE sets (the download benchmark asks
// for 1 GiB); the odd sizes of the others keep block-aligned luck out of
// the tests.
const Release kReleases[] = {
    {"VS-200", "1.0.0", "release", "2025-09-01", 1 * MiB + 123, "First public release.", "首个公开版本。",
     "Erste öffentliche Version."},
    {"VS-200", "1.1.0", "release", "2026-01-15", 2 * MiB + 4567, "Faster alignment of scan frames.",
     "扫描帧对齐更快。", "Schnellere Ausrichtung der Scan-Frames."},
    {"VS-200", "1.2.0", "release", "2026-06-10", 8 * MiB, "Texture capture in daylight; bug fixes.",
     "日光下纹理采集；错误修复。", "Texturaufnahme bei Tageslicht; Fehlerbehebungen."},
    {"VS-200", "1.3.0-beta.1", "beta", "2026-10-02", 3 * MiB + 77, "Beta: new meshing engine.",
     "测试版：新的网格引擎。", "Beta: neue Vernetzungs-Engine."},
    {"VS-300 Pro", "2.0.0", "release", "2026-02-01", 1 * MiB + 999, "First release for VS-300 Pro.",
     "VS-300 Pro 首个版本。", "Erste Version für VS-300 Pro."},
    {"VS-300 Pro", "2.1.0", "release", "2026-08-20", 8 * MiB + 12345, "Marker-free tracking; export to 3MF.",
     "无标记跟踪；导出 3MF。", "Markerloses Tracking; Export nach 3MF."},
    {"VS-300 Pro", "2.2.0-beta.1", "beta", "2026-11-01", 2 * MiB + 1, "Beta: colour calibration wizard.",
     "测试版：颜色校准向导。", "Beta: Farbkalibrierungs-Assistent."},
};

// The same file name rule as the client's: one plain name per package.
QString packageName(const QString& model, const QString& version)
{
    QString name = model + QLatin1Char('-') + version;
    for (QChar& c : name) {
        const ushort u = c.unicode();
        if (!((u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9') || u == '.' || u == '_'
              || u == '-'))
            c = QLatin1Char('_');
    }
    return name + QStringLiteral(".vpkg");
}

// "1.3.0-beta.1" < "1.3.0" < "1.10.0".
int compareVersions(const QString& a, const QString& b)
{
    const QString coreA = a.section(QLatin1Char('-'), 0, 0);
    const QString coreB = b.section(QLatin1Char('-'), 0, 0);
    const QStringList partsA = coreA.split(QLatin1Char('.'));
    const QStringList partsB = coreB.split(QLatin1Char('.'));
    for (int i = 0; i < std::max(partsA.size(), partsB.size()); ++i) {
        const qint64 x = i < partsA.size() ? partsA[i].toLongLong() : 0;
        const qint64 y = i < partsB.size() ? partsB[i].toLongLong() : 0;
        if (x != y)
            return x < y ? -1 : 1;
    }
    const QString preA = a.section(QLatin1Char('-'), 1);
    const QString preB = b.section(QLatin1Char('-'), 1);
    if (preA == preB)
        return 0;
    if (preA.isEmpty())
        return 1;
    if (preB.isEmpty())
        return -1;
    return preA < preB ? -1 : 1;
}

struct Package {
    QString model, version, type, date, name, sha256, etag;
    QString signature; // base64 Ed25519 over the canonical bytes; empty when unsigned
    qint64 size = 0;
    int generation = 0;
    bool forced = false;
};

class UpgradeCatalogue {
public:
    UpgradeCatalogue(ServiceContext& context, std::unique_ptr<PackageSigner> signer)
        : m_context(context)
        , m_folder(context.dataDir + QStringLiteral("/packages"))
        , m_signer(std::move(signer))
    {
    }

    // Test control: serve the package with a signature over other bytes
    // ("bad"), without one ("missing"), or correctly again ("none").
    bool setSignatureFault(const Package& p, const QString& fault)
    {
        std::lock_guard<std::mutex> lock(m_faultMutex);
        m_badSignature.erase(p.name);
        m_missingSignature.erase(p.name);
        if (fault == QLatin1String("bad"))
            m_badSignature.insert(p.name);
        else if (fault == QLatin1String("missing"))
            m_missingSignature.insert(p.name);
        else if (fault != QLatin1String("none"))
            return false;
        return true;
    }

    bool build(QString* error)
    {
        if (!m_context.store.execScript(QStringLiteral(
                "CREATE TABLE IF NOT EXISTS upgrade_packages (model_code TEXT NOT NULL, version TEXT NOT NULL, "
                "version_type TEXT NOT NULL, os_types TEXT NOT NULL, release_date TEXT NOT NULL, "
                "package_name TEXT NOT NULL UNIQUE, package_size INTEGER NOT NULL, sha256 TEXT NOT NULL, "
                "generation INTEGER NOT NULL DEFAULT 0, forced INTEGER NOT NULL DEFAULT 0, "
                "PRIMARY KEY (model_code, version));"
                "CREATE TABLE IF NOT EXISTS upgrade_notes (model_code TEXT NOT NULL, version TEXT NOT NULL, "
                "lang TEXT NOT NULL, notes TEXT NOT NULL, PRIMARY KEY (model_code, version, lang));"
                "DELETE FROM upgrade_packages; DELETE FROM upgrade_notes;"),
                error))
            return false;
        if (!QDir().mkpath(m_folder)) {
            *error = QStringLiteral("cannot create %1").arg(m_folder);
            return false;
        }
        bool sizeOk = false;
        const qint64 benchSize = qEnvironmentVariable("NUBRA_DEVCLOUD_PACKAGE_SIZE").toLongLong(&sizeOk);
        for (const Release& r : kReleases) {
            const QString model = QString::fromUtf8(r.model);
            const QString version = QString::fromUtf8(r.version);
            qint64 size = r.size;
            if (sizeOk && benchSize >= 0 && model == QLatin1String("VS-200") && version == QLatin1String("1.2.0"))
                size = benchSize;
            const QString name = packageName(model, version);
            const QString sha = writeGeneratedFile(pathOf(name), size, seedOf(model, version, 0), error);
            if (sha.isEmpty())
                return false;
            m_context.store.query(
                QStringLiteral("INSERT INTO upgrade_packages (model_code, version, version_type, os_types, "
                               "release_date, package_name, package_size, sha256) VALUES (?1, ?2, ?3, 'mac,win', "
                               "?4, ?5, ?6, ?7)"),
                {model, version, QString::fromUtf8(r.type), QString::fromUtf8(r.date), name, size, sha});
            const std::pair<const char*, const char*> notes[] = {{"en", r.notesEn}, {"zh", r.notesZh},
                                                                 {"de", r.notesDe}};
            for (const auto& [lang, text] : notes)
                m_context.store.query(QStringLiteral("INSERT INTO upgrade_notes VALUES (?1, ?2, ?3, ?4)"),
                                      {model, version, QString::fromUtf8(lang), QString::fromUtf8(text)});
        }
        return true;
    }

    QString pathOf(const QString& name) const { return m_folder + QLatin1Char('/') + name; }

    static QString seedOf(const QString& model, const QString& version, int generation)
    {
        return model + QLatin1Char('|') + version + QLatin1Char('|') + QString::number(generation);
    }

    std::vector<Package> packagesOf(const QString& model)
    {
        return select(QStringLiteral("WHERE model_code = ?1"), {model});
    }

    std::optional<Package> find(const QString& model, const QString& version)
    {
        auto found = select(QStringLiteral("WHERE model_code = ?1 AND version = ?2"), {model, version});
        if (found.empty())
            return std::nullopt;
        return found.front();
    }

    std::optional<Package> byName(const QString& name)
    {
        auto found = select(QStringLiteral("WHERE package_name = ?1"), {name});
        if (found.empty())
            return std::nullopt;
        return found.front();
    }

    QString notes(const Package& p, const QString& lang)
    {
        QVariant text = m_context.store.scalar(
            QStringLiteral("SELECT notes FROM upgrade_notes WHERE model_code = ?1 AND version = ?2 AND lang = ?3"),
            {p.model, p.version, lang});
        if (!text.isValid())
            text = m_context.store.scalar(QStringLiteral("SELECT notes FROM upgrade_notes WHERE model_code = ?1 AND "
                                                         "version = ?2 AND lang = 'en'"),
                                          {p.model, p.version});
        return text.toString();
    }

    // A new build of the same version: new bytes, new digest, new ETag.
    std::optional<Package> republish(const Package& p, QString* error)
    {
        std::lock_guard<std::mutex> lock(m_writeMutex);
        const int generation = p.generation + 1;
        const QString sha = writeGeneratedFile(pathOf(p.name), p.size, seedOf(p.model, p.version, generation), error);
        if (sha.isEmpty())
            return std::nullopt;
        m_context.store.query(QStringLiteral("UPDATE upgrade_packages SET sha256 = ?1, generation = ?2 WHERE "
                                             "package_name = ?3"),
                              {sha, generation, p.name});
        return byName(p.name);
    }

    // Flips one byte of the served file; the catalogue keeps the old digest.
    bool corrupt(const Package& p)
    {
        std::lock_guard<std::mutex> lock(m_writeMutex);
        QFile file(pathOf(p.name));
        if (p.size == 0 || !file.open(QIODevice::ReadWrite) || !file.seek(p.size / 3))
            return false;
        char byte = 0;
        if (!file.getChar(&byte) || !file.seek(p.size / 3))
            return false;
        return file.putChar(char(byte ^ 0xff));
    }

private:
    std::vector<Package> select(const QString& where, const QVariantList& params)
    {
        std::vector<Package> out;
        const auto rows = m_context.store.query(
            QStringLiteral("SELECT model_code, version, version_type, release_date, package_name, package_size, "
                           "sha256, generation, forced FROM upgrade_packages ")
                + where,
            params);
        if (!rows)
            return out;
        for (const auto& row : *rows) {
            Package p;
            p.model = row[0].toString();
            p.version = row[1].toString();
            p.type = row[2].toString();
            p.date = row[3].toString();
            p.name = row[4].toString();
            p.size = row[5].toLongLong();
            p.sha256 = row[6].toString();
            p.generation = row[7].toInt();
            p.forced = row[8].toInt() != 0;
            p.etag = QStringLiteral("\"%1-%2\"").arg(p.sha256.left(24)).arg(p.generation);
            p.signature = signatureOf(p);
            out.push_back(p);
        }
        std::sort(out.begin(), out.end(),
                  [](const Package& a, const Package& b) { return compareVersions(a.version, b.version) < 0; });
        return out;
    }

    QString signatureOf(const Package& p)
    {
        if (!m_signer)
            return {};
        std::lock_guard<std::mutex> lock(m_faultMutex);
        if (m_missingSignature.count(p.name))
            return {};
        if (m_badSignature.count(p.name)) // a valid signature, of another size
            return m_signer->sign(p.model, p.version, p.size + 1, p.sha256);
        return m_signer->sign(p.model, p.version, p.size, p.sha256);
    }

    ServiceContext& m_context;
    QString m_folder;
    std::unique_ptr<PackageSigner> m_signer;
    std::mutex m_writeMutex;
    std::mutex m_faultMutex; // guards the two sets below
    std::set<QString> m_badSignature;
    std::set<QString> m_missingSignature;
};

QJsonObject packageEntry(const Package& p)
{
    return {{QStringLiteral("modelCode"), p.model},
            {QStringLiteral("version"), p.version},
            {QStringLiteral("versionType"), p.type},
            {QStringLiteral("releaseDate"), p.date},
            {QStringLiteral("packageName"), p.name},
            {QStringLiteral("packageSize"), double(p.size)},
            {QStringLiteral("sha256"), p.sha256},
            {QStringLiteral("etag"), p.etag},
            {QStringLiteral("url"), QStringLiteral("/packages/") + p.name},
            {QStringLiteral("signature"), p.signature}};
}

// "release" sees releases; "beta" sees releases and betas.
bool typeAllowed(const QString& wanted, const QString& type)
{
    return type == QLatin1String("release") || wanted == QLatin1String("beta");
}

bool knownVersionType(const QString& type)
{
    return type == QLatin1String("release") || type == QLatin1String("beta");
}

void checkUpgrade(UpgradeCatalogue& catalogue, ApiCall& call)
{
    const QString model = call.arg(QStringLiteral("modelCode")).toString();
    const QString current = call.arg(QStringLiteral("version")).toString();
    const QString type = call.arg(QStringLiteral("versionType")).toString().isEmpty()
        ? QStringLiteral("release")
        : call.arg(QStringLiteral("versionType")).toString();
    const QString lang = call.arg(QStringLiteral("langType")).toString();
    const int maxPatch = call.arg(QStringLiteral("maxPatch")).toInt(10);
    if (model.isEmpty() || current.isEmpty()) {
        replyFailure(call, 400, QStringLiteral("badRequest"), QStringLiteral("\"modelCode\" and \"version\" are required"));
        return;
    }
    if (!knownVersionType(type)) {
        replyFailure(call, 400, QStringLiteral("badRequest"),
                     QStringLiteral("\"versionType\" must be \"release\" or \"beta\""));
        return;
    }
    const auto packages = catalogue.packagesOf(model);
    if (packages.empty()) {
        replyFailure(call, 404, QStringLiteral("unknownModel"), QStringLiteral("no software for model %1").arg(model));
        return;
    }
    std::vector<Package> newer;
    for (const Package& p : packages)
        if (typeAllowed(type, p.type) && compareVersions(p.version, current) > 0)
            newer.push_back(p);
    QJsonObject result{{QStringLiteral("modelCode"), model},
                       {QStringLiteral("currentVersion"), current},
                       {QStringLiteral("versionType"), type},
                       {QStringLiteral("langType"), lang}};
    if (newer.empty()) {
        result.insert(QStringLiteral("hasUpgrade"), false);
        result.insert(QStringLiteral("version"), current);
        replySuccess(call, result);
        return;
    }
    const Package& latest = newer.back();
    const QJsonObject entry = packageEntry(latest);
    for (auto it = entry.begin(); it != entry.end(); ++it)
        result.insert(it.key(), it.value());
    result.insert(QStringLiteral("hasUpgrade"), true);
    result.insert(QStringLiteral("forced"), latest.forced);
    result.insert(QStringLiteral("releaseNotes"), catalogue.notes(latest, lang));
    // The versions skipped on the way, newest last, at most maxPatch.
    QJsonArray patches;
    const size_t keep = size_t(std::max(0, maxPatch));
    for (size_t i = newer.size() > keep ? newer.size() - keep : 0; i < newer.size(); ++i)
        patches.append(QJsonObject{{QStringLiteral("version"), newer[i].version},
                                   {QStringLiteral("versionType"), newer[i].type},
                                   {QStringLiteral("releaseDate"), newer[i].date},
                                   {QStringLiteral("releaseNotes"), catalogue.notes(newer[i], lang)}});
    result.insert(QStringLiteral("patches"), patches);
    replySuccess(call, result);
}

void packageInfo(UpgradeCatalogue& catalogue, ApiCall& call)
{
    const QString model = call.arg(QStringLiteral("modelCode")).toString();
    const QString version = call.arg(QStringLiteral("version")).toString();
    const auto package = catalogue.find(model, version);
    if (!package) {
        replyFailure(call, 404, QStringLiteral("unknownPackage"),
                     QStringLiteral("no package for %1 version %2").arg(model, version));
        return;
    }
    QJsonObject entry = packageEntry(*package);
    entry.insert(QStringLiteral("releaseNotes"), catalogue.notes(*package, call.arg(QStringLiteral("langType")).toString()));
    replySuccess(call, entry);
}

// The general catalogue's "upgrade": the versions available per model.
// "checkModels" lists more models (strings, or objects with "modelCode"
// and an optional "version" to see only newer ones); "checkModulars" names
// add-on modules, which this cloud has none of.
void generalUpgrade(UpgradeCatalogue& catalogue, ApiCall& call)
{
    const QString type = call.arg(QStringLiteral("versionType")).toString().isEmpty()
        ? QStringLiteral("release")
        : call.arg(QStringLiteral("versionType")).toString();
    if (!knownVersionType(type)) {
        replyFailure(call, 400, QStringLiteral("badRequest"),
                     QStringLiteral("\"versionType\" must be \"release\" or \"beta\""));
        return;
    }
    const int maxPatch = std::max(0, call.arg(QStringLiteral("maxPtach")).toInt(10));
    QList<QPair<QString, QString>> wanted;
    const QString mainModel = call.arg(QStringLiteral("modelCode")).toString();
    if (!mainModel.isEmpty())
        wanted.append({mainModel, QString()});
    for (const QJsonValue& item : call.arg(QStringLiteral("checkModels")).toArray()) {
        if (item.isString())
            wanted.append({item.toString(), QString()});
        else if (item.isObject())
            wanted.append({item.toObject().value(QStringLiteral("modelCode")).toString(),
                           item.toObject().value(QStringLiteral("version")).toString()});
    }
    if (wanted.isEmpty()) {
        replyFailure(call, 400, QStringLiteral("badRequest"), QStringLiteral("name a model in \"modelCode\" or \"checkModels\""));
        return;
    }
    QJsonArray models;
    for (const auto& [model, since] : wanted) {
        std::vector<Package> list;
        for (const Package& p : catalogue.packagesOf(model))
            if (typeAllowed(type, p.type) && (since.isEmpty() || compareVersions(p.version, since) > 0))
                list.push_back(p);
        QJsonArray versions;
        for (size_t i = list.size() > size_t(maxPatch) ? list.size() - size_t(maxPatch) : 0; i < list.size(); ++i)
            versions.append(packageEntry(list[i]));
        QJsonObject entry{{QStringLiteral("modelCode"), model}, {QStringLiteral("versions"), versions}};
        if (!list.empty())
            entry.insert(QStringLiteral("latest"), list.back().version);
        models.append(entry);
    }
    QJsonArray modulars;
    for (const QJsonValue& item : call.arg(QStringLiteral("checkModulars")).toArray())
        modulars.append(QJsonObject{{QStringLiteral("name"), item.toString()}, {QStringLiteral("available"), false}});
    replySuccess(call, QJsonObject{{QStringLiteral("versionType"), type},
                                   {QStringLiteral("osType"), call.arg(QStringLiteral("osType")).toString()},
                                   {QStringLiteral("models"), models},
                                   {QStringLiteral("modulars"), modulars}});
}

QJsonObject jsonBody(const httplib::Request& request)
{
    return QJsonDocument::fromJson(QByteArray::fromStdString(request.body)).object();
}

void failJson(httplib::Response& response, int status, const QString& code, const QString& message)
{
    writeJson(response, status,
              {{QStringLiteral("status"), QStringLiteral("failure")},
               {QStringLiteral("code"), code},
               {QStringLiteral("message"), message}});
}

} // namespace

void registerUpgradeService(ServiceContext& context)
{
    // Lives as long as the process: handlers keep a pointer to it.
    static UpgradeCatalogue* catalogue = nullptr;
    QString error;
    auto signer = PackageSigner::loadOrCreate(context.dataDir, &error);
    if (signer) {
        context.configSections.insert(
            QStringLiteral("upgrade"),
            QJsonObject{{QStringLiteral("signingKeys"),
                         QJsonArray{QJsonObject{{QStringLiteral("name"), QStringLiteral("nubra-devcloud")},
                                                {QStringLiteral("publicKey"), signer->publicKeyBase64()}}}}});
    } else {
        std::fprintf(stderr, "nubra-devcloud: the catalogue goes unsigned: %s\n", qPrintable(error));
    }
    catalogue = new UpgradeCatalogue(context, std::move(signer));
    if (!catalogue->build(&error))
        std::fprintf(stderr, "nubra-devcloud: upgrade catalogue: %s\n", qPrintable(error));

    using Auth = ApiRouter::Auth;
    UpgradeCatalogue* c = catalogue;
    context.router.add(QStringLiteral("upgradeCheck"), QStringLiteral("POST"), QStringLiteral("/api/v1/upgrade/check"),
                       Auth::None, [c](ApiCall& call) { checkUpgrade(*c, call); });
    context.router.add(QStringLiteral("upgradePackage"), QStringLiteral("POST"),
                       QStringLiteral("/api/v1/upgrade/package"), Auth::None,
                       [c](ApiCall& call) { packageInfo(*c, call); });
    context.router.add(QStringLiteral("upgrade"), QStringLiteral("POST"), QStringLiteral("/api/v1/upgrade"),
                       Auth::None, [c](ApiCall& call) { generalUpgrade(*c, call); });

    context.server.Get(R"(/packages/([A-Za-z0-9._-]+))", [c](const httplib::Request& request,
                                                             httplib::Response& response) {
        const QString name = QString::fromStdString(request.matches[1]);
        const auto package = c->byName(name);
        if (!package) {
            failJson(response, 404, QStringLiteral("unknownPackage"), QStringLiteral("no package %1").arg(name));
            return;
        }
        serveFile(request, response,
                  ServedFile{c->pathOf(name).toStdString(), package->size, package->etag.toStdString(),
                             "application/octet-stream", "/packages/" + name.toStdString()});
    });

    // Test controls: {"modelCode", "version"}.
    context.server.Post("/devcloud/upgrade/corrupt", [c](const httplib::Request& request, httplib::Response& response) {
        const QJsonObject body = jsonBody(request);
        const auto package = c->find(body.value(QStringLiteral("modelCode")).toString(),
                                     body.value(QStringLiteral("version")).toString());
        if (!package || !c->corrupt(*package)) {
            failJson(response, 404, QStringLiteral("unknownPackage"), QStringLiteral("no such package to corrupt"));
            return;
        }
        writeJson(response, 200, {{QStringLiteral("status"), QStringLiteral("success")},
                                  {QStringLiteral("result"), packageEntry(*package)}});
    });
    context.server.Post("/devcloud/upgrade/signature", [c](const httplib::Request& request,
                                                           httplib::Response& response) {
        const QJsonObject body = jsonBody(request);
        const auto package = c->find(body.value(QStringLiteral("modelCode")).toString(),
                                     body.value(QStringLiteral("version")).toString());
        if (!package || !c->setSignatureFault(*package, body.value(QStringLiteral("fault")).toString())) {
            failJson(response, 404, QStringLiteral("badSignatureFault"),
                     QStringLiteral("needs a catalogue package and \"fault\": \"bad\", \"missing\" or \"none\""));
            return;
        }
        writeJson(response, 200, {{QStringLiteral("status"), QStringLiteral("success")},
                                  {QStringLiteral("result"), packageEntry(*c->find(package->model, package->version))}});
    });
    context.server.Post("/devcloud/upgrade/republish", [c](const httplib::Request& request,
                                                           httplib::Response& response) {
        const QJsonObject body = jsonBody(request);
        const auto package = c->find(body.value(QStringLiteral("modelCode")).toString(),
                                     body.value(QStringLiteral("version")).toString());
        QString failure;
        const auto fresh = package ? c->republish(*package, &failure) : std::nullopt;
        if (!fresh) {
            failJson(response, package ? 500 : 404, QStringLiteral("republishFailed"),
                     package ? failure : QStringLiteral("no such package"));
            return;
        }
        writeJson(response, 200, {{QStringLiteral("status"), QStringLiteral("success")},
                                  {QStringLiteral("result"), packageEntry(*fresh)}});
    });
}

} // namespace devcloud
