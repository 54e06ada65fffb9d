// SPDX-License-Identifier: MIT
#include "CompanionWindow.h"

#include "AccountPanel.h"
#include "BusyIndicator.h"
#include "BusyState.h"
#include "DiskPanel.h"
#include "LiveStatusPanel.h"
#include "ProtectPanel.h"
#include "UpdatesPanel.h"

#include <QCloseEvent>
#include <QLabel>
#include <QStatusBar>
#include <QTabWidget>

CompanionWindow::CompanionWindow(const CompanionOptions& options, QWidget* parent)
    : QMainWindow(parent),
      m_busy(new BusyState(this)),
      m_tabs(new QTabWidget),
      m_account(new AccountPanel(m_busy, options.account)),
      m_disk(new DiskPanel(m_busy)),
      m_updates(new UpdatesPanel(m_busy, options.packageFolder)),
      m_live(new LiveStatusPanel(m_busy)),
      m_protect(new ProtectPanel),
      m_indicator(new BusyIndicator),
      m_activity(new QLabel)
{
    setWindowTitle(tr("Vorn Companion"));
    m_tabs->setObjectName(QStringLiteral("tabs"));
    m_tabs->addTab(m_account, tr("Account"));
    m_tabs->addTab(m_disk, tr("Cloud disk"));
    m_tabs->addTab(m_updates, tr("Updates"));
    m_tabs->addTab(m_live, tr("Live status"));
    m_tabs->addTab(m_protect, tr("Protect"));
    setCentralWidget(m_tabs);
    m_indicator->setObjectName(QStringLiteral("busyIndicator"));
    m_activity->setObjectName(QStringLiteral("activity"));
    statusBar()->addWidget(m_indicator);
    statusBar()->addWidget(m_activity, 1);
    resize(640, 480);

    connect(m_account, &AccountPanel::signedIn, m_disk, &DiskPanel::setUser);
    connect(m_account, &AccountPanel::signedIn, m_live, &LiveStatusPanel::setUser);
    connect(m_busy, &BusyState::busyChanged, this, &CompanionWindow::showBusy);
}

void CompanionWindow::showBusy(bool busy)
{
    m_indicator->setRunning(busy);
    m_activity->setText(busy ? m_busy->activity() + QStringLiteral("...") : QString());
    if (!busy && m_closeWhenIdle)
        close();
}

// Closing inside a blocking call would end the application's event loop
// and, with it, the call's own wait before its answer came: the window
// closes when the call has returned.
void CompanionWindow::closeEvent(QCloseEvent* event)
{
    if (!m_busy->busy()) {
        event->accept();
        return;
    }
    m_closeWhenIdle = true;
    m_activity->setText(tr("%1... (closing when it ends)").arg(m_busy->activity()));
    event->ignore();
}
