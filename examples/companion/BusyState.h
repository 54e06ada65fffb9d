// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

// Whether a blocking helper call is running, and what it is.
//
// Every blocking call of the helper waits in a local event loop, and there
// are two kinds of them:
// - Calls that exclude user input while they wait (post, postv1, postv2,
//   get, the blocking VornCloudDiskRequest, setSoftwareAutoUpgrade,
//   checkSoftwareUpgrade, checkDownloadSoftwareExist) hold the user's clicks
//   and key presses back and deliver them after the call has returned: a
//   second click on the button that started the call would start it again.
// - Calls that admit user input (VornUserAccountRequest, subscribe,
//   startDownloadSoftware) handle clicks inside their wait: any action could
//   start a nested call, and the outer call returns only after it.
// The panels therefore disable their actions while busy() is true (only
// Pause stays usable during a download). busy() stays true for a short
// while after the last call has returned, so that held-back input lands on
// disabled actions and is dropped.
class BusyState : public QObject {
    Q_OBJECT
public:
    explicit BusyState(QObject* parent = nullptr);

    // A call runs, or one ended less than kSettleMs ago.
    bool busy() const { return m_depth > 0 || m_settling.isActive(); }
    // What the outermost running (or last) call does ("Signing in").
    QString activity() const { return m_activity; }

    // Marks one blocking call; scopes nest (a call made while another runs).
    class Scope {
    public:
        Scope(BusyState& state, const QString& activity);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        BusyState& m_state;
    };

    // Qt delivers held-back input with the next events from the window
    // system, which the spinner's repaints bring within a frame or two.
    static constexpr int kSettleMs = 250;

signals:
    void busyChanged(bool busy);
    // Around the outermost call only (without the settling time).
    void activityStarted(const QString& activity);
    void activityFinished(const QString& activity);

private:
    void enter(const QString& activity);
    void leave();

    int m_depth = 0;
    QString m_activity;
    QTimer m_settling;
};
