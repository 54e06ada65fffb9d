// SPDX-License-Identifier: MIT
#include "DiskPanel.h"

#include "BusyState.h"
#include "ResultText.h"

#include <NubraCommon.h>
#include <VornNubraHelper.h>

#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

using NubraCommon::VornCloudDiskInterface;

namespace {
const QString kSource = QStringLiteral("vorn-companion");
}

DiskPanel::DiskPanel(BusyState* busy, QWidget* parent)
    : QWidget(parent),
      m_busy(busy),
      m_spaces(new QListWidget),
      m_refresh(new QPushButton(tr("Refresh"))),
      m_fileLabel(new QLabel(tr("No file chosen"))),
      m_choose(new QPushButton(tr("Choose file..."))),
      m_upload(new QPushButton(tr("Upload"))),
      m_progress(new QProgressBar),
      m_status(new QLabel)
{
    m_spaces->setObjectName(QStringLiteral("spaces"));
    m_refresh->setObjectName(QStringLiteral("refreshSpaces"));
    m_fileLabel->setObjectName(QStringLiteral("uploadFile"));
    m_choose->setObjectName(QStringLiteral("chooseFile"));
    m_upload->setObjectName(QStringLiteral("upload"));
    m_progress->setObjectName(QStringLiteral("uploadProgress"));
    m_progress->setRange(0, 100);
    m_progress->setValue(0);
    m_status->setObjectName(QStringLiteral("uploadStatus"));
    m_status->setWordWrap(true);

    auto* spacesHeader = new QHBoxLayout;
    spacesHeader->addWidget(new QLabel(tr("Spaces")), 1);
    spacesHeader->addWidget(m_refresh);
    auto* fileRow = new QHBoxLayout;
    fileRow->addWidget(m_fileLabel, 1);
    fileRow->addWidget(m_choose);
    fileRow->addWidget(m_upload);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(spacesHeader);
    layout->addWidget(m_spaces, 1);
    layout->addSpacing(12);
    layout->addWidget(new QLabel(tr("Upload into the front space")));
    layout->addLayout(fileRow);
    layout->addWidget(m_progress);
    layout->addWidget(m_status);

    connect(m_refresh, &QPushButton::clicked, this, &DiskPanel::refresh);
    connect(m_choose, &QPushButton::clicked, this, &DiskPanel::chooseFile);
    connect(m_upload, &QPushButton::clicked, this, &DiskPanel::upload);
    connect(m_busy, &BusyState::busyChanged, this, &DiskPanel::updateActions);
    updateActions();
}

void DiskPanel::setUser(const SignedInUser& user)
{
    m_user = user;
    refresh();
}

void DiskPanel::updateActions()
{
    const bool idle = !m_busy->busy();
    const bool signedIn = !m_user.token.isEmpty();
    m_refresh->setEnabled(idle && signedIn);
    m_choose->setEnabled(idle);
    m_upload->setEnabled(idle && signedIn && !m_file.isEmpty() && !m_frontSpaceId.isEmpty());
}

// The disk calls take the user token as a header of their own.
QVariantMap DiskPanel::diskRequest(int iface, const QVariantMap& body, const QVariantMap& params)
{
    QVariantMap reply;
    VornNubraHelper::getInstance()->VornCloudDiskRequest(VornCloudDiskInterface(iface), reply, body, params,
                                                         {{QStringLiteral("X-Auth-Token"), m_user.token}}, kSource);
    return reply;
}

void DiskPanel::refresh()
{
    BusyState::Scope busy(*m_busy, tr("Reading the cloud disk"));
    const QVariantMap reply = diskRequest(int(VornCloudDiskInterface::FetchFrontSpace), {}, {});
    m_spaces->clear();
    if (!ResultText::succeeded(reply)) {
        m_status->setText(tr("The spaces could not be read: %1").arg(ResultText::failure(reply)));
        return;
    }
    const QVariantMap result = reply.value(QStringLiteral("result")).toMap();
    m_frontSpaceId = result.value(QStringLiteral("frontSpace")).toMap().value(QStringLiteral("spaceId")).toString();
    for (const QVariant& entry : result.value(QStringLiteral("spaces")).toList()) {
        const QVariantMap space = entry.toMap();
        const QString id = space.value(QStringLiteral("spaceId")).toString();
        m_spaces->addItem(tr("%1%2: %3 used of %4")
                              .arg(space.value(QStringLiteral("name")).toString(),
                                   id == m_frontSpaceId ? tr(" (front)") : QString(),
                                   ResultText::bytes(space.value(QStringLiteral("usedBytes")).toLongLong()),
                                   ResultText::bytes(space.value(QStringLiteral("quotaBytes")).toLongLong())));
    }
}

void DiskPanel::chooseFile()
{
    // Qt's own dialog, not the desktop's: it looks the same everywhere and
    // the GUI test can type into it.
    const QString file = QFileDialog::getOpenFileName(this, tr("Choose a file to upload"), QString(), QString(),
                                                      nullptr, QFileDialog::DontUseNativeDialog);
    if (file.isEmpty())
        return;
    m_file = file;
    m_fileLabel->setText(QFileInfo(file).fileName());
    m_progress->setValue(0);
    m_status->clear();
    updateActions();
}

void DiskPanel::upload()
{
    if (m_busy->busy())
        return;
    QString error;
    {
        BusyState::Scope busy(*m_busy, tr("Uploading %1").arg(QFileInfo(m_file).fileName()));
        if (!uploadFile(&error)) {
            m_status->setText(error);
            return;
        }
    }
    refresh();
}

bool DiskPanel::uploadFile(QString* error)
{
    m_progress->setValue(0);
    const QVariantMap grant = diskRequest(int(VornCloudDiskInterface::SdkDynamicEncodeToken),
                                          {{QStringLiteral("spaceId"), m_frontSpaceId}}, {});
    if (!ResultText::succeeded(grant)) {
        *error = tr("No upload token: %1").arg(ResultText::failure(grant));
        return false;
    }
    const QString uploadToken =
        grant.value(QStringLiteral("result")).toMap().value(QStringLiteral("uploadToken")).toString();
    const QVariantMap queued = diskRequest(int(VornCloudDiskInterface::UploadCloudSpaceFile), {},
                                           {{QStringLiteral("files"), QStringList{m_file}},
                                            {QStringLiteral("uploadToken"), uploadToken}});
    if (!ResultText::succeeded(queued)) {
        *error = tr("The file was not accepted: %1").arg(ResultText::failure(queued));
        return false;
    }

    // The helper relays the transfer's progress while the start call waits.
    const QMetaObject::Connection progress = connect(
        VornNubraHelper::getInstance(), &VornNubraHelper::uploadProgress, this, [this](qint64 sent, qint64 total) {
            if (total > 0)
                m_progress->setValue(int(sent * 100 / total));
        });
    const QVariantMap reply = diskRequest(int(VornCloudDiskInterface::StartUploadStart), {}, {});
    disconnect(progress);
    const QVariantMap file =
        reply.value(QStringLiteral("result")).toMap().value(QStringLiteral("files")).toList().value(0).toMap();
    if (!ResultText::succeeded(reply) || file.value(QStringLiteral("status")).toString() != QLatin1String("uploaded")) {
        *error = tr("Upload failed: %1")
                     .arg(ResultText::succeeded(reply) ? QStringLiteral("%1, %2").arg(
                              file.value(QStringLiteral("status")).toString(),
                              file.value(QStringLiteral("message")).toString())
                                                       : ResultText::failure(reply));
        return false;
    }
    m_status->setText(tr("%1 uploaded (%2, SHA-256 %3...)")
                          .arg(file.value(QStringLiteral("name")).toString(),
                               ResultText::bytes(file.value(QStringLiteral("size")).toLongLong()),
                               file.value(QStringLiteral("sha256")).toString().left(16)));
    return true;
}
