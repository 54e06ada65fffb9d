// Nubra::Json against the QJsonDocument path the client used before, on a
// typical API answer (parse to QVariantMap) and a typical request body (write
// from QVariantMap). Prints ns per operation, medians of several runs, and
// Qt / ours (higher is better for us). Checks first that both give the same
// result.
//
//   bench_json [runs=15] [operations-per-run=20000]

#include "core/JsonCodec.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QVariantMap>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

const QByteArray kAnswer = R"({"status":"success","result":{"sn":"VS2024000123","action":"upgrade",)"
                           R"("version":"2.4.1","size":48213760,"retryAfter":30,"ratio":0.75,"online":true,)"
                           R"("owner":null,"channels":["stable","beta"],"updated":"2024-06-01T12:00:00Z",)"
                           R"("limits":{"daily":5,"used":2}}})";

QVariantMap requestBody()
{
    return {{"sn", "VS2024000123"},
            {"token", "b3f1c2d4e5f60718293a4b5c6d7e8f90"},
            {"appVersion", "1.0.0"},
            {"page", 1},
            {"pageSize", 50},
            {"filters", QVariantList{"photo", "video"}},
            {"includeShared", true}};
}

volatile int g_sink; // keeps the compiler from dropping the work

template <typename Work>
double medianNs(int runs, int operations, Work work)
{
    for (int i = 0; i < operations / 10; ++i)
        work();
    std::vector<double> samples;
    for (int r = 0; r < runs; ++r) {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < operations; ++i)
            work();
        const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
        samples.push_back(elapsed.count() / operations);
    }
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

void report(const char* what, double qt, double ours)
{
    std::printf("%-34s Qt %8.0f ns/op   ours %8.0f ns/op   Qt/ours %5.2f\n", what, qt, ours, qt / ours);
}

} // namespace

int main(int argc, char** argv)
{
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 15;
    const int operations = argc > 2 ? std::max(1, std::atoi(argv[2])) : 20000;

    QVariantMap parsed;
    QString error;
    const QVariantMap qtParsed = QJsonDocument::fromJson(kAnswer).object().toVariantMap();
    const QVariantMap body = requestBody();
    const QByteArray qtWritten = QJsonDocument(QJsonObject::fromVariantMap(body)).toJson(QJsonDocument::Compact);
    if (!Nubra::Json::parseObject(kAnswer, &parsed, &error) || parsed != qtParsed
        || Nubra::Json::writeObject(body) != qtWritten) {
        std::fprintf(stderr, "bench_json: results differ from Qt's\n");
        return 1;
    }
    std::printf("answer %d bytes, request body %d bytes; median of %d runs of %d operations\n", kAnswer.size(),
                qtWritten.size(), runs, operations);

    const double qtParse = medianNs(runs, operations, [] {
        g_sink = QJsonDocument::fromJson(kAnswer).object().toVariantMap().size();
    });
    const double ourParse = medianNs(runs, operations, [] {
        QVariantMap map;
        Nubra::Json::parseObject(kAnswer, &map, nullptr);
        g_sink = map.size();
    });
    report("parse answer to QVariantMap", qtParse, ourParse);

    const double qtWrite = medianNs(runs, operations, [&body] {
        g_sink = QJsonDocument(QJsonObject::fromVariantMap(body)).toJson(QJsonDocument::Compact).size();
    });
    const double ourWrite = medianNs(runs, operations, [&body] { g_sink = Nubra::Json::writeObject(body).size(); });
    report("write request body from QVariantMap", qtWrite, ourWrite);
    return 0;
}
