// SPDX-License-Identifier: MIT
#include "UpdatesPanel.h"

#include "BusyState.h"
#include "ResultText.h"

#include <NubraCommon.h>
#include <VornNubraHelper.h>

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

UpdatesPanel::UpdatesPanel(BusyState* busy, const QString& packageFolder, QWidget* parent)
    : QWidget(parent),
      m_busy(busy),
      m_packageFolder(packageFolder),
      m_model(new QLineEdit(QStringLiteral("VS-200"))),
      m_version(new QLineEdit(QStringLiteral("1.1.0"))),
      m_register(new QPushButton(tr("Register"))),
      m_check(new QPushButton(tr("Check for updates"))),
      m_download(new QPushButton(tr("Download"))),
      m_pause(new QPushButton(tr("Pause"))),
      m_onDisk(new QPushButton(tr("Already on disk?"))),
      m_available(new QLabel(tr("Not checked yet"))),
      m_progress(new QProgressBar),
      m_status(new QLabel)
{
    m_model->setObjectName(QStringLiteral("model"));
    m_version->setObjectName(QStringLiteral("installedVersion"));
    m_register->setObjectName(QStringLiteral("register"));
    m_check->setObjectName(QStringLiteral("check"));
    m_download->setObjectName(QStringLiteral("download"));
    m_pause->setObjectName(QStringLiteral("pause"));
    m_onDisk->setObjectName(QStringLiteral("onDisk"));
    m_available->setObjectName(QStringLiteral("available"));
    m_available->setWordWrap(true);
    m_progress->setObjectName(QStringLiteral("downloadProgress"));
    m_progress->setRange(0, 100);
    m_progress->setValue(0);
    m_status->setObjectName(QStringLiteral("downloadStatus"));
    m_status->setWordWrap(true);

    auto* form = new QFormLayout;
    form->addRow(tr("Model"), m_model);
    form->addRow(tr("Installed version"), m_version);
    form->addRow(tr("Packages are kept in"), new QLabel(m_packageFolder));
    auto* checkRow = new QHBoxLayout;
    checkRow->addWidget(m_register);
    checkRow->addWidget(m_check);
    checkRow->addStretch(1);
    auto* downloadRow = new QHBoxLayout;
    downloadRow->addWidget(m_download);
    downloadRow->addWidget(m_pause);
    downloadRow->addWidget(m_onDisk);
    downloadRow->addStretch(1);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addLayout(checkRow);
    layout->addWidget(m_available);
    layout->addSpacing(12);
    layout->addLayout(downloadRow);
    layout->addWidget(m_progress);
    layout->addWidget(m_status);
    layout->addStretch(1);

    connect(m_register, &QPushButton::clicked, this, &UpdatesPanel::registerInstallation);
    connect(m_check, &QPushButton::clicked, this, &UpdatesPanel::check);
    connect(m_download, &QPushButton::clicked, this, &UpdatesPanel::download);
    connect(m_pause, &QPushButton::clicked, this, &UpdatesPanel::pause);
    connect(m_onDisk, &QPushButton::clicked, this, &UpdatesPanel::checkOnDisk);
    connect(m_busy, &BusyState::busyChanged, this, &UpdatesPanel::updateActions);
    // downloadProgress comes from the running download and from the check
    // for a package on disk (which reports what is there).
    connect(VornNubraHelper::getInstance(), &VornNubraHelper::downloadProgress, this,
            [this](qint64 received, qint64 total) {
                if (total > 0)
                    m_progress->setValue(int(received * 100 / total));
                m_progress->setFormat(tr("%p% (%1 of %2)").arg(ResultText::bytes(received), ResultText::bytes(total)));
            });
    updateActions();
}

void UpdatesPanel::updateActions()
{
    const bool idle = !m_busy->busy();
    m_register->setEnabled(idle);
    m_check->setEnabled(idle);
    m_download->setEnabled(idle && !m_availableVersion.isEmpty());
    m_onDisk->setEnabled(idle && !m_availableVersion.isEmpty());
    // The download waits with user input admitted precisely so that the
    // user can pause it: Pause is the one action usable while busy.
    m_pause->setEnabled(m_downloading && !m_pauseRequested);
    m_model->setReadOnly(!idle);
    m_version->setReadOnly(!idle);
}

void UpdatesPanel::showOutcome(const QString& text, bool failed)
{
    m_status->setStyleSheet(failed ? QStringLiteral("color: #b00020") : QString());
    m_status->setText(text);
}

void UpdatesPanel::registerInstallation()
{
    BusyState::Scope busy(*m_busy, tr("Registering for updates"));
    const int code = VornNubraHelper::getInstance()->setSoftwareAutoUpgrade(
        m_model->text(), m_version->text(), QStringLiteral("release"), QStringLiteral("en"), m_packageFolder);
    m_registered = code == NubraCommon::Success;
    showOutcome(m_registered ? tr("Registered %1 %2 for updates").arg(m_model->text(), m_version->text())
                             : tr("Registration refused: %1").arg(ResultText::code(code)),
                !m_registered);
}

void UpdatesPanel::check()
{
    BusyState::Scope busy(*m_busy, tr("Checking for updates"));
    QVariantMap info;
    const int code = VornNubraHelper::getInstance()->checkSoftwareUpgrade(m_model->text(), info);
    m_availableVersion.clear();
    if (code != NubraCommon::Success) {
        m_available->setText(tr("The check failed: %1%2")
                                 .arg(ResultText::code(code),
                                      m_registered ? QString() : tr(" (register first)")));
    } else if (!info.value(QStringLiteral("hasUpgrade")).toBool()) {
        m_available->setText(tr("%1 %2 is up to date").arg(m_model->text(), m_version->text()));
    } else {
        m_availableVersion = info.value(QStringLiteral("version")).toString();
        m_available->setText(tr("%1 %2 is available (%3): %4")
                                 .arg(m_model->text(), m_availableVersion,
                                      ResultText::bytes(info.value(QStringLiteral("packageSize")).toLongLong()),
                                      info.value(QStringLiteral("releaseNotes")).toString()));
    }
}

void UpdatesPanel::download()
{
    if (m_busy->busy())
        return;
    VornNubraHelper* helper = VornNubraHelper::getInstance();
    bool succeeded = false;
    QObject outcome; // ends the two connections with this call
    connect(helper, &VornNubraHelper::downloadSuccess, &outcome, [&succeeded] { succeeded = true; });
    connect(helper, &VornNubraHelper::downloadFail, &outcome, [&succeeded] { succeeded = false; });
    m_pauseRequested = false;
    m_downloading = true;
    showOutcome(tr("Downloading %1 %2...").arg(m_model->text(), m_availableVersion), false);
    int code = NubraCommon::Success;
    {
        BusyState::Scope busy(*m_busy, tr("Downloading %1 %2").arg(m_model->text(), m_availableVersion));
        code = helper->startDownloadSoftware(m_model->text(), m_availableVersion);
        m_downloading = false;
    }
    // A pause also ends with downloadSuccess, so the panel remembers it.
    if (code != NubraCommon::Success)
        showOutcome(tr("The download did not start: %1").arg(ResultText::code(code)), true);
    else if (m_pauseRequested)
        showOutcome(tr("Paused; Download resumes where it stopped"), false);
    else if (succeeded)
        showOutcome(tr("%1 %2 downloaded and verified").arg(m_model->text(), m_availableVersion), false);
    else
        showOutcome(tr("The download failed (see the log); Download tries again"), true);
    m_pauseRequested = false;
    updateActions();
}

void UpdatesPanel::pause()
{
    // Runs inside the download's wait, which it ends.
    m_pauseRequested = true;
    updateActions();
    const int code = VornNubraHelper::getInstance()->pauseDownloadSoftware();
    if (code != NubraCommon::Success)
        showOutcome(tr("Pause refused: %1").arg(ResultText::code(code)), true);
}

void UpdatesPanel::checkOnDisk()
{
    BusyState::Scope busy(*m_busy, tr("Looking for the package on disk"));
    const int code = VornNubraHelper::getInstance()->checkDownloadSoftwareExist(m_model->text(), m_availableVersion);
    if (code == NubraCommon::PackageExists)
        showOutcome(tr("%1 %2 is on disk (%3)").arg(m_model->text(), m_availableVersion, m_progress->text()), false);
    else if (code == NubraCommon::Success)
        showOutcome(tr("%1 %2 is not on disk yet").arg(m_model->text(), m_availableVersion), false);
    else
        showOutcome(tr("The check failed: %1").arg(ResultText::code(code)), true);
}
