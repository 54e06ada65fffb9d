// SPDX-License-Identifier: MIT
#include "image/PngWriter.h"

#include <QtEndian>

#include <array>

namespace devcloud {

namespace {

// CRC-32 of ISO 3309 / ITU-T V.42, as PNG chunks use it.
quint32 crc32(const QByteArray& data)
{
    static const std::array<quint32, 256> table = [] {
        std::array<quint32, 256> t{};
        for (quint32 n = 0; n < 256; ++n) {
            quint32 c = n;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[n] = c;
        }
        return t;
    }();
    quint32 crc = 0xFFFFFFFFu;
    for (char byte : data)
        crc = table[(crc ^ quint8(byte)) & 0xFF] ^ (crc >> 8);
    return crc ^ 0xFFFFFFFFu;
}

quint32 adler32(const QByteArray& data)
{
    quint32 a = 1, b = 0;
    for (char byte : data) {
        a = (a + quint8(byte)) % 65521u;
        b = (b + a) % 65521u;
    }
    return (b << 16) | a;
}

void appendBigEndian(QByteArray& out, quint32 value)
{
    char bytes[4];
    qToBigEndian(value, bytes);
    out.append(bytes, 4);
}

void appendChunk(QByteArray& png, const char type[4], const QByteArray& payload)
{
    appendBigEndian(png, quint32(payload.size()));
    QByteArray typed(type, 4);
    typed.append(payload);
    png.append(typed);
    appendBigEndian(png, crc32(typed));
}

// A zlib stream (RFC 1950) of stored deflate blocks (RFC 1951, BTYPE 00).
QByteArray zlibStored(const QByteArray& data)
{
    QByteArray out;
    out.append(char(0x78)).append(char(0x01));
    const int maxBlock = 65535;
    int offset = 0;
    do {
        const int length = qMin(maxBlock, data.size() - offset);
        const bool last = offset + length >= data.size();
        out.append(char(last ? 1 : 0));
        out.append(char(length & 0xFF)).append(char(length >> 8));
        out.append(char(~length & 0xFF)).append(char((~length >> 8) & 0xFF));
        out.append(data.constData() + offset, length);
        offset += length;
    } while (offset < data.size());
    appendBigEndian(out, adler32(data));
    return out;
}

} // namespace

QByteArray encodePngRgb(int width, int height, const QByteArray& rgb)
{
    if (width <= 0 || height <= 0 || rgb.size() != width * height * 3)
        return {};
    QByteArray png("\x89PNG\r\n\x1a\n", 8);

    QByteArray header;
    appendBigEndian(header, quint32(width));
    appendBigEndian(header, quint32(height));
    header.append(char(8));  // bit depth
    header.append(char(2));  // colour type: RGB
    header.append(char(0));  // deflate
    header.append(char(0));  // adaptive filtering
    header.append(char(0));  // no interlace
    appendChunk(png, "IHDR", header);

    QByteArray scanlines;
    scanlines.reserve(height * (1 + width * 3));
    for (int y = 0; y < height; ++y) {
        scanlines.append(char(0)); // filter type None
        scanlines.append(rgb.constData() + y * width * 3, width * 3);
    }
    appendChunk(png, "IDAT", zlibStored(scanlines));
    appendChunk(png, "IEND", QByteArray());
    return png;
}

} // namespace devcloud
