// SPDX-License-Identifier: MIT
#include "mqtt/MessagePayload.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QtGlobal>
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
#include <QStringDecoder>
#else
#include <QTextCodec>
#endif

namespace Nubra {

namespace {

// Qt's own UTF-8 decoder decides in both Qt versions: Qt 6 moved it from
// QTextCodec (gone from Qt 6 Core) to QStringDecoder.
bool isValidUtf8(const QByteArray& bytes)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    // Stateless: a sequence cut off at the end is an error, not kept for later.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(bytes);
    return !decoder.hasError();
#else
    QTextCodec::ConverterState state;
    QTextCodec* codec = QTextCodec::codecForName("UTF-8");
    codec->toUnicode(bytes.constData(), bytes.size(), &state);
    return state.invalidChars == 0 && state.remainingChars == 0;
#endif
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
