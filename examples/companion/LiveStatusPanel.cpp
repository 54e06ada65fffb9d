// SPDX-License-Identifier: MIT
#include "LiveStatusPanel.h"

#include "BusyState.h"
#include "ResultText.h"

#include <NubraCommon.h>
#include <VornNubraHelper.h>

#include <QHBoxLayout>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTime>
#include <QVBoxLayout>

namespace {
// subscribe() always waits this long (see below).
const int kSubscribeWaitMs = 1500;
} // namespace

LiveStatusPanel::LiveStatusPanel(BusyState* busy, QWidget* parent)
    : QWidget(parent),
      m_busy(busy),
      m_subscribe(new QPushButton(tr("Subscribe"))),
      m_disconnect(new QPushButton(tr("Disconnect"))),
      m_status(new QLabel(tr("Sign in to follow your devices"))),
      m_messages(new QListWidget)
{
    m_subscribe->setObjectName(QStringLiteral("subscribe"));
    m_disconnect->setObjectName(QStringLiteral("disconnect"));
    m_status->setObjectName(QStringLiteral("liveStatus"));
    m_status->setWordWrap(true);
    m_messages->setObjectName(QStringLiteral("messages"));

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_subscribe);
    buttons->addWidget(m_disconnect);
    buttons->addStretch(1);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(buttons);
    layout->addWidget(m_status);
    layout->addWidget(m_messages, 1);

    connect(m_subscribe, &QPushButton::clicked, this, &LiveStatusPanel::subscribe);
    connect(m_disconnect, &QPushButton::clicked, this, &LiveStatusPanel::disconnectFromServer);
    connect(m_busy, &BusyState::busyChanged, this, &LiveStatusPanel::updateActions);
    // Messages arrive as a signal of the helper, for as long as the
    // subscription lives.
    connect(VornNubraHelper::getInstance(), &VornNubraHelper::subscribeData, this,
            [this](const QString& topic, const QVariantMap& data) {
                const QByteArray json = QJsonDocument(QJsonObject::fromVariantMap(data)).toJson(QJsonDocument::Compact);
                m_messages->addItem(QStringLiteral("%1  %2  %3")
                                        .arg(QTime::currentTime().toString(QStringLiteral("HH:mm:ss")), topic,
                                             QString::fromUtf8(json)));
                m_messages->scrollToBottom();
            });
    updateActions();
}

void LiveStatusPanel::setUser(const SignedInUser& user)
{
    m_user = user;
    m_status->setText(tr("%n device(s) to follow", nullptr, int(user.deviceSerials.size())));
    updateActions();
}

void LiveStatusPanel::updateActions()
{
    const bool idle = !m_busy->busy();
    m_subscribe->setEnabled(idle && !m_user.token.isEmpty() && !m_listening);
    m_disconnect->setEnabled(idle && m_listening);
}

void LiveStatusPanel::subscribe()
{
    if (m_busy->busy())
        return;
    QList<QVariant> topics;
    for (const QString& serial : m_user.deviceSerials)
        topics << QStringLiteral("devices/%1/status").arg(serial);
    BusyState::Scope busy(*m_busy, tr("Connecting to the message server"));
    // The signed-in user's token is the broker credential (any non-empty
    // user name makes the helper send it). The wait runs its whole time-out
    // by design: Timeout is the normal outcome once the connection is up;
    // an early return means the connection was refused or dropped.
    const int code =
        VornNubraHelper::getInstance()->subscribe(QStringLiteral("companion"), QString(), topics, kSubscribeWaitMs);
    m_listening = code == NubraCommon::Timeout;
    m_status->setText(m_listening ? tr("Listening to %n device topic(s)", nullptr, int(topics.size()))
                                  : tr("The message server did not take the subscription: %1")
                                        .arg(ResultText::code(code)));
}

void LiveStatusPanel::disconnectFromServer()
{
    const int code = VornNubraHelper::getInstance()->disconnectFromServer();
    m_listening = false;
    m_status->setText(code == NubraCommon::Success ? tr("Disconnected")
                                                   : tr("Disconnect refused: %1").arg(ResultText::code(code)));
    updateActions();
}
