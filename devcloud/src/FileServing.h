// SPDX-License-Identifier: MIT
#pragma once

#include <httplib.h>

#include <QJsonObject>
#include <QString>

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace devcloud {

// Faults of one file transfer, so that tests can pause and break downloads
// for real. Asked for by the request (header "X-Devcloud-Fault" or query
// "devcloudFault", items joined with ','):
//   throttle=BYTES_PER_S  send at most that many bytes per second
//   cut=BYTES             close the connection after that many body bytes
//   corrupt               flip one byte in the middle of the file as sent
//   stall=BYTES           after that many body bytes send nothing more, hold
//                         the connection open (10 s at most), then close it
// or set for a path through POST /devcloud/transfer-faults.
struct TransferFault {
    std::int64_t throttle = 0;
    std::int64_t cutAfter = -1;
    bool corrupt = false;
    std::int64_t stallAfter = -1;

    bool any() const { return throttle > 0 || cutAfter >= 0 || corrupt || stallAfter >= 0; }
    static TransferFault parse(const QString& text);
    static TransferFault fromRequest(const httplib::Request& request);
    void mergeFrom(const TransferFault& other);
};

// What the cloud served per file, and faults armed per file by tests.
class TransferControl {
public:
    static TransferControl& instance();

    void countRequest(const std::string& key, bool ranged);
    // ranged: the bytes answer a "Range" request (206), counted apart so
    // that a test can tell what a resume fetched.
    void countBytes(const std::string& key, std::int64_t bytes, bool ranged);
    QJsonObject stats() const;
    void resetStats();

    // times 0: until cleared; otherwise the next `times` requests.
    void armFault(const std::string& key, const TransferFault& fault, int times);
    void clearFaults();
    TransferFault takeFault(const std::string& key);

private:
    struct Counters {
        std::int64_t bytes = 0;
        std::int64_t requests = 0;
        std::int64_t rangeRequests = 0;
        std::int64_t rangeBytes = 0;
    };
    struct Armed {
        TransferFault fault;
        int remaining = 0; // 0: unlimited
    };
    mutable std::mutex m_mutex;
    std::map<std::string, Counters> m_counters;
    std::map<std::string, Armed> m_faults;
};

// A file on disk served with its validator.
struct ServedFile {
    std::string path;        // file on disk
    std::int64_t size = 0;
    std::string etag;        // strong, with quotes
    std::string contentType = "application/octet-stream";
    std::string key;         // stats and fault key: the URL path
};

// Answers GET/HEAD for a file: ETag, Accept-Ranges, a single "Range"
// (206 with Content-Range, 416 when unsatisfiable), "If-Range" (a range is
// honoured only when the validator still matches; otherwise the whole file
// comes with 200), and the transfer faults above. The body streams from
// disk in chunks; memory does not grow with the file.
void serveFile(const httplib::Request& request, httplib::Response& response, const ServedFile& file);

// Admin endpoints: GET /devcloud/stats, POST /devcloud/stats/reset,
// POST and DELETE /devcloud/transfer-faults.
void registerTransferAdmin(httplib::Server& server);

} // namespace devcloud
