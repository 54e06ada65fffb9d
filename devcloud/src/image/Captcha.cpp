// SPDX-License-Identifier: MIT
#include "image/Captcha.h"

#include "image/PngWriter.h"

#include <openssl/rand.h>

#include <cstring>

namespace devcloud {

namespace {

// 5x7 glyphs, one byte a row, bit 4 = leftmost column.
struct Glyph {
    char ch;
    quint8 rows[7];
};

const Glyph kGlyphs[] = {
    {'A', {0x0E, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}}, {'C', {0x0E, 0x11, 0x10, 0x10, 0x10, 0x11, 0x0E}},
    {'D', {0x1E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x1E}}, {'E', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}},
    {'F', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x10}}, {'H', {0x11, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}},
    {'J', {0x07, 0x02, 0x02, 0x02, 0x02, 0x12, 0x0C}}, {'K', {0x11, 0x12, 0x14, 0x18, 0x14, 0x12, 0x11}},
    {'L', {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1F}}, {'M', {0x11, 0x1B, 0x15, 0x15, 0x11, 0x11, 0x11}},
    {'N', {0x11, 0x11, 0x19, 0x15, 0x13, 0x11, 0x11}}, {'P', {0x1E, 0x11, 0x11, 0x1E, 0x10, 0x10, 0x10}},
    {'R', {0x1E, 0x11, 0x11, 0x1E, 0x14, 0x12, 0x11}}, {'T', {0x1F, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}},
    {'U', {0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}}, {'V', {0x11, 0x11, 0x11, 0x11, 0x11, 0x0A, 0x04}},
    {'W', {0x11, 0x11, 0x11, 0x15, 0x15, 0x15, 0x0A}}, {'X', {0x11, 0x11, 0x0A, 0x04, 0x0A, 0x11, 0x11}},
    {'Y', {0x11, 0x11, 0x0A, 0x04, 0x04, 0x04, 0x04}}, {'3', {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E}},
    {'4', {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}}, {'6', {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}},
    {'7', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}}, {'9', {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C}},
};
constexpr int kGlyphCount = int(sizeof(kGlyphs) / sizeof(kGlyphs[0]));
constexpr int kScale = 4;
constexpr int kCell = 5 * kScale + 8;
constexpr int kMargin = 12;

class Canvas {
public:
    Canvas(int w, int h)
        : width(w)
        , height(h)
        , pixels(w * h * 3, char(0xF4))
    {
    }
    void set(int x, int y, quint8 r, quint8 g, quint8 b)
    {
        if (x < 0 || y < 0 || x >= width || y >= height)
            return;
        char* p = pixels.data() + (y * width + x) * 3;
        p[0] = char(r);
        p[1] = char(g);
        p[2] = char(b);
    }
    int width, height;
    QByteArray pixels;
};

class Random {
public:
    Random() { RAND_bytes(m_pool, sizeof m_pool); }
    int below(int n)
    {
        if (m_used + 2 > int(sizeof m_pool)) {
            RAND_bytes(m_pool, sizeof m_pool);
            m_used = 0;
        }
        const int v = (m_pool[m_used] << 8) | m_pool[m_used + 1];
        m_used += 2;
        return v % n;
    }

private:
    unsigned char m_pool[512];
    int m_used = 0;
};

void drawLine(Canvas& canvas, int x0, int y0, int x1, int y1, quint8 r, quint8 g, quint8 b)
{
    const int steps = qMax(qAbs(x1 - x0), qAbs(y1 - y0));
    for (int i = 0; i <= steps; ++i)
        canvas.set(x0 + (x1 - x0) * i / qMax(steps, 1), y0 + (y1 - y0) * i / qMax(steps, 1), r, g, b);
}

} // namespace

CaptchaImage makeCaptcha(int length)
{
    length = qBound(1, length, 12);
    Random random;
    CaptchaImage image;
    image.width = kMargin * 2 + length * kCell;
    image.height = 7 * kScale + kMargin * 2 + 8;
    Canvas canvas(image.width, image.height);

    for (int i = 0; i < image.width * image.height / 12; ++i)
        canvas.set(random.below(image.width), random.below(image.height), quint8(150 + random.below(90)),
                   quint8(150 + random.below(90)), quint8(150 + random.below(90)));

    for (int c = 0; c < length; ++c) {
        const Glyph& glyph = kGlyphs[random.below(kGlyphCount)];
        image.text.append(QLatin1Char(glyph.ch));
        const int left = kMargin + c * kCell + random.below(6);
        const int top = kMargin + random.below(9);
        const quint8 r = quint8(20 + random.below(100)), g = quint8(20 + random.below(100)),
                     b = quint8(60 + random.below(120));
        for (int row = 0; row < 7; ++row)
            for (int col = 0; col < 5; ++col)
                if (glyph.rows[row] & (0x10 >> col))
                    for (int dy = 0; dy < kScale; ++dy)
                        for (int dx = 0; dx < kScale; ++dx)
                            canvas.set(left + col * kScale + dx + row / 3, top + row * kScale + dy, r, g, b);
    }
    for (int i = 0; i < 3; ++i)
        drawLine(canvas, random.below(image.width), random.below(image.height), random.below(image.width),
                 random.below(image.height), quint8(random.below(160)), quint8(random.below(160)),
                 quint8(random.below(160)));

    image.png = encodePngRgb(image.width, image.height, canvas.pixels);
    return image;
}

} // namespace devcloud
