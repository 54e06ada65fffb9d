// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>

class QLabel;
class QPlainTextEdit;
class QPushButton;

// Protect a text (AES and base64) and restore it. These calls do not wait
// for the cloud, so they need no busy state.
class ProtectPanel : public QWidget {
    Q_OBJECT
public:
    explicit ProtectPanel(QWidget* parent = nullptr);

private:
    void protect();
    void restore();

    QPlainTextEdit* m_plain;
    QPlainTextEdit* m_protected;
    QPlainTextEdit* m_restored;
    QPushButton* m_protect;
    QPushButton* m_restore;
    QLabel* m_status;
};
