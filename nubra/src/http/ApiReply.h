// SPDX-License-Identifier: MIT
#pragma once

#include <Nubra/Reply.h>

#include "http/CurlTransfer.h"

#include <QByteArray>
#include <QUrl>

namespace Nubra {

// Reply of one JSON API request.
class ApiReply : public Reply {
    Q_OBJECT
public:
    // Largest answer accepted; a bigger one fails with InvalidResponse.
    static constexpr int kMaxAnswerBytes = 32 * 1024 * 1024;

    ApiReply(const QString& name, CurlMultiDriver* driver, QObject* parent);

    // Set up before start(); owned by the reply (no allocation of its own).
    CurlTransfer& transfer() { return m_transfer; }
    void setUrlForLog(const QUrl& url) { m_url = url; }
    bool start();

protected:
    void onStop(const QString& item) override;
    void onAbort(const QString& item) override;

private:
    void transferCompleted(int curlCode);

    QUrl m_url;
    QByteArray m_answer;
    bool m_tooLarge = false;
    // Last: it dies first, before the answer buffer its sink writes to.
    CurlTransfer m_transfer;
};

} // namespace Nubra
