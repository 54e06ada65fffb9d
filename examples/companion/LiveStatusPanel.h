// SPDX-License-Identifier: MIT
#pragma once

#include "SignedInUser.h"

#include <QWidget>

class BusyState;
class QLabel;
class QListWidget;
class QPushButton;

// Live device status: subscribes to the signed-in user's device topics and
// lists the messages as they arrive.
class LiveStatusPanel : public QWidget {
    Q_OBJECT
public:
    explicit LiveStatusPanel(BusyState* busy, QWidget* parent = nullptr);

    void setUser(const SignedInUser& user);

private:
    void subscribe();
    void disconnectFromServer();
    void updateActions();

    BusyState* m_busy;
    SignedInUser m_user;
    bool m_listening = false;
    QPushButton* m_subscribe;
    QPushButton* m_disconnect;
    QLabel* m_status;
    QListWidget* m_messages;
};
