// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <mutex>
#include <vector>

namespace devcloud {

class Store;

// Sign-in tokens. The store keeps only their hashes (sessions.token_sha256),
// so requests are checked by hash; the clear text lives only in this
// process's memory while the token is valid, because the message broker
// matches user names literally and needs it for its password and permission
// files. A token issued by an earlier run over the same data folder keeps
// working for the API, not for the broker. Thread-safe.
class SessionTokens {
public:
    explicit SessionTokens(Store& store);

    // Issues a token for a user, valid for lifetimeSeconds.
    QString issue(qint64 userId, qint64 lifetimeSeconds);

    struct Live {
        QString token;
        qint64 userId;
    };
    // The unexpired tokens issued by this process.
    std::vector<Live> live() const;
    // Grows with every token issued: a cheap "did anything change".
    quint64 issuedCount() const;

private:
    Store& m_store;
    mutable std::mutex m_mutex;
    struct Entry {
        QString token;
        qint64 userId;
        qint64 expiresAt;
    };
    std::vector<Entry> m_entries;
    quint64 m_issued = 0;
};

} // namespace devcloud
