// SPDX-License-Identifier: MIT
#include "FileServing.h"

#include "Router.h"
#include "StopSignal.h"

#include <QJsonDocument>
#include <QRegularExpression>
#include <QStringList>

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace devcloud {

TransferFault TransferFault::parse(const QString& text)
{
    TransferFault fault;
    for (const QString& part : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QString item = part.trimmed();
        if (item.startsWith(QLatin1String("throttle=")))
            fault.throttle = std::max<qint64>(0, item.mid(9).toLongLong());
        else if (item.startsWith(QLatin1String("cut=")))
            fault.cutAfter = std::max<qint64>(0, item.mid(4).toLongLong());
        else if (item == QLatin1String("corrupt"))
            fault.corrupt = true;
        else if (item.startsWith(QLatin1String("stall=")))
            fault.stallAfter = std::max<qint64>(0, item.mid(6).toLongLong());
    }
    return fault;
}

TransferFault TransferFault::fromRequest(const httplib::Request& request)
{
    QString text = QString::fromStdString(request.get_header_value("X-Devcloud-Fault"));
    if (text.isEmpty())
        text = QString::fromStdString(request.get_param_value("devcloudFault"));
    return parse(text);
}

void TransferFault::mergeFrom(const TransferFault& other)
{
    if (other.throttle > 0)
        throttle = other.throttle;
    if (other.cutAfter >= 0)
        cutAfter = other.cutAfter;
    corrupt = corrupt || other.corrupt;
    if (other.stallAfter >= 0)
        stallAfter = other.stallAfter;
}

TransferControl& TransferControl::instance()
{
    static TransferControl control;
    return control;
}

void TransferControl::countRequest(const std::string& key, bool ranged)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    Counters& c = m_counters[key];
    ++c.requests;
    if (ranged)
        ++c.rangeRequests;
}

void TransferControl::countBytes(const std::string& key, std::int64_t bytes, bool ranged)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    Counters& c = m_counters[key];
    c.bytes += bytes;
    if (ranged)
        c.rangeBytes += bytes;
}

QJsonObject TransferControl::stats() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    QJsonObject files;
    for (const auto& [key, c] : m_counters)
        files.insert(QString::fromStdString(key), QJsonObject{{QStringLiteral("bytesServed"), double(c.bytes)},
                                                              {QStringLiteral("requests"), double(c.requests)},
                                                              {QStringLiteral("rangeRequests"),
                                                               double(c.rangeRequests)},
                                                              {QStringLiteral("rangeBytesServed"),
                                                               double(c.rangeBytes)}});
    return files;
}

void TransferControl::resetStats()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_counters.clear();
}

void TransferControl::armFault(const std::string& key, const TransferFault& fault, int times)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_faults[key] = Armed{fault, std::max(0, times)};
}

void TransferControl::clearFaults()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_faults.clear();
}

TransferFault TransferControl::takeFault(const std::string& key)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_faults.find(key);
    if (it == m_faults.end())
        return {};
    const TransferFault fault = it->second.fault;
    if (it->second.remaining > 0 && --it->second.remaining == 0)
        m_faults.erase(it);
    return fault;
}

namespace {

constexpr std::int64_t kChunk = 256 * 1024;

struct ByteRange {
    std::int64_t first = 0;
    std::int64_t length = 0;
};

enum class RangeResult { None, Satisfiable, Unsatisfiable };

// One "bytes=A-B" / "bytes=A-" / "bytes=-N" range. Several ranges are
// answered with the whole file, which HTTP allows.
RangeResult parseRange(const std::string& header, std::int64_t size, ByteRange* range)
{
    static const QRegularExpression pattern(QStringLiteral("^bytes=(\\d*)-(\\d*)$"));
    const auto match = pattern.match(QString::fromStdString(header).trimmed());
    if (!match.hasMatch() || (match.captured(1).isEmpty() && match.captured(2).isEmpty()))
        return RangeResult::None;
    if (match.captured(1).isEmpty()) {
        const std::int64_t suffix = match.captured(2).toLongLong();
        if (suffix == 0)
            return RangeResult::Unsatisfiable;
        range->first = std::max<std::int64_t>(0, size - suffix);
        range->length = size - range->first;
        return RangeResult::Satisfiable;
    }
    const std::int64_t first = match.captured(1).toLongLong();
    std::int64_t last = match.captured(2).isEmpty() ? size - 1 : match.captured(2).toLongLong();
    if (first >= size || last < first)
        return RangeResult::Unsatisfiable;
    last = std::min(last, size - 1);
    range->first = first;
    range->length = last - first + 1;
    return RangeResult::Satisfiable;
}

struct OpenFile {
    int fd = -1;
    ~OpenFile()
    {
        if (fd >= 0)
            ::close(fd);
    }
};

} // namespace

void serveFile(const httplib::Request& request, httplib::Response& response, const ServedFile& file)
{
    // httplib applies "Range" after the handler by itself, without
    // "If-Range" and with no check against the file size; we answer ranges
    // here and keep it from doing so again. The request object is not
    // const in the server, only our view of it.
    const std::string rangeHeader = request.get_header_value("Range");
    const_cast<httplib::Request&>(request).ranges.clear();

    TransferFault fault = TransferFault::fromRequest(request);
    fault.mergeFrom(TransferControl::instance().takeFault(file.key));

    response.set_header("ETag", file.etag);
    response.set_header("Accept-Ranges", "bytes");

    ByteRange range{0, file.size};
    bool partial = false;
    if (!rangeHeader.empty()) {
        const std::string ifRange = request.get_header_value("If-Range");
        // A validator that no longer matches means: send the whole file.
        if (ifRange.empty() || ifRange == file.etag) {
            switch (parseRange(rangeHeader, file.size, &range)) {
            case RangeResult::Satisfiable: partial = true; break;
            case RangeResult::None: range = {0, file.size}; break;
            case RangeResult::Unsatisfiable:
                TransferControl::instance().countRequest(file.key, true);
                response.status = 416;
                response.set_header("Content-Range", "bytes */" + std::to_string(file.size));
                response.set_content("requested range not satisfiable", "text/plain");
                return;
            }
        }
    }
    TransferControl::instance().countRequest(file.key, partial);

    auto handle = std::make_shared<OpenFile>();
    handle->fd = ::open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (handle->fd < 0) {
        writeJson(response, 404,
                  {{QStringLiteral("status"), QStringLiteral("failure")},
                   {QStringLiteral("code"), QStringLiteral("notFound")},
                   {QStringLiteral("message"), QStringLiteral("file is gone")}});
        return;
    }
    response.status = partial ? 206 : 200;
    if (partial)
        response.set_header("Content-Range", "bytes " + std::to_string(range.first) + "-"
                                                 + std::to_string(range.first + range.length - 1) + "/"
                                                 + std::to_string(file.size));
    if (range.length == 0) {
        response.set_content("", file.contentType);
        return;
    }

    const std::string key = file.key;
    const std::int64_t base = range.first;
    const std::int64_t corruptAt = fault.corrupt ? file.size / 2 : -1;
    auto sentHere = std::make_shared<std::int64_t>(0);
    auto buffer = std::make_shared<std::string>();
    response.set_content_provider(
        size_t(range.length), file.contentType,
        [handle, key, base, partial, fault, corruptAt, sentHere, buffer](size_t offset, size_t length,
                                                               httplib::DataSink& sink) {
            std::int64_t want = std::min<std::int64_t>(std::int64_t(length), kChunk);
            if (fault.throttle > 0)
                want = std::min<std::int64_t>(want, std::max<std::int64_t>(1, fault.throttle / 10));
            if (fault.stallAfter >= 0) {
                if (*sentHere >= fault.stallAfter) {
                    // A peer that went silent: the client's stall detection
                    // has to end this, not the server.
                    StopSignal::sleepFor(std::chrono::seconds(10));
                    return false;
                }
                want = std::min(want, fault.stallAfter - *sentHere);
            }
            if (fault.cutAfter >= 0) {
                if (*sentHere >= fault.cutAfter)
                    return false; // closes the connection mid-body
                want = std::min(want, fault.cutAfter - *sentHere);
            }
            buffer->resize(size_t(want));
            const std::int64_t at = base + std::int64_t(offset);
            const ssize_t got = ::pread(handle->fd, buffer->data(), size_t(want), off_t(at));
            if (got <= 0)
                return false;
            if (corruptAt >= at && corruptAt < at + got)
                (*buffer)[size_t(corruptAt - at)] ^= char(0x5a);
            if (!sink.write(buffer->data(), size_t(got)))
                return false;
            *sentHere += got;
            TransferControl::instance().countBytes(key, got, partial);
            if (fault.throttle > 0)
                return StopSignal::sleepFor(std::chrono::microseconds(got * 1000000 / fault.throttle));
            return true;
        });
}

void registerTransferAdmin(httplib::Server& server)
{
    server.Get("/devcloud/stats", [](const httplib::Request&, httplib::Response& response) {
        writeJson(response, 200,
                  {{QStringLiteral("status"), QStringLiteral("success")},
                   {QStringLiteral("result"),
                    QJsonObject{{QStringLiteral("files"), TransferControl::instance().stats()}}}});
    });
    server.Post("/devcloud/stats/reset", [](const httplib::Request&, httplib::Response& response) {
        TransferControl::instance().resetStats();
        writeJson(response, 200, {{QStringLiteral("status"), QStringLiteral("success")}});
    });
    // {"path": "/packages/NAME", "throttle": B/s, "cutAfter": BYTES,
    //  "corrupt": bool, "times": N (0 = until cleared; default 1)}
    server.Post("/devcloud/transfer-faults", [](const httplib::Request& request, httplib::Response& response) {
        const QJsonObject body = QJsonDocument::fromJson(QByteArray::fromStdString(request.body)).object();
        const QString path = body.value(QStringLiteral("path")).toString();
        if (!path.startsWith(QLatin1Char('/'))) {
            writeJson(response, 400,
                      {{QStringLiteral("status"), QStringLiteral("failure")},
                       {QStringLiteral("code"), QStringLiteral("badRequest")},
                       {QStringLiteral("message"), QStringLiteral("\"path\" must be a URL path")}});
            return;
        }
        TransferFault fault;
        fault.throttle = std::max<qint64>(0, qint64(body.value(QStringLiteral("throttle")).toDouble()));
        fault.cutAfter = body.contains(QStringLiteral("cutAfter"))
            ? std::max<qint64>(0, qint64(body.value(QStringLiteral("cutAfter")).toDouble()))
            : -1;
        fault.corrupt = body.value(QStringLiteral("corrupt")).toBool();
        fault.stallAfter = body.contains(QStringLiteral("stallAfter"))
            ? std::max<qint64>(0, qint64(body.value(QStringLiteral("stallAfter")).toDouble()))
            : -1;
        TransferControl::instance().armFault(path.toStdString(), fault,
                                             body.value(QStringLiteral("times")).toInt(1));
        writeJson(response, 200, {{QStringLiteral("status"), QStringLiteral("success")}});
    });
    server.Delete("/devcloud/transfer-faults", [](const httplib::Request&, httplib::Response& response) {
        TransferControl::instance().clearFaults();
        writeJson(response, 200, {{QStringLiteral("status"), QStringLiteral("success")}});
    });
}

} // namespace devcloud
