// SPDX-License-Identifier: MIT
#pragma once

#include <Nubra/Reply.h>

#include "http/JsonCall.h"

#include <QUrl>

namespace Nubra {

// Reply of one JSON API request: the answer's JSON object is the finished
// map, whatever the HTTP status; every other answer fails by JsonCall's
// rule, with the HTTP status in the failure map.
class ApiReply : public Reply {
    Q_OBJECT
public:
    ApiReply(const QString& name, CurlMultiDriver* driver, QObject* parent);

    // Set up before start(); owned by the reply (no allocation of its own).
    JsonCall& call() { return m_call; }
    CurlTransfer& transfer() { return m_call.transfer(); }
    void setUrlForLog(const QUrl& url) { m_url = url; }
    bool start();

protected:
    void onStop(const QString& item) override;
    void onAbort(const QString& item) override;

private:
    void answered(const JsonCall::Answer& answer);

    QUrl m_url;
    JsonCall m_call;
};

} // namespace Nubra
