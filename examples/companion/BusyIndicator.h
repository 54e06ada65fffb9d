// SPDX-License-Identifier: MIT
#pragma once

#include <QTimer>
#include <QWidget>

// A small spinner that turns while a blocking call runs. It repaints every
// 16 ms, so a window whose event loop stalls shows it at once (and the GUI
// test measures the gaps between its repaints).
class BusyIndicator : public QWidget {
    Q_OBJECT
public:
    explicit BusyIndicator(QWidget* parent = nullptr);

    void setRunning(bool running);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QTimer m_timer;
    int m_angle = 0;
};
