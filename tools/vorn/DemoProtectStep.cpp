// SPDX-License-Identifier: MIT
// Demo step of the protected-data calls: a JSON object protected and
// restored.

#include "DemoSteps.h"

#if VORN_CLI_PROTECT

#include <NubraCommon.h>
#include <VornNubraHelper.h>

#include <QJsonDocument>
#include <QJsonObject>

namespace Demo {

Outcome protectJson(StepContext& step)
{
    const QJsonObject original{{QStringLiteral("device"), QStringLiteral("VS2024000123")},
                               {QStringLiteral("calibration"), QJsonObject{{QStringLiteral("pointPitch"), 0.05},
                                                                           {QStringLiteral("exposure"), 12}}},
                               {QStringLiteral("owner"), QStringLiteral("Zoë")}};
    QString protectedText;
    const int code = step.helper->serializeObj(original, protectedText);
    if (code != NubraCommon::Success || protectedText.isEmpty())
        return expectCode(step, code, NubraCommon::Success, QStringLiteral("no protected text"));
    step.say(QStringLiteral("serializeObj -> %1 characters: %2...").arg(protectedText.size()).arg(protectedText.left(40)));

    QString restored;
    step.helper->deserializeData(protectedText, restored);
    const QJsonObject back = QJsonDocument::fromJson(restored.toUtf8()).object();
    step.say(QStringLiteral("deserializeData -> %1")
                 .arg(QString::fromUtf8(QJsonDocument(back).toJson(QJsonDocument::Compact))));
    if (back != original)
        return failStep(step, QStringLiteral("the restored object differs from the original"));

    // The codec cannot tell a wrong key: it hands back whatever decrypts.
    QString wrongKey;
    step.helper->deserializeData(protectedText, QStringLiteral("0123456789abcdef"), wrongKey);
    if (QJsonDocument::fromJson(wrongKey.toUtf8()).object() == original)
        return failStep(step, QStringLiteral("another key restored the object too"));
    return expectCode(step, code, NubraCommon::Success,
                      QStringLiteral("the restored object equals the original; another key gives garbage"));
}

} // namespace Demo

#endif
