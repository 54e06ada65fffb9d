// SPDX-License-Identifier: MIT
// The helper's protected-data calls: the codec (eddata) in Qt terms. They
// touch neither the cloud client nor the helper's members, so any thread
// may call them.

#include "VornNubraHelper.h"

#include "VornLog.h"
#include "eddata.h"

#include <QByteArray>
#include <QJsonDocument>

#include <stdexcept>

namespace {

// The indented JSON text of an object, read back as a string up to its
// first zero byte.
QString jsonText(const QJsonObject& object)
{
    const QByteArray json = QJsonDocument(object).toJson();
    return QString::fromUtf8(json.constData());
}

std::string utf8Bytes(const QString& text)
{
    return text.toUtf8().toStdString();
}

std::string local8BitBytes(const QString& text)
{
    return text.toLocal8Bit().toStdString();
}

// Bytes read as UTF-8 up to the first zero byte: this drops the codec's zero
// padding (and cuts a text at any zero byte of its own).
QString untilFirstZero(const std::string& bytes)
{
    return QString::fromUtf8(bytes.c_str());
}

} // namespace

int VornNubraHelper::serializeObj(QJsonObject object, QString& result)
{
    const std::string protectedText = EDData::global_serialize(utf8Bytes(jsonText(object)));
    if (protectedText.empty()) {
        // "empty1" here and "empty2" in the other two calls: kept for compatibility with applications built
        // against this interface.
        VORN_LOG << "serializeData is empty1!";
        return NubraCommon::SerializeFailed;
    }
    result = untilFirstZero(protectedText);
    return NubraCommon::Success;
}

int VornNubraHelper::serializeFile(QString content, QString filePath)
{
    const std::string protectedText = EDData::global_serialize(utf8Bytes(content));
    if (protectedText.empty()) {
        // See serializeObj: kept for compatibility with applications built against this interface.
        VORN_LOG << "serializeData is empty2!";
        return NubraCommon::SerializeFailed;
    }
    return EDData::writeFile(local8BitBytes(filePath), protectedText) ? NubraCommon::Success
                                                                       : NubraCommon::SerializeFailed;
}

int VornNubraHelper::serializeData(const QString& content, QString& result)
{
    const std::string protectedText = EDData::global_serialize(utf8Bytes(content));
    if (protectedText.empty()) {
        VORN_LOG << "serializeData is empty2!";
        return NubraCommon::SerializeFailed;
    }
    result = untilFirstZero(protectedText);
    return NubraCommon::Success;
}

int VornNubraHelper::serializeData(QJsonObject object, QString filePath)
{
    // This one form protects the local 8-bit bytes of the JSON text.
    const std::string protectedText = EDData::global_serialize(local8BitBytes(jsonText(object)));
    if (protectedText.empty())
        return NubraCommon::SerializeFailed;
    return EDData::writeFile(local8BitBytes(filePath), protectedText) ? NubraCommon::Success
                                                                       : NubraCommon::SerializeFailed;
}

int VornNubraHelper::deserializeData(QString protectedText, QString& result)
{
    result = untilFirstZero(EDData::global_deserialize(utf8Bytes(protectedText)));
    return NubraCommon::Success;
}

int VornNubraHelper::deserializeData(const QString& protectedText, const QString& key, QString& result)
{
    // Nothing is checked and the call always succeeds. A key shorter than
    // 16 bytes makes the cipher throw std::out_of_range; that must not cross
    // the library's boundary, so it restores nothing instead.
    try {
        result = untilFirstZero(EDData::global_deserialize(utf8Bytes(key), utf8Bytes(protectedText)));
    } catch (const std::out_of_range&) {
        result = QString();
    }
    return NubraCommon::Success;
}

std::string VornNubraHelper::deBase64(const std::string& text)
{
    return EDData::base64_decode(text);
}
