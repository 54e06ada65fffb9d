// SPDX-License-Identifier: MIT
#pragma once

#include <QMainWindow>

class AccountPanel;
class BusyIndicator;
class BusyState;
class DiskPanel;
class LiveStatusPanel;
class ProtectPanel;
class QLabel;
class QTabWidget;
class UpdatesPanel;

struct CompanionOptions {
    // Where downloaded update packages are kept.
    QString packageFolder;
    // Pre-filled in the sign-in form.
    QString account;
};

// The Vorn Companion window: one tab per part of the library, and a status
// bar that shows which blocking call runs.
class CompanionWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit CompanionWindow(const CompanionOptions& options, QWidget* parent = nullptr);

    BusyState* busyState() const { return m_busy; }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void showBusy(bool busy);

    BusyState* m_busy;
    QTabWidget* m_tabs;
    AccountPanel* m_account;
    DiskPanel* m_disk;
    UpdatesPanel* m_updates;
    LiveStatusPanel* m_live;
    ProtectPanel* m_protect;
    BusyIndicator* m_indicator;
    QLabel* m_activity;
    bool m_closeWhenIdle = false;
};
