// SPDX-License-Identifier: MIT
// Plain files for "startDownload": a few generated files served with range
// support, their listing, and the transfer test controls (stats, faults).

#include "Services.h"

#include "FileServing.h"
#include "GeneratedFile.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>

#include <cstdio>
#include <map>

namespace devcloud {

namespace {

struct PlainFile {
    QString name;
    qint64 size = 0;
    QString sha256;
};

// Sizes chosen to end off block boundaries.
const std::pair<const char*, qint64> kFiles[] = {
    {"scanner-manual.pdf", 300 * 1024 + 7},
    {"calibration-board.bin", 6 * 1024 * 1024 + 13},
    {"sample-scan.vscan", 2 * 1024 * 1024 + 501},
    {"empty.txt", 0},
};

} // namespace

void registerFilesService(ServiceContext& context)
{
    const QString folder = context.dataDir + QStringLiteral("/files");
    QDir().mkpath(folder);
    // Filled before the server starts; read-only afterwards.
    static std::map<QString, PlainFile> files;
    files.clear();
    for (const auto& [name, size] : kFiles) {
        QString error;
        const QString fileName = QString::fromUtf8(name);
        const QString sha =
            writeGeneratedFile(folder + QLatin1Char('/') + fileName, size, QStringLiteral("file|") + fileName, &error);
        if (sha.isEmpty()) {
            std::fprintf(stderr, "nubra-devcloud: %s\n", qPrintable(error));
            continue;
        }
        files[fileName] = PlainFile{fileName, size, sha};
    }

    context.server.Get(R"(/files/([A-Za-z0-9._-]+))", [folder](const httplib::Request& request,
                                                               httplib::Response& response) {
        const QString name = QString::fromStdString(request.matches[1]);
        auto it = files.find(name);
        if (it == files.end()) {
            writeJson(response, 404,
                      {{QStringLiteral("status"), QStringLiteral("failure")},
                       {QStringLiteral("code"), QStringLiteral("notFound")},
                       {QStringLiteral("message"), QStringLiteral("no file %1").arg(name)}});
            return;
        }
        serveFile(request, response,
                  ServedFile{(folder + QLatin1Char('/') + name).toStdString(), it->second.size,
                             "\"" + it->second.sha256.left(32).toStdString() + "\"", "application/octet-stream",
                             "/files/" + name.toStdString()});
    });

    const QString base = context.baseUrl;
    context.server.Get("/devcloud/files", [base](const httplib::Request&, httplib::Response& response) {
        QJsonArray list;
        for (const auto& [name, file] : files)
            list.append(QJsonObject{{QStringLiteral("name"), name},
                                    {QStringLiteral("size"), double(file.size)},
                                    {QStringLiteral("sha256"), file.sha256},
                                    {QStringLiteral("url"), base + QStringLiteral("/files/") + name}});
        writeJson(response, 200, {{QStringLiteral("status"), QStringLiteral("success")},
                                  {QStringLiteral("result"), QJsonObject{{QStringLiteral("files"), list}}}});
    });

    registerTransferAdmin(context.server);
}

} // namespace devcloud
