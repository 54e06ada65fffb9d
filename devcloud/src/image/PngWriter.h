// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

namespace devcloud {

// Encodes 8-bit RGB pixels (rows top to bottom, 3 bytes a pixel, no padding)
// as a PNG file. The zlib stream uses stored (uncompressed) deflate blocks:
// captchas are small and this keeps the dev cloud free of an image library.
QByteArray encodePngRgb(int width, int height, const QByteArray& rgb);

} // namespace devcloud
