// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <functional>

// The helper's leveled log lines (glog records) reach vorn here instead of a
// log file. Some calls report only through them: downloadFile, for one,
// writes its progress and its errors to the log and emits no signal. vorn
// routes every record through one sink, shows them on stderr with
// --verbose, and lets a command listen for the lines it needs.
namespace HelperLog {

// Installs the sink; no log files are written. verbose: also print records
// on stderr.
void install(bool verbose);

// One listener at a time (null removes it); called for every record, on the
// thread that logged it (the helper's thread).
void setListener(std::function<void(const QString& line)> listener);

// Parses the downloadFile / package download progress line
// "<number>result:<name> bytesReceived: <n> bytesTotal: <n>".
struct Progress {
    QString name;
    qint64 received = 0;
    qint64 total = 0;
};
bool parseProgress(const QString& line, Progress* progress);

// The transfer error line "Nubra Get ErrorOccurred: <code>"; the code or -1.
int parseError(const QString& line);

} // namespace HelperLog
