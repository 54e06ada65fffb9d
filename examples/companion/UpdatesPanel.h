// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>

class BusyState;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;

// Software updates: register this installation, check for a newer
// version, download it with progress, pause and resume, and look for a
// package already on disk.
class UpdatesPanel : public QWidget {
    Q_OBJECT
public:
    UpdatesPanel(BusyState* busy, const QString& packageFolder, QWidget* parent = nullptr);

private:
    void registerInstallation();
    void check();
    void download();
    void pause();
    void checkOnDisk();
    void showOutcome(const QString& text, bool failed);
    void updateActions();

    BusyState* m_busy;
    QString m_packageFolder;
    QString m_availableVersion;
    bool m_registered = false;
    bool m_downloading = false;
    bool m_pauseRequested = false;
    QLineEdit* m_model;
    QLineEdit* m_version;
    QPushButton* m_register;
    QPushButton* m_check;
    QPushButton* m_download;
    QPushButton* m_pause;
    QPushButton* m_onDisk;
    QLabel* m_available;
    QProgressBar* m_progress;
    QLabel* m_status;
};
