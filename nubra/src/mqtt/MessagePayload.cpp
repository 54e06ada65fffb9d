#include "mqtt/MessagePayload.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QTextCodec>

namespace Nubra {

namespace {

bool isValidUtf8(const QByteArray& bytes)
{
    QTextCodec::ConverterState state;
    QTextCodec* codec = QTextCodec::codecForName("UTF-8");
    codec->toUnicode(bytes.constData(), bytes.size(), &state);
    return state.invalidChars == 0 && state.remainingChars == 0;
}

} // namespace

QVariantMap decodeMessagePayload(const QByteArray& payload)
{
    // Cheap pre-check: only text that starts like an object is worth parsing.
    int first = 0;
    while (first < payload.size() && (payload[first] == ' ' || payload[first] == '\t' || payload[first] == '\n'
                                      || payload[first] == '\r'))
        ++first;
    if (first < payload.size() && payload[first] == '{') {
        QJsonParseError parseError{};
        const QJsonDocument document = QJsonDocument::fromJson(payload, &parseError);
        if (parseError.error == QJsonParseError::NoError && document.isObject())
            return document.object().toVariantMap();
    }
    if (isValidUtf8(payload))
        return {{QStringLiteral("payload"), QString::fromUtf8(payload)}, {QStringLiteral("encoding"), QStringLiteral("utf8")}};
    return {{QStringLiteral("payload"), QString::fromLatin1(payload.toBase64())},
            {QStringLiteral("encoding"), QStringLiteral("base64")}};
}

} // namespace Nubra
