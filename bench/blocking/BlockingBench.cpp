// SPDX-License-Identifier: MIT
// Sequential blocking POST calls per second and their latency, against a
// local nubra-devcloud, for three clients side by side in one run:
//   helper  VornNubraHelper::post (helper + nubra client + libcurl multi on the Qt loop)
//   curl    a bare libcurl easy handle, connection kept alive (the peer)
//   qnam    a bare QNetworkAccessManager waited for in a local QEventLoop
// All three POST the same JSON body to the same endpoint ("getDeviceAction").
// Rounds are interleaved and the median round is reported.
//
//   build/bin/bench_blocking [requests-per-round=1000] [rounds=11] [call-timeout-ms=10000] [only]
// With `only` = helper, curl or qnam, just that client runs (for profiling
// one side with perf or strace); no ratio is printed then. `only` = scripted
// runs the helper against a scripted client that answers on the next loop
// turn: the cost of the helper's own wait, without network or server.
// `only` = client runs the nubra client without the helper: request(),
// a local event loop until finished, deleteLater().

#include <HelperTestAccess.h>
#include <ScriptedService.h>
#include <VornNubraHelper.h>

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <curl/curl.h>
#include <glog/logging.h>

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

const char* const kDevice = "VS2024000123";

struct Figures {
    double perSecond = 0;
    double p50Ms = 0;
    double p99Ms = 0;
    double userUs = 0; // this thread's CPU time per call, user and kernel
    double sysUs = 0;
    int failures = 0;
};

double microseconds(const timeval& t) { return double(t.tv_sec) * 1e6 + double(t.tv_usec); }

// Runs one blocking request `count` times; each call returns true on success.
Figures measure(int count, const std::function<bool()>& call)
{
    std::vector<double> latencies;
    latencies.reserve(size_t(count));
    Figures f;
    rusage before{}, after{};
    getrusage(RUSAGE_THREAD, &before);
    QElapsedTimer total;
    total.start();
    for (int i = 0; i < count; ++i) {
        QElapsedTimer one;
        one.start();
        if (!call())
            ++f.failures;
        latencies.push_back(double(one.nsecsElapsed()) / 1e6);
    }
    const double seconds = double(total.nsecsElapsed()) / 1e9;
    getrusage(RUSAGE_THREAD, &after);
    f.userUs = (microseconds(after.ru_utime) - microseconds(before.ru_utime)) / count;
    f.sysUs = (microseconds(after.ru_stime) - microseconds(before.ru_stime)) / count;
    std::sort(latencies.begin(), latencies.end());
    f.perSecond = count / seconds;
    f.p50Ms = latencies[latencies.size() / 2];
    f.p99Ms = latencies[std::min(latencies.size() - 1, size_t(double(latencies.size()) * 0.99))];
    return f;
}

Figures median(std::vector<Figures> rounds)
{
    std::sort(rounds.begin(), rounds.end(), [](const Figures& a, const Figures& b) { return a.perSecond < b.perSecond; });
    return rounds[rounds.size() / 2];
}

size_t collect(char* data, size_t size, size_t count, void* out)
{
    static_cast<std::string*>(out)->append(data, size * count);
    return size * count;
}

class BareCurl {
public:
    explicit BareCurl(const std::string& url)
        : m_easy(curl_easy_init())
    {
        m_headers = curl_slist_append(m_headers, "Content-Type: application/json");
        m_headers = curl_slist_append(m_headers, "Accept: application/json");
        curl_easy_setopt(m_easy, CURLOPT_URL, url.c_str());
        // The client's User-Agent: both sides put the same bytes on the wire.
        curl_easy_setopt(m_easy, CURLOPT_USERAGENT, "nubra/1.0");
        curl_easy_setopt(m_easy, CURLOPT_HTTPHEADER, m_headers);
        curl_easy_setopt(m_easy, CURLOPT_POSTFIELDS, m_body.c_str());
        curl_easy_setopt(m_easy, CURLOPT_WRITEFUNCTION, &collect);
        curl_easy_setopt(m_easy, CURLOPT_WRITEDATA, &m_answer);
        curl_easy_setopt(m_easy, CURLOPT_NOSIGNAL, 1L);
    }
    ~BareCurl()
    {
        curl_easy_cleanup(m_easy);
        curl_slist_free_all(m_headers);
    }
    bool post()
    {
        m_answer.clear();
        return curl_easy_perform(m_easy) == CURLE_OK && m_answer.find("\"success\"") != std::string::npos;
    }

private:
    CURL* m_easy;
    curl_slist* m_headers = nullptr;
    std::string m_body = std::string("{\"sn\":\"") + kDevice + "\"}";
    std::string m_answer;
};

bool qnamPost(QNetworkAccessManager& manager, const QUrl& url, const QByteArray& body)
{
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    QNetworkReply* reply = manager.post(request, body);
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    const bool ok = reply->error() == QNetworkReply::NoError && reply->readAll().contains("\"success\"");
    reply->deleteLater();
    return ok;
}

void print(const char* name, const Figures& f, int count)
{
    std::printf("%-34s %6d req  %9.0f req/s  p50 %7.3f ms  p99 %7.3f ms  cpu/call %5.1f us user %5.1f us sys"
                "  failures %d\n",
                name, count, f.perSecond, f.p50Ms, f.p99Ms, f.userUs, f.sysUs, f.failures);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int count = argc > 1 ? std::max(10, atoi(argv[1])) : 1000;
    const int rounds = argc > 2 ? std::max(1, atoi(argv[2])) : 11;
    // The blocking call's time-out (ms). Each call leaves its single-shot
    // timer registered until it expires, so at thousands of calls per
    // second the time-out sets how many timers the event loop carries.
    const int callTimeoutMs = argc > 3 ? std::max(100, atoi(argv[3])) : 10000;
    // QNetworkAccessManager waits ~40 ms per POST for the server's delayed
    // ACK; a smaller sample gives the same rate in reasonable time.
    const int qnamCount = std::max(10, count / 20);
    const QString only = argc > 4 ? QString::fromLatin1(argv[4]) : QString();
    if (!only.isEmpty() && only != "helper" && only != "curl" && only != "qnam" && only != "scripted" &&
        only != "client") {
        std::fprintf(stderr, "bench_blocking: the fourth argument is helper, curl, qnam, scripted or client\n");
        return 64;
    }

    QTemporaryDir dir;
    QProcess cloud;
    cloud.setProcessChannelMode(QProcess::MergedChannels);
    cloud.start(QCoreApplication::applicationDirPath() + "/nubra-devcloud",
                {"--port", "0", "--write-config", dir.filePath("config.json"), "--data", dir.filePath("data")});
    QString output, baseUrl;
    const QDeadlineTimer deadline(15000);
    static const QRegularExpression listening("listening on (\\S+)");
    while (baseUrl.isEmpty() && !deadline.hasExpired() && cloud.waitForReadyRead(1000)) {
        output += QString::fromUtf8(cloud.readAll());
        baseUrl = listening.match(output).captured(1);
    }
    if (baseUrl.isEmpty()) {
        std::fprintf(stderr, "bench_blocking: nubra-devcloud did not start: %s\n", qPrintable(output));
        return 1;
    }
    qputenv("NUBRA_CONFIG", dir.filePath("config.json").toUtf8());
    // As in an application: glog initialised, the helper's INFO lines go to
    // a (buffered) log file rather than unbuffered to stderr.
    FLAGS_log_dir = dir.path().toStdString();
    google::InitGoogleLogging(argv[0]);

    const QJsonObject config =
        QJsonDocument::fromJson([&] {
            QFile f(dir.filePath("config.json"));
            f.open(QIODevice::ReadOnly);
            return f.readAll();
        }()).object();
    const QString path =
        config.value("requests").toObject().value("getDeviceAction").toObject().value("path").toString();
    const QUrl url(baseUrl + path);

    VornNubraHelper* helper = VornNubraHelper::getInstance();
    curl_global_init(CURL_GLOBAL_DEFAULT);
    BareCurl curl(url.toString().toStdString());
    QNetworkAccessManager qnam;
    const QByteArray body = QByteArray("{\"sn\":\"") + kDevice + "\"}";

    const auto helperCall = [helper, callTimeoutMs] {
        QVariantMap result;
        return helper->post(NubraCommon::Interface::GetDeviceAction, {{"sn", kDevice}}, result, {}, callTimeoutMs) ==
               NubraCommon::Success;
    };
    const auto curlCall = [&curl] { return curl.post(); };
    Nubra::Manager client;
    client.setConfigPath(dir.filePath("config.json"), {})->deleteLater();
    Nubra::Manager* manager = &client;
    const auto clientCall = [manager] {
        Nubra::Reply* reply = manager->request(QStringLiteral("getDeviceAction"),
                                               {{"body", QVariantMap{{"sn", kDevice}}}}, {});
        bool ok = false;
        QEventLoop loop;
        QObject::connect(reply, &Nubra::Reply::finished, &loop, [&](const QVariantMap& answer) {
            ok = answer.value(QStringLiteral("status")).toString() == QLatin1String("success");
            loop.quit();
        });
        loop.exec(QEventLoop::ExcludeUserInputEvents);
        reply->deleteLater();
        return ok;
    };
    const auto qnamCall = [&] { return qnamPost(qnam, url, body); };

    std::unique_ptr<VornTest::ScriptedService> scripted;
    if (only == "scripted") {
        scripted = std::make_unique<VornTest::ScriptedService>(
            helperManager(), QStringList{QStringLiteral("getDeviceAction")});
        scripted->answerAfter(QStringLiteral("getDeviceAction"), 0,
                              {{"status", "success"}, {"result", QVariantMap{{"sn", kDevice}, {"action", "none"}}}});
    }
    if (!only.isEmpty()) {
        const bool qnamOnly = only == "qnam";
        const auto& call = only == "helper" || only == "scripted" ? std::function<bool()>(helperCall)
                           : only == "client"                     ? std::function<bool()>(clientCall)
                           : only == "curl" ? std::function<bool()>(curlCall)
                                            : std::function<bool()>(qnamCall);
        measure(qnamOnly ? 5 : 100, call);
        std::vector<Figures> figures;
        for (int r = 0; r < rounds; ++r)
            figures.push_back(measure(qnamOnly ? qnamCount : count, call));
        print(qPrintable(only), median(figures), qnamOnly ? qnamCount : count);
        cloud.terminate();
        cloud.waitForFinished(10000);
        return median(figures).failures == 0 ? 0 : 1;
    }

    // Warm up: connections, caches, the devcloud's threads.
    measure(100, helperCall);
    measure(100, clientCall);
    measure(100, curlCall);
    measure(5, qnamCall);

    // The machine is shared: each round measures the peer and ours back
    // to back, and the ratio is taken per round before the median, so that
    // a busy spell hits both sides of a ratio alike.
    std::vector<Figures> helperRounds, clientRounds, curlRounds, qnamRounds;
    std::vector<double> helperRatios, clientRatios, qnamRatios;
    for (int r = 0; r < rounds; ++r) {
        // Rotate which side goes first, so that a slow drift of the
        // machine's load favours none.
        const std::function<void()> steps[] = {
            [&] { curlRounds.push_back(measure(count, curlCall)); },
            [&] { helperRounds.push_back(measure(count, helperCall)); },
            [&] { clientRounds.push_back(measure(count, clientCall)); },
        };
        for (int i = 0; i < 3; ++i)
            steps[(r + i) % 3]();
        qnamRounds.push_back(measure(qnamCount, qnamCall));
        helperRatios.push_back(helperRounds.back().perSecond / curlRounds.back().perSecond);
        clientRatios.push_back(clientRounds.back().perSecond / curlRounds.back().perSecond);
        qnamRatios.push_back(qnamRounds.back().perSecond / curlRounds.back().perSecond);
    }
    const Figures h = median(helperRounds), n = median(clientRounds), c = median(curlRounds),
                  q = median(qnamRounds);
    for (auto* ratios : {&helperRatios, &clientRatios, &qnamRatios})
        std::sort(ratios->begin(), ratios->end());

    std::printf("Sequential blocking POST %s, median of %d rounds\n", qPrintable(url.toString()), rounds);
    print("libcurl easy handle (peer)", c, count);
    print("VornNubraHelper::post + nubra", h, count);
    print("nubra client alone", n, count);
    print("QNetworkAccessManager + QEventLoop", q, qnamCount);
    std::printf("helper / libcurl: %.2f (median of per-round ratios; range %.2f - %.2f; target >= 0.80)\n",
                helperRatios[helperRatios.size() / 2], helperRatios.front(), helperRatios.back());
    std::printf("client / libcurl: %.2f (range %.2f - %.2f)\n", clientRatios[clientRatios.size() / 2],
                clientRatios.front(), clientRatios.back());
    std::printf("QNAM   / libcurl: %.3f\n", qnamRatios[qnamRatios.size() / 2]);

    cloud.terminate();
    cloud.waitForFinished(10000);
    return h.failures + n.failures + c.failures + q.failures == 0 ? 0 : 1;
}
