// SPDX-License-Identifier: MIT
#pragma once

// Runs requests on a Nubra::Manager and records every signal of the reply,
// waiting in a local loop bounded by a guard time-out.

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include "Waiting.h"

#include <QEventLoop>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

namespace VornTest {

struct Observed {
    int status = -1; // reply->status() right after request()
    int finished = 0;
    int errors = 0;
    int sslErrorSignals = 0;
    bool errorBeforeFinished = true;
    QVariantMap map;
    Nubra::Error::ErrorCode error = Nubra::Error::NoError;
    QList<QSslError> sslErrors;
    bool guardExpired = false;
};

// Connects after the reply was returned (so a signal emitted inside
// request() would be missed and the guard would expire), waits for
// finished, then turns the loop a few more times to catch late extras.
inline Observed observe(Nubra::Reply* reply, int guardMs = 20000)
{
    Observed o;
    if (!reply)
        return o;
    o.status = reply->status();
    QEventLoop loop; // also the receivers' context: they go with it
    QObject::connect(reply, &Nubra::Reply::errorOccurred, &loop, [&](Nubra::Error::ErrorCode code) {
        ++o.errors;
        o.error = code;
        if (o.finished > 0)
            o.errorBeforeFinished = false;
    });
    QObject::connect(reply, &Nubra::Reply::sslErrorOccurred, &loop, [&](const QList<QSslError>& errors) {
        ++o.sslErrorSignals;
        o.sslErrors = errors;
    });
    QObject::connect(reply, &Nubra::Reply::finished, &loop, [&](const QVariantMap& map) {
        ++o.finished;
        o.map = map;
        loop.quit();
    });
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, [&] {
        o.guardExpired = true;
        loop.quit();
    });
    guard.start(guardMs);
    if (o.finished == 0)
        loop.exec();
    deliverQueued(3);
    reply->deleteLater();
    return o;
}

inline Observed run(Nubra::Manager& manager, const QString& name, const QVariantMap& record = {},
                    const QVariantMap& options = {})
{
    return observe(manager.request(name, record, options));
}

// Writes a configuration file into dir and loads it into the manager.
inline bool configure(Nubra::Manager& manager, const QTemporaryDir& dir, const QJsonObject& config,
                      const QString& fileName = QStringLiteral("config.json"))
{
    QFile file(dir.filePath(fileName));
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(QJsonDocument(config).toJson());
    file.close();
    const Observed o = observe(manager.setConfigPath(file.fileName(), {}));
    return o.finished == 1 && o.map.value("status").toString() == QLatin1String("success");
}

} // namespace VornTest
