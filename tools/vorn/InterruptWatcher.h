// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGINT and SIGTERM into a Qt signal. The handler only writes one byte
// into a socket pair; the event loop (also a helper call's local loop) reads
// it and emits interrupted(), so all real work happens outside the handler.
class InterruptWatcher : public QObject {
    Q_OBJECT
public:
    // The process-wide watcher, installed on first use.
    static InterruptWatcher& instance();

    // How many interrupts arrived so far.
    int count() const { return m_count; }

signals:
    void interrupted(int signalNumber, int count);

private:
    InterruptWatcher();
    void readSignal();

    QSocketNotifier* m_notifier = nullptr;
    int m_count = 0;
};
