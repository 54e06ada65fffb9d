// SPDX-License-Identifier: MIT
#pragma once

#include "SignedInUser.h"

#include <QWidget>

class BusyState;
class QLabel;
class QListWidget;
class QProgressBar;
class QPushButton;

// The cloud disk: the user's spaces with their usage, and the upload of a
// chosen file into the front space with a progress bar.
class DiskPanel : public QWidget {
    Q_OBJECT
public:
    explicit DiskPanel(BusyState* busy, QWidget* parent = nullptr);

    void setUser(const SignedInUser& user);

private:
    void refresh();
    void chooseFile();
    void upload();
    bool uploadFile(QString* error);
    QVariantMap diskRequest(int iface, const QVariantMap& body, const QVariantMap& params);
    void updateActions();

    BusyState* m_busy;
    SignedInUser m_user;
    QString m_file;
    QString m_frontSpaceId;
    QListWidget* m_spaces;
    QPushButton* m_refresh;
    QLabel* m_fileLabel;
    QPushButton* m_choose;
    QPushButton* m_upload;
    QProgressBar* m_progress;
    QLabel* m_status;
};
