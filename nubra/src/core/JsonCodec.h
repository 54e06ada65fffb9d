#pragma once

// JSON straight to and from QVariantMap, for API bodies and answers.
//
// Qt 5.15 goes through CBOR containers and QJsonValue both ways, which costs
// more than the rest of a small API call's client-side work. These two
// functions skip the intermediate containers but keep Qt's exact results, so
// callers can switch without any visible change:
//
// - writeObject(map) returns the same bytes as
//   QJsonDocument(QJsonObject::fromVariantMap(map)).toJson(QJsonDocument::Compact).
// - parseObject(text) succeeds exactly when QJsonDocument::fromJson(text) gives
//   a document whose top level is an object, and then yields the same map as
//   doc.object().toVariantMap(), QVariant types included (numbers with an
//   integral value in the qint64 range are qlonglong, other numbers double,
//   null is std::nullptr_t).
//
// tests/nubra/JsonCodecTest.cpp and fuzz/json_codec_fuzz.cpp check both
// promises against Qt itself.

#include <QByteArray>
#include <QString>
#include <QVariantMap>

namespace Nubra::Json {

// Compact JSON text of `map`. Values of types the codec does not write itself
// (dates, URLs, byte arrays, JSON values, ...) are converted by Qt.
QByteArray writeObject(const QVariantMap& map);

// Parses `text`, which must hold one JSON object. On success stores it in
// `*out` and returns true; otherwise leaves `*out` untouched, stores a short
// description with the byte offset in `*error` (when not null) and returns
// false.
bool parseObject(const QByteArray& text, QVariantMap* out, QString* error);

} // namespace Nubra::Json
