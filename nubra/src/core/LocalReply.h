// SPDX-License-Identifier: MIT
#pragma once

#include <Nubra/Reply.h>

namespace Nubra {

// A reply whose outcome is known when it is created (configuration calls,
// refused requests). It reports on the next turn of the event loop, so that
// the caller can connect first.
class LocalReply : public Reply {
    Q_OBJECT
public:
    explicit LocalReply(const QString& requestName, QObject* parent = nullptr);

    static LocalReply* succeeding(const QString& requestName, const QVariantMap& result, QObject* parent);
    // status() is code at once; errorOccurred and finished follow later.
    static LocalReply* refused(const QString& requestName, Error::ErrorCode code, const QString& message,
                               QObject* parent);
    // status() is 0; errorOccurred and finished follow later.
    static LocalReply* failing(const QString& requestName, Error::ErrorCode code, const QString& message,
                               QObject* parent);
};

} // namespace Nubra
