#include "BusyState.h"

#include <QCoreApplication>

BusyState::BusyState(QObject* parent) : QObject(parent) {}

BusyState::Scope::Scope(BusyState& state, const QString& activity) : m_state(state) { m_state.enter(activity); }

BusyState::Scope::~Scope() { m_state.leave(); }

void BusyState::enter(const QString& activity)
{
    if (m_depth++ > 0)
        return;
    m_activity = activity;
    emit activityStarted(activity);
    emit busyChanged(true);
}

void BusyState::leave()
{
    if (m_depth > 1) {
        --m_depth;
        return;
    }
    // Clicks held back by a call that excluded user input are delivered on
    // the next pass of the event loop. Deliver them here, while the actions
    // are still disabled, so that they are dropped instead of starting the
    // action once more.
    QCoreApplication::processEvents();
    m_depth = 0;
    const QString finished = m_activity;
    m_activity.clear();
    emit activityFinished(finished);
    emit busyChanged(false);
}
