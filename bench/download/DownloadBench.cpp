// SPDX-License-Identifier: MIT
// Download throughput and peak memory of the cloud client against curl,
// both fetching the same package from the same nubra-devcloud on loopback
// in the same run; the package download with its signature checked (the
// dev cloud's key pinned, as the configuration it writes does) and without
// (no key pinned), and the cost of one signature check on its own.
//
//   bench_download [--size BYTES] [--rounds N] [--dir FOLDER]
//
// Prints per-round figures, then medians and our/curl ratios. The client's
// memory is the growth of this process's peak RSS during a download
// (measured for a small package and for the big one, to show that it does
// not depend on the package size); curl's is its whole peak RSS.

#include "upgrade/PackageSignature.h"

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <vector>

extern char** environ;

namespace {

struct Sample {
    double seconds = 0;
    double cpuSeconds = 0; // user + system
    qint64 peakKiB = 0;
    bool ok = false;
};

qint64 statusKiB(const char* field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith(field))
            return line.mid(int(qstrlen(field))).trimmed().split(' ').first().toLongLong();
    return -1;
}

// Resets the peak RSS (VmHWM) to the current RSS.
void resetPeak()
{
    QFile clear(QStringLiteral("/proc/self/clear_refs"));
    if (clear.open(QIODevice::WriteOnly))
        clear.write("5");
}

// Runs a program to its end; time, its peak RSS and whether it succeeded.
Sample runProgram(const std::vector<const char*>& argv)
{
    Sample s;
    QElapsedTimer clock;
    clock.start();
    pid_t pid = 0;
    std::vector<char*> args;
    for (const char* a : argv)
        args.push_back(const_cast<char*>(a));
    args.push_back(nullptr);
    if (posix_spawnp(&pid, argv[0], nullptr, nullptr, args.data(), environ) != 0)
        return s;
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    s.seconds = clock.nsecsElapsed() / 1e9;
    s.peakKiB = usage.ru_maxrss;
    s.cpuSeconds = usage.ru_utime.tv_sec + usage.ru_stime.tv_sec
        + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    s.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return s;
}

Sample runCurl(const QString& url, const QString& out)
{
    const QByteArray u = url.toUtf8();
    const QByteArray o = out.toUtf8();
    return runProgram({"curl", "-s", "-f", "-o", o.constData(), u.constData()});
}

// The peer of a verified package download: curl, then sha256sum.
Sample runSha256sum(const QString& file)
{
    const QByteArray f = file.toUtf8();
    return runProgram({"sh", "-c", "sha256sum \"$0\" > /dev/null", f.constData()});
}

double processCpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Runs one request to its finished() and measures time and peak growth.
Sample runRequest(Nubra::Manager& manager, const QString& name, const QVariantMap& record)
{
    Sample s;
    const double cpuBefore = processCpuSeconds();
    resetPeak();
    const qint64 before = statusKiB("VmHWM:");
    QElapsedTimer clock;
    clock.start();
    Nubra::Reply* reply = manager.request(name, record, {});
    QEventLoop loop;
    QObject::connect(reply, &Nubra::Reply::finished, &loop, [&](const QVariantMap& map) {
        s.ok = map.value(QStringLiteral("status")).toString() == QLatin1String("success");
        if (!s.ok)
            std::fprintf(stderr, "%s failed: %s\n", qPrintable(name),
                         qPrintable(map.value(QStringLiteral("message")).toString()));
        loop.quit();
    });
    loop.exec();
    s.seconds = clock.nsecsElapsed() / 1e9;
    s.peakKiB = statusKiB("VmHWM:") - before;
    s.cpuSeconds = processCpuSeconds() - cpuBefore;
    reply->deleteLater();
    return s;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

// Microseconds per check of one package entry against the pinned keys, as
// the download does it (keys parsed, canonical bytes built, EVP verify);
// the median of several batches.
double signatureCheckMicroseconds(Nubra::Manager& manager, const QVariantMap& upgradeSection)
{
    Nubra::Reply* reply = manager.request(
        QStringLiteral("upgradePackage"),
        {{QStringLiteral("body"), QVariantMap{{"modelCode", "VS-200"}, {"version", "1.2.0"}}}}, {});
    QVariantMap entry;
    QEventLoop loop;
    QObject::connect(reply, &Nubra::Reply::finished, &loop, [&](const QVariantMap& map) {
        entry = map.value(QStringLiteral("result")).toMap();
        loop.quit();
    });
    loop.exec();
    reply->deleteLater();
    const QVariant keys = upgradeSection.value(QStringLiteral("signingKeys"));
    const Nubra::PackageSignature::SignedFields fields{
        QStringLiteral("VS-200"), QStringLiteral("1.2.0"), entry.value(QStringLiteral("packageSize")).toLongLong(),
        entry.value(QStringLiteral("sha256")).toString()};
    const QString signature = entry.value(QStringLiteral("signature")).toString();
    if (Nubra::PackageSignature::checkPackage(keys, fields, signature).signedBy.isEmpty()) {
        std::fprintf(stderr, "the catalogue's signature does not verify\n");
        return -1;
    }
    constexpr int kChecks = 500;
    std::vector<double> batches;
    for (int batch = 0; batch < 7; ++batch) {
        QElapsedTimer clock;
        clock.start();
        for (int i = 0; i < kChecks; ++i)
            if (Nubra::PackageSignature::checkPackage(keys, fields, signature).code != Nubra::Error::NoError)
                return -1;
        batches.push_back(double(clock.nsecsElapsed()) / 1e3 / kChecks);
    }
    return median(batches);
}

bool setUpgradeSection(Nubra::Manager& manager, const QVariantMap& section)
{
    Nubra::Reply* reply = manager.setConfigData({{QStringLiteral("upgrade"), section}}, {});
    bool ok = false;
    QEventLoop loop;
    QObject::connect(reply, &Nubra::Reply::finished, &loop, [&](const QVariantMap& map) {
        ok = map.value(QStringLiteral("status")).toString() == QLatin1String("success");
        loop.quit();
    });
    loop.exec();
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    qint64 size = 1024LL * 1024 * 1024;
    int rounds = 3;
    QString dir = QDir::tempPath();
    const QStringList args = app.arguments();
    for (int i = 1; i + 1 < args.size(); i += 2) {
        if (args[i] == QLatin1String("--size"))
            size = args[i + 1].toLongLong();
        else if (args[i] == QLatin1String("--rounds"))
            rounds = std::max(1, args[i + 1].toInt());
        else if (args[i] == QLatin1String("--dir"))
            dir = args[i + 1];
    }

    QTemporaryDir work(dir + QStringLiteral("/bench-download-XXXXXX"));
    if (!work.isValid())
        return 1;
    QProcess cloud;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("NUBRA_DEVCLOUD_PACKAGE_SIZE"), QString::number(size));
    cloud.setProcessEnvironment(env);
    cloud.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    const QString config = work.path() + QStringLiteral("/config.json");
    cloud.start(QStringLiteral(VORN_DEVCLOUD_BINARY),
                {QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--data"), work.path() + "/cloud",
                 QStringLiteral("--write-config"), config});
    QString baseUrl;
    QElapsedTimer startClock;
    startClock.start();
    while (baseUrl.isEmpty() && startClock.elapsed() < 120000 && cloud.waitForReadyRead(120000)) {
        const auto match = QRegularExpression(QStringLiteral("listening on (\\S+)"))
                               .match(QString::fromUtf8(cloud.readAllStandardOutput()));
        if (match.hasMatch())
            baseUrl = match.captured(1);
    }
    if (baseUrl.isEmpty()) {
        std::fprintf(stderr, "nubra-devcloud did not start\n");
        return 1;
    }
    const QString url = baseUrl + QStringLiteral("/packages/VS-200-1.2.0.vpkg");

    Nubra::Manager manager;
    {
        Nubra::Reply* r = manager.setConfigPath(config, {});
        QEventLoop loop;
        QObject::connect(r, &Nubra::Reply::finished, &loop, &QEventLoop::quit);
        loop.exec();
    }
    const QString packages = work.path() + QStringLiteral("/packages");
    runRequest(manager, QStringLiteral("autoUpgrade:setAutoUpgradeConfig"),
               {{QStringLiteral("VS-200"), QVariantMap{{"modelCode", "VS-200"}, {"version", "1.0.0"},
                                                       {"versionType", "release"}, {"langType", "en"},
                                                       {"osType", "mac"}, {"maxPatch", 10}}},
                {QStringLiteral("VS-300 Pro"), QVariantMap{{"modelCode", "VS-300 Pro"}, {"version", "2.0.0"},
                                                           {"versionType", "release"}, {"langType", "en"},
                                                           {"osType", "mac"}, {"maxPatch", 10}}},
                {QStringLiteral("checkInterval"), 10},
                {QStringLiteral("path"), packages}});

    // Memory for a small package (8 MiB) first, as the reference.
    const Sample small = runRequest(manager, QStringLiteral("autoUpgrade:startDownload"),
                                    {{"upgrades", QVariantList{QVariantMap{{"modelCode", "VS-300 Pro"},
                                                                           {"version", "2.1.0"}}}}});
    QFile::remove(packages + "/VS-300_Pro-2.1.0.vpkg");

    const QVariantMap signedSection = manager.configData().value(QStringLiteral("upgrade")).toMap();
    if (signedSection.value(QStringLiteral("signingKeys")).toList().isEmpty()) {
        std::fprintf(stderr, "the dev cloud's configuration pins no signing key\n");
        return 1;
    }
    const double checkMicroseconds = signatureCheckMicroseconds(manager, signedSection);
    if (checkMicroseconds < 0)
        return 1;

    std::printf("package %lld bytes from %s, %d rounds\n", size, qPrintable(url), rounds);
    std::printf("%-6s %10s %10s %12s %12s %14s %14s %9s %9s %9s\n", "round", "curl MB/s", "file MB/s",
                "signed MB/s", "unsigned MB/s", "curl peak KiB", "ours +peak KiB", "curl CPU", "file CPU",
                "pkg CPU");
    std::vector<double> curlRates, curlHashRates, fileRates, packageRates, unsignedRates, ourPeaks, curlPeaks;
    const double mb = double(size) / 1e6;
    for (int round = 1; round <= rounds; ++round) {
        const QString curlOut = work.path() + QStringLiteral("/curl.out");
        const Sample c = runCurl(url, curlOut);
        const Sample h = runSha256sum(curlOut);
        QFile::remove(curlOut);
        const QString fileOut = work.path() + QStringLiteral("/file.out");
        const Sample f = runRequest(manager, QStringLiteral("startDownload"),
                                    {{QStringLiteral("urls"), url}, {QStringLiteral("path"), fileOut}});
        QFile::remove(fileOut);
        const Sample p = runRequest(manager, QStringLiteral("autoUpgrade:startDownload"),
                                    {{"upgrades", QVariantList{QVariantMap{{"modelCode", "VS-200"},
                                                                           {"version", "1.2.0"}}}}});
        QFile::remove(packages + "/VS-200-1.2.0.vpkg");
        // The same package with no key pinned: no signature check.
        if (!setUpgradeSection(manager, {}))
            return 1;
        const Sample u = runRequest(manager, QStringLiteral("autoUpgrade:startDownload"),
                                    {{"upgrades", QVariantList{QVariantMap{{"modelCode", "VS-200"},
                                                                           {"version", "1.2.0"}}}}});
        QFile::remove(packages + "/VS-200-1.2.0.vpkg");
        if (!setUpgradeSection(manager, signedSection))
            return 1;
        if (!c.ok || !f.ok || !p.ok || !u.ok) {
            std::fprintf(stderr, "round %d failed (curl %d, file %d, signed package %d, unsigned package %d)\n",
                         round, c.ok, f.ok, p.ok, u.ok);
            return 1;
        }
        curlRates.push_back(mb / c.seconds);
        curlHashRates.push_back(mb / (c.seconds + h.seconds));
        fileRates.push_back(mb / f.seconds);
        packageRates.push_back(mb / p.seconds);
        unsignedRates.push_back(mb / u.seconds);
        curlPeaks.push_back(double(c.peakKiB));
        ourPeaks.push_back(double(std::max(f.peakKiB, p.peakKiB)));
        std::printf("%-6d %10.0f %10.0f %12.0f %12.0f %14lld %14lld %8.2fs %8.2fs %8.2fs\n", round,
                    curlRates.back(), fileRates.back(), packageRates.back(), unsignedRates.back(), c.peakKiB,
                    std::max(f.peakKiB, p.peakKiB), c.cpuSeconds, f.cpuSeconds, p.cpuSeconds);
    }
    const double curlRate = median(curlRates);
    std::printf("\nmedian curl:             %8.0f MB/s\n", curlRate);
    std::printf("median file download:    %8.0f MB/s  ratio %.2f\n", median(fileRates),
                median(fileRates) / curlRate);
    std::printf("median package download: %8.0f MB/s  ratio %.2f (signature and SHA-256 checked)\n",
                median(packageRates), median(packageRates) / curlRate);
    std::printf("  same, no key pinned:   %8.0f MB/s  ratio %.2f (SHA-256 only)\n", median(unsignedRates),
                median(unsignedRates) / curlRate);
    std::printf("signature check: %.1f us per package (median of 7 batches of 500)\n", checkMicroseconds);
    std::printf("median curl + sha256sum: %8.0f MB/s  package download / that: %.2f\n", median(curlHashRates),
                median(packageRates) / median(curlHashRates));
    std::printf("peak memory: curl %0.f KiB total; client growth %lld KiB for 8 MiB, %.0f KiB for %lld bytes\n",
                median(curlPeaks), small.peakKiB, median(ourPeaks), size);

    cloud.terminate();
    cloud.waitForFinished(10000);
    return 0;
}
