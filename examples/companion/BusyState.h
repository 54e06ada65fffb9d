#pragma once

#include <QObject>
#include <QString>

// Whether a blocking helper call is running, and what it is.
//
// Every blocking call of the helper waits in a local event loop, and there
// are two kinds of them:
// - Calls that exclude user input while they wait (post, postv1, postv2,
//   get, the blocking VornCloudDiskRequest, setSoftwareAutoUpgrade,
//   checkSoftwareUpgrade, checkDownloadSoftwareExist) hold the user's clicks
//   and key presses back and deliver them when the call returns: a second
//   click on the button that started the call would start it again.
// - Calls that admit user input (VornUserAccountRequest, subscribe,
//   startDownloadSoftware) handle clicks inside their wait: any action could
//   start a nested call, and the outer call returns only after it.
// The panels therefore disable their actions while busy() is true (only
// Pause stays usable during a download), and a Scope ends by delivering the
// held-back input while the actions are still disabled, so it is dropped.
class BusyState : public QObject {
    Q_OBJECT
public:
    explicit BusyState(QObject* parent = nullptr);

    bool busy() const { return m_depth > 0; }
    // What the outermost running call does ("Signing in").
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

signals:
    void busyChanged(bool busy);
    // Around the outermost call only.
    void activityStarted(const QString& activity);
    void activityFinished(const QString& activity);

private:
    void enter(const QString& activity);
    void leave();

    int m_depth = 0;
    QString m_activity;
};
