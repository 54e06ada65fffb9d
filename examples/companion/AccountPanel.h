// SPDX-License-Identifier: MIT
#pragma once

#include "SignedInUser.h"

#include <QWidget>

class BusyState;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;

// Sign-in with account and password, then the user's name and devices.
class AccountPanel : public QWidget {
    Q_OBJECT
public:
    AccountPanel(BusyState* busy, const QString& account, QWidget* parent = nullptr);

signals:
    void signedIn(const SignedInUser& user);

private:
    void signIn();
    void showError(const QString& text);
    void updateActions();

    BusyState* m_busy;
    QLineEdit* m_account;
    QLineEdit* m_password;
    QPushButton* m_signIn;
    QLabel* m_status;
    QLabel* m_userName;
    QListWidget* m_devices;
};
