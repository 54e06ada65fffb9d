// SPDX-License-Identifier: MIT
#include "HelperLog.h"

#include <glog/logging.h>

#include <QRegularExpression>

#include <cstdio>
#include <mutex>

namespace HelperLog {

namespace {

std::mutex g_mutex;
std::function<void(const QString&)> g_listener;
bool g_verbose = false;

class Sink : public google::LogSink {
public:
    void send(google::LogSeverity severity, const char* /*fullFilename*/, const char* baseFilename, int line,
              const google::LogMessageTime& /*time*/, const char* message, size_t length) override
    {
        const QString text = QString::fromUtf8(message, int(length));
        if (g_verbose)
            std::fprintf(stderr, "[glog %s:%d %s] %s\n", baseFilename, line, google::GetLogSeverityName(severity),
                         text.toUtf8().constData());
        std::function<void(const QString&)> listener;
        {
            std::lock_guard<std::mutex> lock(g_mutex);
            listener = g_listener;
        }
        if (listener)
            listener(text);
    }
};

} // namespace

void install(bool verbose)
{
    g_verbose = verbose;
    static Sink sink;
    FLAGS_logtostderr = false;
    FLAGS_alsologtostderr = false;
    FLAGS_stderrthreshold = google::GLOG_FATAL;
    FLAGS_minloglevel = google::GLOG_INFO;
    google::InitGoogleLogging("vorn");
    // An empty destination turns the log file of that severity off.
    for (int severity = google::GLOG_INFO; severity < google::NUM_SEVERITIES; ++severity)
        google::SetLogDestination(severity, "");
    google::AddLogSink(&sink);
}

void setListener(std::function<void(const QString&)> listener)
{
    std::lock_guard<std::mutex> lock(g_mutex);
    g_listener = std::move(listener);
}

bool parseProgress(const QString& line, Progress* progress)
{
    static const QRegularExpression pattern(
        QStringLiteral("^\\d+result:(.*) bytesReceived: (-?\\d+) bytesTotal: (-?\\d+)$"));
    const auto match = pattern.match(line);
    if (!match.hasMatch())
        return false;
    progress->name = match.captured(1);
    progress->received = match.captured(2).toLongLong();
    progress->total = match.captured(3).toLongLong();
    return true;
}

int parseError(const QString& line)
{
    static const QRegularExpression pattern(QStringLiteral("^Nubra Get ErrorOccurred: (-?\\d+)"));
    const auto match = pattern.match(line);
    return match.hasMatch() ? match.captured(1).toInt() : -1;
}

} // namespace HelperLog
