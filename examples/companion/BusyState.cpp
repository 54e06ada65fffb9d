// SPDX-License-Identifier: MIT
#include "BusyState.h"

BusyState::BusyState(QObject* parent) : QObject(parent)
{
    m_settling.setSingleShot(true);
    m_settling.setInterval(kSettleMs);
    connect(&m_settling, &QTimer::timeout, this, [this] { emit busyChanged(false); });
}

BusyState::Scope::Scope(BusyState& state, const QString& activity) : m_state(state) { m_state.enter(activity); }

BusyState::Scope::~Scope() { m_state.leave(); }

void BusyState::enter(const QString& activity)
{
    if (m_depth++ > 0)
        return;
    const bool settling = m_settling.isActive();
    m_settling.stop();
    m_activity = activity;
    if (!settling)
        emit busyChanged(true);
    emit activityStarted(activity);
}

void BusyState::leave()
{
    if (--m_depth > 0)
        return;
    emit activityFinished(m_activity);
    // The actions stay disabled a little longer: clicks a call held back
    // arrive after it returned, and must not find them enabled.
    m_settling.start();
}
