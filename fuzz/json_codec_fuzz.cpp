// Nubra::Json on any text: parseObject accepts exactly what QJsonDocument
// accepts as an object and gives toVariantMap()'s map, QVariant types
// included; writeObject of that map gives Qt's bytes, and those bytes read
// back and written again give the same bytes.

#include "FuzzCheck.h"
#include "VariantDiff.h"
#include "core/JsonCodec.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray text(reinterpret_cast<const char*>(data), int(size));
    QJsonParseError qtError{};
    const QJsonDocument doc = QJsonDocument::fromJson(text, &qtError);
    const bool qtAccepts = qtError.error == QJsonParseError::NoError && doc.isObject();
    QVariantMap ours;
    QString error;
    const bool weAccept = Nubra::Json::parseObject(text, &ours, &error);
    VORN_FUZZ_CHECK(weAccept == qtAccepts);
    if (!weAccept) {
        VORN_FUZZ_CHECK(ours.isEmpty() && !error.isEmpty());
        return 0;
    }
    const QString difference = variantDifference(ours, doc.object().toVariantMap());
    if (!difference.isEmpty())
        std::fprintf(stderr, "%s\n", qPrintable(difference));
    VORN_FUZZ_CHECK(difference.isEmpty());

    const QByteArray written = Nubra::Json::writeObject(ours);
    VORN_FUZZ_CHECK(written == QJsonDocument(QJsonObject::fromVariantMap(ours)).toJson(QJsonDocument::Compact));
    QVariantMap reread;
    VORN_FUZZ_CHECK(Nubra::Json::parseObject(written, &reread, &error));
    VORN_FUZZ_CHECK(Nubra::Json::writeObject(reread) == written);
    return 0;
}
