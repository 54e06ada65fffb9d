// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVariant>
#include <QVariantList>

#include <sqlite3.h>

#include <mutex>
#include <optional>
#include <vector>

namespace devcloud {

// The dev cloud's storage: one SQLite database behind one lock, reached only
// through prepared statements with bound parameters.
class Store {
public:
    using Row = std::vector<QVariant>;

    Store() = default;
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    // path ":memory:" keeps everything in memory.
    bool open(const QString& path, QString* error);

    // Runs a script of statements without parameters (schemas).
    bool execScript(const QString& sql, QString* error = nullptr);
    // Runs one statement with bound parameters; returns the rows it produced
    // (empty for statements without a result), or nullopt on an error.
    std::optional<std::vector<Row>> query(const QString& sql, const QVariantList& params = {},
                                          QString* error = nullptr);
    // First column of the first row, or an invalid QVariant.
    QVariant scalar(const QString& sql, const QVariantList& params = {});
    qint64 lastInsertId();
    int changes();

    // Several statements under the lock as one transaction.
    template <typename F>
    auto transaction(F&& work)
    {
        std::lock_guard<std::recursive_mutex> lock(m_mutex);
        sqlite3_exec(m_db, "BEGIN", nullptr, nullptr, nullptr);
        auto result = work();
        sqlite3_exec(m_db, "COMMIT", nullptr, nullptr, nullptr);
        return result;
    }

private:
    sqlite3* m_db = nullptr;
    std::recursive_mutex m_mutex;
};

} // namespace devcloud
