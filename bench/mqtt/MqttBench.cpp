// SPDX-License-Identifier: MIT
// Messages per second and delivery latency from the broker to the helper's
// subscribeData, against mosquitto_sub receiving the same stream from the
// same broker in the same run.
//
//   mqtt_bench [messages-per-burst] [runs]
//
// A private nubra-devcloud supplies the broker. One publisher (libmosquitto)
// sends each message once; both consumers are subscribed to the topic.
// Payloads are JSON {"seq": n, "t": CLOCK_MONOTONIC ns at publish}.

#include "DevCloudProcess.h"
#include "TestFiles.h"
#include "Waiting.h"

#include <VornNubraHelper.h>

#include <glog/logging.h>
#include <mosquitto.h>

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace {

// The demo user's own topic: the broker lets a user's token read only the
// topics of that user and of its devices (see docs/devcloud.md).
const char* const kTopic = "users/1001/bench";

qint64 nowNs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return qint64(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

// What one consumer saw: receive time and publish time per message.
struct Arrivals {
    std::mutex mutex;
    std::vector<std::pair<qint64, qint64>> items; // (received ns, published ns)
    std::atomic<int> count{0};
    void add(qint64 received, qint64 published)
    {
        std::lock_guard<std::mutex> lock(mutex);
        items.emplace_back(received, published);
        count.store(int(items.size()));
    }
    std::vector<std::pair<qint64, qint64>> take()
    {
        std::lock_guard<std::mutex> lock(mutex);
        std::vector<std::pair<qint64, qint64>> out;
        out.swap(items);
        count.store(0);
        return out;
    }
};

// Checks every 2 ms: the warm-up publishes on each check.
bool waitUntil(const std::function<bool()>& done, int timeoutMs) { return VornTest::waitUntil(done, timeoutMs, 2); }

// mosquitto_sub in a child process; a thread timestamps each line.
class MosquittoSub {
public:
    bool start(const QJsonObject& mqtt, Arrivals* arrivals)
    {
        const QJsonObject account = mqtt.value("devcloud").toObject();
        std::vector<QByteArray> args{"mosquitto_sub", "-h", mqtt.value("host").toString().toUtf8(), "-p",
                                     QByteArray::number(mqtt.value("port").toInt()), "-u",
                                     account.value("publisherUsername").toString().toUtf8(), "-P",
                                     account.value("publisherPassword").toString().toUtf8(), "-t", kTopic};
        int fds[2];
        if (pipe(fds) != 0)
            return false;
        m_pid = fork();
        if (m_pid == 0) {
            dup2(fds[1], 1);
            close(fds[0]);
            close(fds[1]);
            std::vector<char*> argv;
            for (auto& a : args)
                argv.push_back(a.data());
            argv.push_back(nullptr);
            execvp(argv[0], argv.data());
            _exit(127);
        }
        close(fds[1]);
        m_reader = std::thread([fd = fds[0], arrivals] {
            FILE* in = fdopen(fd, "r");
            char* line = nullptr;
            size_t capacity = 0;
            while (getline(&line, &capacity, in) >= 0) {
                const qint64 received = nowNs();
                const QJsonObject o = QJsonDocument::fromJson(QByteArray(line)).object();
                if (o.contains("t"))
                    arrivals->add(received, qint64(o.value("t").toDouble()));
            }
            free(line);
            fclose(in);
        });
        return m_pid > 0;
    }
    void pause() { kill(m_pid, SIGSTOP); }
    void resume() { kill(m_pid, SIGCONT); }
    ~MosquittoSub()
    {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            waitpid(m_pid, nullptr, 0);
        }
        if (m_reader.joinable())
            m_reader.join();
    }

private:
    pid_t m_pid = -1;
    std::thread m_reader;
};

class Publisher {
public:
    bool open(const QJsonObject& mqtt)
    {
        const QJsonObject account = mqtt.value("devcloud").toObject();
        mosquitto_lib_init();
        m_mosq = mosquitto_new(nullptr, true, nullptr);
        mosquitto_int_option(m_mosq, MOSQ_OPT_TCP_NODELAY, 1);
        mosquitto_username_pw_set(m_mosq, account.value("publisherUsername").toString().toUtf8().constData(),
                                  account.value("publisherPassword").toString().toUtf8().constData());
        return mosquitto_connect(m_mosq, mqtt.value("host").toString().toUtf8().constData(),
                                 mqtt.value("port").toInt(), 30)
                   == MOSQ_ERR_SUCCESS
               && mosquitto_loop_start(m_mosq) == MOSQ_ERR_SUCCESS;
    }
    void publish(int seq)
    {
        const QByteArray payload = "{\"seq\":" + QByteArray::number(seq) + ",\"t\":" + QByteArray::number(nowNs()) + "}";
        mosquitto_publish(m_mosq, nullptr, kTopic, payload.size(), payload.constData(), 0, false);
    }
    ~Publisher()
    {
        if (m_mosq) {
            mosquitto_disconnect(m_mosq);
            mosquitto_loop_stop(m_mosq, false);
            mosquitto_destroy(m_mosq);
        }
    }

private:
    mosquitto* m_mosq = nullptr;
};

double median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(p * double(values.size())))];
}

// Messages per second between the first and the last arrival.
double rateOf(const std::vector<std::pair<qint64, qint64>>& items)
{
    if (items.size() < 2)
        return 0;
    const double seconds = double(items.back().first - items.front().first) / 1e9;
    return seconds > 0 ? double(items.size() - 1) / seconds : 0;
}

std::vector<double> latenciesUs(const std::vector<std::pair<qint64, qint64>>& items)
{
    std::vector<double> out;
    for (const auto& item : items)
        out.push_back(double(item.first - item.second) / 1000.0);
    return out;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int burst = argc > 1 ? std::max(100, atoi(argv[1])) : 20000;
    const int runs = argc > 2 ? std::max(1, atoi(argv[2])) : 5;
    const int paced = 1000;

    // The helper logs one line per message, as in the application: to files.
    QTemporaryDir logDir;
    FLAGS_log_dir = logDir.path().toStdString();
    google::InitGoogleLogging("mqtt_bench");

    VornTest::DevCloudProcess cloud;
    if (!cloud.start()) {
        std::fprintf(stderr, "nubra-devcloud did not start: %s\n", qPrintable(cloud.output()));
        return 1;
    }
    const QJsonObject mqtt = VornTest::readJsonObject(cloud.configPath()).value("mqtt").toObject();
    qputenv("NUBRA_CONFIG", cloud.configPath().toLocal8Bit());

    VornNubraHelper* helper = VornNubraHelper::getInstance();
    QVariantMap login;
    if (helper->post(NubraCommon::Interface::UserLogin, {{"account", "demo@vorn.example"}, {"password", "scan3d!"}},
                     login, {}, 10000)
        != NubraCommon::Success) {
        std::fprintf(stderr, "sign-in failed\n");
        return 1;
    }
    helper->setUserToken(login.value("token").toString());

    Arrivals ours;
    Arrivals peer;
    QObject::connect(helper, &VornNubraHelper::subscribeData, [&ours](const QString&, const QVariantMap& data) {
        const qint64 received = nowNs();
        ours.add(received, qint64(data.value("t").toDouble()));
    });
    if (helper->subscribe("bench", {}, {QString::fromLatin1(kTopic)}, 300) != NubraCommon::Timeout) {
        std::fprintf(stderr, "subscribe failed\n");
        return 1;
    }
    MosquittoSub mosquittoSub;
    Publisher publisher;
    if (!mosquittoSub.start(mqtt, &peer) || !publisher.open(mqtt)) {
        std::fprintf(stderr, "cannot start mosquitto_sub or the publisher\n");
        return 1;
    }
    // Warm-up: until both consumers see messages.
    int seq = 0;
    if (!waitUntil([&] {
            publisher.publish(seq++);
            return ours.count > 0 && peer.count > 0;
        }, 10000)) {
        std::fprintf(stderr, "no messages arrive\n");
        return 1;
    }
    waitUntil([] { return false; }, 200);
    ours.take();
    peer.take();

    std::vector<double> ourRates, peerRates, ourLatency, peerLatency, ourDrain, peerDrain;
    for (int run = 0; run < runs; ++run) {
        // Consumer capacity: the burst waits in the sockets and the broker
        // while neither consumer reads (mosquitto_sub stopped, our event
        // loop not running); then each drains it in turn, so that neither
        // competes with the other for the CPU.
        mosquittoSub.pause();
        for (int i = 0; i < burst; ++i)
            publisher.publish(i);
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        mosquittoSub.resume();
        for (int waited = 0; peer.count < burst && waited < 30000; waited += 5)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const bool drained = waitUntil([&] { return ours.count >= burst; }, 60000) && peer.count >= burst;
        // Let a lossy consumer's last messages in before counting.
        if (!drained)
            waitUntil([] { return false; }, 500);
        const auto ourDrained = ours.take();
        const auto peerDrained = peer.take();
        if (!drained)
            std::fprintf(stderr, "run %d: drain incomplete (ours %zu, mosquitto_sub %zu of %d)\n", run + 1,
                         ourDrained.size(), peerDrained.size(), burst);
        ourDrain.push_back(rateOf(ourDrained));
        peerDrain.push_back(rateOf(peerDrained));

        // Live stream: one burst as fast as the publisher goes.
        std::thread burstThread([&] {
            for (int i = 0; i < burst; ++i)
                publisher.publish(i);
        });
        const bool complete = waitUntil([&] { return ours.count >= burst && peer.count >= burst; }, 120000);
        burstThread.join();
        const auto ourItems = ours.take();
        const auto peerItems = peer.take();
        if (!complete)
            std::fprintf(stderr, "run %d: incomplete (ours %zu, mosquitto_sub %zu of %d)\n", run, ourItems.size(),
                         peerItems.size(), burst);
        ourRates.push_back(rateOf(ourItems));
        peerRates.push_back(rateOf(peerItems));

        // Latency: paced messages, one per millisecond.
        std::thread pacedThread([&] {
            for (int i = 0; i < paced; ++i) {
                publisher.publish(i);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
        waitUntil([&] { return ours.count >= paced && peer.count >= paced; }, 60000);
        pacedThread.join();
        for (double v : latenciesUs(ours.take()))
            ourLatency.push_back(v);
        for (double v : latenciesUs(peer.take()))
            peerLatency.push_back(v);
        std::printf("run %d: drain %.0f msg/s (mosquitto_sub %.0f), live %.0f msg/s (mosquitto_sub %.0f)\n", run + 1,
                    ourDrain.back(), peerDrain.back(), ourRates.back(), peerRates.back());
    }

    const double ourDrainRate = median(ourDrain);
    const double peerDrainRate = median(peerDrain);
    std::printf("\nconsumer capacity (draining a queued %d-message burst), median of %d runs\n", burst, runs);
    std::printf("  mosquitto_sub        %10.0f msg/s\n", peerDrainRate);
    std::printf("  helper subscribeData %10.0f msg/s\n", ourDrainRate);
    std::vector<double> drainRatios;
    for (size_t i = 0; i < ourDrain.size(); ++i)
        drainRatios.push_back(peerDrain[i] > 0 ? ourDrain[i] / peerDrain[i] : 0.0);
    std::printf("  ratio                %10.2f (target >= 0.80); median of per-run ratios %.2f\n",
                peerDrainRate > 0 ? ourDrainRate / peerDrainRate : 0.0, median(drainRatios));
    const double ourRate = median(ourRates);
    const double peerRate = median(peerRates);
    std::printf("\nlive stream (publisher as fast as it goes), %d-message bursts, median of %d runs\n", burst, runs);
    std::printf("  mosquitto_sub        %10.0f msg/s\n", peerRate);
    std::printf("  helper subscribeData %10.0f msg/s\n", ourRate);
    std::printf("  ratio                %10.2f (target >= 0.80)\n", peerRate > 0 ? ourRate / peerRate : 0.0);
    std::printf("\nlatency publish -> consumer, %d paced messages x %d runs (microseconds)\n", paced, runs);
    std::printf("  mosquitto_sub        median %8.0f  p99 %8.0f\n", median(peerLatency), percentile(peerLatency, 0.99));
    std::printf("  helper subscribeData median %8.0f  p99 %8.0f\n", median(ourLatency), percentile(ourLatency, 0.99));
    std::printf("  ratio (peer/ours, median) %.2f\n",
                median(ourLatency) > 0 ? median(peerLatency) / median(ourLatency) : 0.0);

    helper->disconnectFromServer();
    cloud.stop();
    return 0;
}
