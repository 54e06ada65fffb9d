// SPDX-License-Identifier: MIT
#include "ProtectPanel.h"

#include "ResultText.h"

#include <NubraCommon.h>
#include <VornNubraHelper.h>

#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

ProtectPanel::ProtectPanel(QWidget* parent)
    : QWidget(parent),
      m_plain(new QPlainTextEdit),
      m_protected(new QPlainTextEdit),
      m_restored(new QPlainTextEdit),
      m_protect(new QPushButton(tr("Protect"))),
      m_restore(new QPushButton(tr("Restore"))),
      m_status(new QLabel)
{
    m_plain->setObjectName(QStringLiteral("plainText"));
    m_plain->setPlaceholderText(tr("Text to protect, e.g. calibration notes"));
    m_protected->setObjectName(QStringLiteral("protectedText"));
    m_protected->setPlaceholderText(tr("Protected text (paste one here to restore it)"));
    m_restored->setObjectName(QStringLiteral("restoredText"));
    m_restored->setReadOnly(true);
    m_protect->setObjectName(QStringLiteral("protect"));
    m_restore->setObjectName(QStringLiteral("restore"));
    m_status->setObjectName(QStringLiteral("protectStatus"));

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_protect);
    buttons->addWidget(m_restore);
    buttons->addStretch(1);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(tr("Text")));
    layout->addWidget(m_plain);
    layout->addLayout(buttons);
    layout->addWidget(new QLabel(tr("Protected")));
    layout->addWidget(m_protected);
    layout->addWidget(new QLabel(tr("Restored")));
    layout->addWidget(m_restored);
    layout->addWidget(m_status);

    connect(m_protect, &QPushButton::clicked, this, &ProtectPanel::protect);
    connect(m_restore, &QPushButton::clicked, this, &ProtectPanel::restore);
}

void ProtectPanel::protect()
{
    QString text;
    const int code = VornNubraHelper::getInstance()->serializeData(m_plain->toPlainText(), text);
    m_protected->setPlainText(text);
    m_status->setText(code == NubraCommon::Success ? tr("Protected: %n character(s)", nullptr, int(text.size()))
                                                   : tr("Nothing protected: %1").arg(ResultText::code(code)));
}

void ProtectPanel::restore()
{
    QString text;
    const int code = VornNubraHelper::getInstance()->deserializeData(m_protected->toPlainText().trimmed(), text);
    m_restored->setPlainText(text);
    m_status->setText(code == NubraCommon::Success ? tr("Restored")
                                                   : tr("Not restored: %1").arg(ResultText::code(code)));
}
