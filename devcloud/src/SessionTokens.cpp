// SPDX-License-Identifier: MIT
#include "SessionTokens.h"

#include "Passwords.h"
#include "Store.h"

#include <QDateTime>

#include <algorithm>

namespace devcloud {

SessionTokens::SessionTokens(Store& store)
    : m_store(store)
{
}

QString SessionTokens::issue(qint64 userId, qint64 lifetimeSeconds)
{
    const QString token = newToken();
    const qint64 expiresAt = QDateTime::currentSecsSinceEpoch() + lifetimeSeconds;
    m_store.query(QStringLiteral("INSERT INTO sessions (token_sha256, user_id, expires_at) VALUES (?1, ?2, ?3)"),
                  {tokenHash(token), userId, expiresAt});
    std::lock_guard<std::mutex> lock(m_mutex);
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    m_entries.erase(std::remove_if(m_entries.begin(), m_entries.end(),
                                   [now](const Entry& entry) { return entry.expiresAt <= now; }),
                    m_entries.end());
    m_entries.push_back({token, userId, expiresAt});
    ++m_issued;
    return token;
}

std::vector<SessionTokens::Live> SessionTokens::live() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    std::vector<Live> tokens;
    for (const Entry& entry : m_entries)
        if (entry.expiresAt > now)
            tokens.push_back({entry.token, entry.userId});
    return tokens;
}

quint64 SessionTokens::issuedCount() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_issued;
}

} // namespace devcloud
