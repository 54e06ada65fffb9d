// SPDX-License-Identifier: MIT
// Upload throughput over loopback: nubra's upload queue ("UploadCloudSpaceFile"
// + "startUpload:start") against `curl -T` sending the same file to the same
// endpoint of a private nubra-devcloud. Ours includes everything the queue
// does per file (SHA-256 pass over the file, the "already there?" question,
// the streamed upload, the server's digest check); curl only sends.
//
//   bench_upload [MiB per file = 256] [rounds = 3]
//
// Each round writes a fresh random file, then uploads it with both (the
// order alternates between rounds). Prints each round and the medians; exit
// status 2 when the median ratio is below the 0.80 target.

#include "DevCloudProcess.h"
#include "TestFiles.h"
#include "Waiting.h"

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

// Runs one request to its end; firstProgress (if given) receives the time of
// the first upload progress report.
QVariantMap run(Nubra::Manager& manager, const QString& name, const QVariantMap& record,
                QElapsedTimer* firstProgress = nullptr)
{
    Nubra::Reply* reply = manager.request(name, record, {});
    if (firstProgress)
        QObject::connect(reply, &Nubra::Reply::uploadProgress, reply, [firstProgress](qint64 sent, qint64) {
            if (sent > 0 && !firstProgress->isValid())
                firstProgress->start();
        });
    return VornTest::finishOf(reply, 600000);
}

QVariantMap resultOf(const QVariantMap& answer) { return answer.value(QStringLiteral("result")).toMap(); }

// CPU seconds (user + system) of this process or of its waited-for children.
double cpuSeconds(int who)
{
    rusage usage{};
    getrusage(who, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const qint64 mib = argc > 1 ? qMax(1, atoi(argv[1])) : 256;
    const int rounds = argc > 2 ? qMax(1, atoi(argv[2])) : 3;
    const qint64 bytes = mib * 1024 * 1024;
    if (QStandardPaths::findExecutable(QStringLiteral("curl")).isEmpty()) {
        std::fprintf(stderr, "bench_upload: curl not found\n");
        return 1;
    }

    VornTest::DevCloudProcess cloud;
    if (!cloud.start()) {
        std::fprintf(stderr, "bench_upload: nubra-devcloud did not start:\n%s\n", qPrintable(cloud.output()));
        return 1;
    }
    Nubra::Manager manager;
    VornTest::loadConfig(manager, cloud.configPath());

    const QVariantMap login = run(manager, QStringLiteral("userLogin"),
                                  {{QStringLiteral("body"), QVariantMap{{"account", "demo@vorn.example"},
                                                                        {"password", "scan3d!"}}}});
    const QString token = resultOf(login).value(QStringLiteral("token")).toString();
    const QVariantMap auth{{QStringLiteral("X-Auth-Token"), token}};
    const QVariantList spaces =
        resultOf(run(manager, QStringLiteral("fetchFrontSpace"), {{QStringLiteral("headers"), auth}}))
            .value(QStringLiteral("spaces"))
            .toList();
    if (token.isEmpty() || spaces.size() < 2) {
        std::fprintf(stderr, "bench_upload: cannot sign in or list spaces\n");
        return 1;
    }
    // Ours and curl upload into different spaces, so that ours is never
    // skipped as "already there" because of curl's upload.
    const auto tokenFor = [&](const QVariant& space) {
        return resultOf(run(manager, QStringLiteral("sdkDynamicEncodeToken"),
                            {{QStringLiteral("headers"), auth},
                             {QStringLiteral("body"),
                              QVariantMap{{"spaceId", space.toMap().value(QStringLiteral("spaceId"))}}}}))
            .value(QStringLiteral("uploadToken"))
            .toString();
    };
    const QString oursToken = tokenFor(spaces[0]);
    const QString curlToken = tokenFor(spaces[1]);

    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("bench.bin"));
    std::vector<double> oursMiBs, curlMiBs, ratios;
    std::printf("upload of %lld MiB over loopback to nubra-devcloud, %d rounds\n", mib, rounds);
    for (int round = 0; round < rounds; ++round) {
        // A few KiB more each round: a file of the same size as one already
        // in the space would add a hashing pass before sending (the "maybe
        // it is there" path), which a fresh scan file does not pay.
        if (!VornTest::writeRandomFile(path, bytes + round * 4096)) {
            std::fprintf(stderr, "bench_upload: cannot write %s\n", qPrintable(path));
            return 1;
        }
        double oursSeconds = 0, curlSeconds = 0, sendSeconds = 0, oursCpu = 0, curlCpu = 0;
        const auto runOurs = [&] {
            QElapsedTimer clock;
            clock.start();
            const double cpuBefore = cpuSeconds(RUSAGE_SELF);
            run(manager, QStringLiteral("UploadCloudSpaceFile"),
                {{QStringLiteral("params"), QVariantMap{{"files", QStringList{path}}, {"uploadToken", oursToken}}}});
            QElapsedTimer sending;
            const QVariantMap answer = run(manager, QStringLiteral("startUpload:start"), {}, &sending);
            oursSeconds = clock.nsecsElapsed() / 1e9;
            oursCpu = cpuSeconds(RUSAGE_SELF) - cpuBefore;
            sendSeconds = sending.isValid() ? sending.nsecsElapsed() / 1e9 : oursSeconds;
            if (resultOf(answer).value(QStringLiteral("uploaded")).toInt() != 1) {
                std::fprintf(stderr, "bench_upload: our upload failed: %s\n",
                             qPrintable(answer.value(QStringLiteral("message")).toString()));
                return false;
            }
            return true;
        };
        const auto runCurl = [&] {
            QProcess curl;
            const QString url = cloud.baseUrl() + QStringLiteral("/api/v1/disk/upload?name=bench.bin");
            QElapsedTimer clock;
            clock.start();
            const double cpuBefore = cpuSeconds(RUSAGE_CHILDREN);
            curl.start(QStringLiteral("curl"), {QStringLiteral("-sS"), QStringLiteral("-o"), QStringLiteral("/dev/null"),
                                                QStringLiteral("-w"), QStringLiteral("%{http_code}"),
                                                QStringLiteral("-H"), QStringLiteral("X-Upload-Token: ") + curlToken,
                                                QStringLiteral("-T"), path, url});
            curl.waitForFinished(600000);
            curlSeconds = clock.nsecsElapsed() / 1e9;
            curlCpu = cpuSeconds(RUSAGE_CHILDREN) - cpuBefore;
            const QByteArray status = curl.readAllStandardOutput();
            if (curl.exitCode() != 0 || status != "200") {
                std::fprintf(stderr, "bench_upload: curl failed (exit %d, HTTP %s)\n", curl.exitCode(),
                             status.constData());
                return false;
            }
            return true;
        };
        const bool ok = round % 2 == 0 ? runOurs() && runCurl() : runCurl() && runOurs();
        if (!ok)
            return 1;
        const double sizeMiB = double(bytes + round * 4096) / (1024 * 1024);
        const double ours = sizeMiB / oursSeconds, peer = sizeMiB / curlSeconds;
        oursMiBs.push_back(ours);
        curlMiBs.push_back(peer);
        ratios.push_back(ours / peer);
        std::printf("round %d: curl %7.1f MiB/s  ours %7.1f MiB/s  ratio %.2f  | client CPU s: curl %.2f, ours %.2f"
                    " | ours: %.2f s before the first byte went out\n",
                    round + 1, peer, ours, ours / peer, curlCpu, oursCpu, oursSeconds - sendSeconds);
    }
    const double ratio = median(ratios);
    std::printf("median:  curl %8.1f MiB/s  ours %8.1f MiB/s  ratio %.2f (target >= 0.80)\n", median(curlMiBs),
                median(oursMiBs), ratio);
    return ratio >= 0.80 ? 0 : 2;
}
