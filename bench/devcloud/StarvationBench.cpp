// SPDX-License-Identifier: MIT
// How long a new connection waits for its first answer from nubra-devcloud
// while BUSY kept-alive connections send requests back to back (one client
// thread drives them all with poll) and SILENT connections sit open without
// sending anything. The peer is the same measurement on the idle cloud, in
// the same run; the ratio says what the load costs a newcomer.
//
//   build/bin/bench_devcloud [busy=200] [silent=8] [samples=200]
//
// Loopback only; bounded: the samples are taken one after the other, each
// waits at most 10 s, the whole run stops after 120 s.

#include <DevCloudProcess.h>

#include <QCoreApplication>
#include <QUrl>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

const char kRequest[] = "GET /devcloud/health HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";

int connectTo(int port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// Whether `data` holds a whole response (head and Content-Length body).
size_t responseLength(const std::string& data)
{
    const size_t headEnd = data.find("\r\n\r\n");
    if (headEnd == std::string::npos)
        return 0;
    size_t length = 0;
    const size_t at = data.find("Content-Length: ");
    if (at != std::string::npos && at < headEnd)
        length = std::strtoul(data.c_str() + at + 16, nullptr, 10);
    return data.size() >= headEnd + 4 + length ? headEnd + 4 + length : 0;
}

// One request on a fresh connection; milliseconds to the whole answer, or
// -1 on failure or after 10 s.
double firstAnswerMs(int port)
{
    const auto start = Clock::now();
    const int fd = connectTo(port);
    if (fd < 0)
        return -1;
    std::string data;
    bool ok = send(fd, kRequest, sizeof kRequest - 1, MSG_NOSIGNAL) > 0;
    while (ok && responseLength(data) == 0) {
        pollfd p{fd, POLLIN, 0};
        char buffer[4096];
        ok = poll(&p, 1, 10000) > 0;
        const ssize_t n = ok ? recv(fd, buffer, sizeof buffer, 0) : 0;
        ok = n > 0;
        if (ok)
            data.append(buffer, size_t(n));
    }
    close(fd);
    return ok ? std::chrono::duration<double, std::milli>(Clock::now() - start).count() : -1;
}

struct Figures {
    double p50 = 0, p99 = 0, max = 0;
    int failures = 0;
};

Figures sample(int port, int count, Clock::time_point deadline)
{
    std::vector<double> times;
    Figures figures;
    for (int i = 0; i < count && Clock::now() < deadline; ++i) {
        const double ms = firstAnswerMs(port);
        if (ms < 0)
            ++figures.failures;
        else
            times.push_back(ms);
    }
    if (times.empty())
        return figures;
    std::sort(times.begin(), times.end());
    figures.p50 = times[times.size() / 2];
    figures.p99 = times[std::min(times.size() - 1, size_t(double(times.size()) * 0.99))];
    figures.max = times.back();
    return figures;
}

// Keeps `count` kept-alive connections busy until `stop`; counts answers.
void driveBusy(int port, int count, const std::atomic<bool>& stop, std::atomic<long>& answers)
{
    std::vector<pollfd> fds;
    std::vector<std::string> pending;
    for (int i = 0; i < count; ++i) {
        const int fd = connectTo(port);
        if (fd < 0)
            continue;
        send(fd, kRequest, sizeof kRequest - 1, MSG_NOSIGNAL);
        fds.push_back({fd, POLLIN, 0});
        pending.emplace_back();
    }
    char buffer[65536];
    while (!stop) {
        if (poll(fds.data(), nfds_t(fds.size()), 100) <= 0)
            continue;
        for (size_t i = 0; i < fds.size(); ++i) {
            if (!(fds[i].revents & POLLIN))
                continue;
            const ssize_t n = recv(fds[i].fd, buffer, sizeof buffer, 0);
            if (n <= 0) {
                fds[i].fd = -1; // closed by the server: left out
                continue;
            }
            pending[i].append(buffer, size_t(n));
            while (const size_t length = responseLength(pending[i])) {
                pending[i].erase(0, length);
                ++answers;
                send(fds[i].fd, kRequest, sizeof kRequest - 1, MSG_NOSIGNAL);
            }
        }
    }
    for (const pollfd& p : fds)
        if (p.fd >= 0)
            close(p.fd);
}

void print(const char* what, const Figures& f)
{
    std::printf("%-34s p50 %8.2f ms   p99 %8.2f ms   max %8.2f ms   failed %d\n", what, f.p50, f.p99, f.max,
                f.failures);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int busy = argc > 1 ? std::atoi(argv[1]) : 200;
    const int silent = argc > 2 ? std::atoi(argv[2]) : 8;
    const int samples = argc > 3 ? std::atoi(argv[3]) : 200;
    const auto deadline = Clock::now() + std::chrono::seconds(120);

    VornTest::DevCloudProcess cloud;
    if (!cloud.start()) {
        std::fprintf(stderr, "bench_devcloud: nubra-devcloud did not start: %s\n", qPrintable(cloud.output()));
        return 1;
    }
    const int port = QUrl(cloud.baseUrl()).port();

    sample(port, 20, deadline); // warm-up
    const Figures idle = sample(port, samples, deadline);

    std::vector<int> silentFds;
    for (int i = 0; i < silent; ++i)
        silentFds.push_back(connectTo(port));
    std::atomic<bool> stop{false};
    std::atomic<long> answers{0};
    std::thread load(driveBusy, port, busy, std::cref(stop), std::ref(answers));
    // Until every busy connection has had answers.
    while (answers < busy * 5 && Clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const long answersBefore = answers;
    const auto loadedStart = Clock::now();
    const Figures loaded = sample(port, samples, deadline);
    const double seconds = std::chrono::duration<double>(Clock::now() - loadedStart).count();
    const double busyPerSecond = double(answers - answersBefore) / seconds;
    stop = true;
    load.join();
    for (int fd : silentFds)
        if (fd >= 0)
            close(fd);

    std::printf("nubra-devcloud, new connection's first answer (%d samples each)\n", samples);
    print("idle cloud (peer)", idle);
    char label[64];
    std::snprintf(label, sizeof label, "%d busy + %d silent connections", busy, silent);
    print(label, loaded);
    std::printf("busy connections' answers meanwhile: %.0f/s\n", busyPerSecond);
    std::printf("ratio loaded/idle p99: %.1f   target p99 < 100 ms: %s\n", loaded.p99 / std::max(idle.p99, 0.001),
                loaded.failures == 0 && loaded.p99 < 100 ? "met" : "MISSED");
    cloud.stop();
    return loaded.failures == 0 && loaded.p99 < 100 ? 0 : 2;
}
