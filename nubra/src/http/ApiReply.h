#pragma once

#include <Nubra/Reply.h>

#include <QByteArray>
#include <QUrl>

namespace Nubra {

class CurlTransfer;

// Reply of one JSON API request.
class ApiReply : public Reply {
    Q_OBJECT
public:
    // Largest answer accepted; a bigger one fails with InvalidResponse.
    static constexpr int kMaxAnswerBytes = 32 * 1024 * 1024;

    ApiReply(const QString& name, CurlTransfer* transfer, const QUrl& url, QObject* parent);

    bool start();

protected:
    void onStop(const QString& item) override;
    void onAbort(const QString& item) override;

private:
    void transferCompleted(int curlCode);

    CurlTransfer* m_transfer;
    QUrl m_url;
    QByteArray m_answer;
    bool m_tooLarge = false;
};

} // namespace Nubra
