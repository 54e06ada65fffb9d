// SPDX-License-Identifier: MIT
#include "BusyIndicator.h"

#include <QPainter>

BusyIndicator::BusyIndicator(QWidget* parent) : QWidget(parent)
{
    m_timer.setInterval(16);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        m_angle = (m_angle + 12) % 360;
        update();
    });
    setFixedSize(sizeHint());
}

void BusyIndicator::setRunning(bool running)
{
    if (running)
        m_timer.start();
    else
        m_timer.stop();
    update();
}

QSize BusyIndicator::sizeHint() const { return {20, 20}; }

void BusyIndicator::paintEvent(QPaintEvent*)
{
    if (!m_timer.isActive())
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(palette().highlight(), 3, Qt::SolidLine, Qt::RoundCap));
    // QPainter angles are in 1/16 degree, counter-clockwise.
    painter.drawArc(rect().adjusted(3, 3, -3, -3), -m_angle * 16, 270 * 16);
}
