// SPDX-License-Identifier: MIT
#include "AccountPanel.h"

#include "BusyState.h"
#include "ResultText.h"

#include <NubraCommon.h>
#include <VornNubraHelper.h>

#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

namespace {
const QString kSource = QStringLiteral("vorn-companion");
const int kProfileTimeoutMs = 15000;
} // namespace

AccountPanel::AccountPanel(BusyState* busy, const QString& account, QWidget* parent)
    : QWidget(parent),
      m_busy(busy),
      m_account(new QLineEdit(account)),
      m_password(new QLineEdit),
      m_signIn(new QPushButton(tr("Sign in"))),
      m_status(new QLabel),
      m_userName(new QLabel(tr("Not signed in"))),
      m_devices(new QListWidget)
{
    m_account->setObjectName(QStringLiteral("account"));
    m_account->setPlaceholderText(tr("e-mail address"));
    m_password->setObjectName(QStringLiteral("password"));
    m_password->setEchoMode(QLineEdit::Password);
    m_signIn->setObjectName(QStringLiteral("signIn"));
    m_signIn->setDefault(true);
    m_status->setObjectName(QStringLiteral("accountStatus"));
    m_status->setWordWrap(true);
    m_userName->setObjectName(QStringLiteral("userName"));
    QFont nameFont = m_userName->font();
    nameFont.setPointSizeF(nameFont.pointSizeF() * 1.4);
    nameFont.setBold(true);
    m_userName->setFont(nameFont);
    m_devices->setObjectName(QStringLiteral("devices"));

    auto* form = new QFormLayout;
    form->addRow(tr("Account"), m_account);
    form->addRow(tr("Password"), m_password);
    form->addRow(QString(), m_signIn);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(m_status);
    layout->addSpacing(12);
    layout->addWidget(m_userName);
    layout->addWidget(new QLabel(tr("Devices")));
    layout->addWidget(m_devices, 1);

    connect(m_signIn, &QPushButton::clicked, this, &AccountPanel::signIn);
    connect(m_password, &QLineEdit::returnPressed, this, &AccountPanel::signIn);
    connect(m_busy, &BusyState::busyChanged, this, &AccountPanel::updateActions);
    updateActions();
}

void AccountPanel::updateActions()
{
    m_signIn->setEnabled(!m_busy->busy());
    // returnPressed is no button: it has to be gated the same way.
    m_password->setReadOnly(m_busy->busy());
}

void AccountPanel::showError(const QString& text)
{
    m_status->setStyleSheet(QStringLiteral("color: #b00020"));
    m_status->setText(text);
}

void AccountPanel::signIn()
{
    if (m_busy->busy())
        return;
    BusyState::Scope busy(*m_busy, tr("Signing in"));
    VornNubraHelper* helper = VornNubraHelper::getInstance();
    m_status->clear();

    // The user-account call hands back the whole reply map, so a refusal
    // comes with the cloud's reason.
    QVariantMap reply;
    helper->VornUserAccountRequest(NubraCommon::VornUserAccountInterface::UserLogin, reply,
                                   {{QStringLiteral("account"), m_account->text().trimmed()},
                                    {QStringLiteral("password"), m_password->text()}},
                                   {}, {}, QString(), kSource);
    if (!ResultText::succeeded(reply)) {
        showError(tr("Sign-in failed: %1").arg(ResultText::failure(reply)));
        return;
    }
    const QVariantMap login = reply.value(QStringLiteral("result")).toMap();
    SignedInUser user;
    user.token = login.value(QStringLiteral("token")).toString();
    user.userId = login.value(QStringLiteral("userID")).toString();
    // From now on every request that needs the user sends this token.
    helper->setUserToken(user.token);

    QVariantMap profile;
    const int code = helper->post(NubraCommon::Interface::GetUserProfile, {{QStringLiteral("userID"), user.userId}},
                                  profile, {}, kProfileTimeoutMs);
    if (code != NubraCommon::Success) {
        showError(tr("Signed in, but the profile could not be read: %1").arg(ResultText::code(code)));
        return;
    }
    user.name = profile.value(QStringLiteral("name")).toString();
    m_userName->setText(user.name);
    m_devices->clear();
    for (const QVariant& entry : profile.value(QStringLiteral("devices")).toList()) {
        const QVariantMap device = entry.toMap();
        const QString serial = device.value(QStringLiteral("sn")).toString();
        user.deviceSerials << serial;
        m_devices->addItem(QStringLiteral("%1  %2  (firmware %3)")
                               .arg(serial, device.value(QStringLiteral("modelCode")).toString(),
                                    device.value(QStringLiteral("firmware")).toString()));
    }
    m_status->setStyleSheet(QString());
    m_status->setText(tr("Signed in as %1 (%2)").arg(profile.value(QStringLiteral("account")).toString(), user.userId));
    emit signedIn(user);
}
