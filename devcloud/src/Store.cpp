// SPDX-License-Identifier: MIT
#include "Store.h"

namespace devcloud {

Store::~Store()
{
    if (m_db)
        sqlite3_close(m_db);
}

bool Store::open(const QString& path, QString* error)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (sqlite3_open_v2(path.toUtf8().constData(), &m_db,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr) != SQLITE_OK) {
        if (error)
            *error = QString::fromUtf8(sqlite3_errmsg(m_db));
        return false;
    }
    sqlite3_busy_timeout(m_db, 5000);
    return execScript(QStringLiteral("PRAGMA journal_mode=WAL; PRAGMA foreign_keys=ON;"), error);
}

bool Store::execScript(const QString& sql, QString* error)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    char* message = nullptr;
    if (sqlite3_exec(m_db, sql.toUtf8().constData(), nullptr, nullptr, &message) != SQLITE_OK) {
        if (error)
            *error = QString::fromUtf8(message ? message : "sqlite error");
        sqlite3_free(message);
        return false;
    }
    return true;
}

std::optional<std::vector<Store::Row>> Store::query(const QString& sql, const QVariantList& params, QString* error)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    sqlite3_stmt* statement = nullptr;
    const QByteArray text = sql.toUtf8();
    if (sqlite3_prepare_v2(m_db, text.constData(), text.size(), &statement, nullptr) != SQLITE_OK) {
        if (error)
            *error = QString::fromUtf8(sqlite3_errmsg(m_db));
        return std::nullopt;
    }
    for (int i = 0; i < params.size(); ++i) {
        const QVariant& value = params.at(i);
        const int index = i + 1;
        switch (value.userType()) {
        case QMetaType::UnknownType: sqlite3_bind_null(statement, index); break;
        case QMetaType::Int:
        case QMetaType::LongLong:
        case QMetaType::UInt:
        case QMetaType::ULongLong:
        case QMetaType::Bool: sqlite3_bind_int64(statement, index, value.toLongLong()); break;
        case QMetaType::Double: sqlite3_bind_double(statement, index, value.toDouble()); break;
        case QMetaType::QByteArray: {
            const QByteArray bytes = value.toByteArray();
            sqlite3_bind_blob(statement, index, bytes.constData(), bytes.size(), SQLITE_TRANSIENT);
            break;
        }
        default: {
            const QByteArray utf8 = value.toString().toUtf8();
            sqlite3_bind_text(statement, index, utf8.constData(), utf8.size(), SQLITE_TRANSIENT);
        }
        }
    }
    std::vector<Row> rows;
    int rc = SQLITE_OK;
    while ((rc = sqlite3_step(statement)) == SQLITE_ROW) {
        Row row;
        const int columns = sqlite3_column_count(statement);
        for (int c = 0; c < columns; ++c) {
            switch (sqlite3_column_type(statement, c)) {
            case SQLITE_INTEGER: row.emplace_back(qint64(sqlite3_column_int64(statement, c))); break;
            case SQLITE_FLOAT: row.emplace_back(sqlite3_column_double(statement, c)); break;
            case SQLITE_BLOB:
                row.emplace_back(QByteArray(static_cast<const char*>(sqlite3_column_blob(statement, c)),
                                            sqlite3_column_bytes(statement, c)));
                break;
            case SQLITE_NULL: row.emplace_back(); break;
            default:
                row.emplace_back(QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(statement, c)),
                                                   sqlite3_column_bytes(statement, c)));
            }
        }
        rows.push_back(std::move(row));
    }
    if (rc != SQLITE_DONE) {
        if (error)
            *error = QString::fromUtf8(sqlite3_errmsg(m_db));
        sqlite3_finalize(statement);
        return std::nullopt;
    }
    sqlite3_finalize(statement);
    return rows;
}

QVariant Store::scalar(const QString& sql, const QVariantList& params)
{
    const auto rows = query(sql, params);
    if (!rows || rows->empty() || rows->front().empty())
        return {};
    return rows->front().front();
}

qint64 Store::lastInsertId()
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    return sqlite3_last_insert_rowid(m_db);
}

int Store::changes()
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    return sqlite3_changes(m_db);
}

} // namespace devcloud
