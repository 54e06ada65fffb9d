// SPDX-License-Identifier: MIT
// Portable constant-time AES: four blocks at a time, bitsliced into eight
// 64-bit words, one per bit of the bytes. The S-box is computed, not looked
// up: inversion in GF(2^8) as x^254 with bitsliced multiplications, then the
// affine map. No table index and no branch depends on key or data, so the
// timing and cache footprint are the same for every input.
//
// Bit layout inside each word: position 16*r + 4*c + b holds row r of column
// c of block b. Row r then is the 16-bit lane r, so ShiftRows rotates within
// lanes and MixColumns combines a word with its 16-bit rotations.

#include "AesImplementation.h"

#include <cstring>

namespace VornAes {
namespace {

using u64 = std::uint64_t;
constexpr int kBlocksPerBatch = 4;

// Transposes an 8x8 bit matrix held as eight bytes: bit 8m+i <-> bit 8i+m.
u64 transpose8x8(u64 x)
{
    u64 t = (x ^ (x >> 7)) & 0x00AA00AA00AA00AAULL;
    x ^= t ^ (t << 7);
    t = (x ^ (x >> 14)) & 0x0000CCCC0000CCCCULL;
    x ^= t ^ (t << 14);
    t = (x ^ (x >> 28)) & 0x00000000F0F0F0F0ULL;
    x ^= t ^ (t << 28);
    return x;
}

u64 rotr(u64 x, int n)
{
    return (x >> n) | (x << (64 - n));
}

// Bytes of up to four blocks -> eight bit planes (missing blocks are zero).
void load(const std::uint8_t* in, std::size_t blocks, u64 q[8])
{
    std::uint8_t lanes[64] = {};
    for (std::size_t b = 0; b < blocks; ++b)
        for (int c = 0; c < 4; ++c)
            for (int r = 0; r < 4; ++r)
                lanes[16 * r + 4 * c + b] = in[16 * b + 4 * c + r];
    u64 rows[8];
    for (int g = 0; g < 8; ++g) {
        u64 x = 0;
        for (int m = 0; m < 8; ++m)
            x |= static_cast<u64>(lanes[8 * g + m]) << (8 * m);
        rows[g] = transpose8x8(x);
    }
    for (int i = 0; i < 8; ++i) {
        u64 plane = 0;
        for (int g = 0; g < 8; ++g)
            plane |= ((rows[g] >> (8 * i)) & 0xFF) << (8 * g);
        q[i] = plane;
    }
}

void store(const u64 q[8], std::size_t blocks, std::uint8_t* out)
{
    std::uint8_t lanes[64];
    for (int g = 0; g < 8; ++g) {
        u64 x = 0;
        for (int i = 0; i < 8; ++i)
            x |= ((q[i] >> (8 * g)) & 0xFF) << (8 * i);
        x = transpose8x8(x);
        for (int m = 0; m < 8; ++m)
            lanes[8 * g + m] = static_cast<std::uint8_t>(x >> (8 * m));
    }
    for (std::size_t b = 0; b < blocks; ++b)
        for (int c = 0; c < 4; ++c)
            for (int r = 0; r < 4; ++r)
                out[16 * b + 4 * c + r] = lanes[16 * r + 4 * c + b];
}

// Reduces a 15-coefficient product modulo x^8 + x^4 + x^3 + x + 1.
void reduce(u64 p[15], u64 out[8])
{
    for (int k = 14; k >= 8; --k) {
        p[k - 4] ^= p[k];
        p[k - 5] ^= p[k];
        p[k - 7] ^= p[k];
        p[k - 8] ^= p[k];
    }
    for (int i = 0; i < 8; ++i)
        out[i] = p[i];
}

void gfMul(const u64 a[8], const u64 b[8], u64 out[8])
{
    u64 p[15] = {};
    for (int i = 0; i < 8; ++i)
        for (int j = 0; j < 8; ++j)
            p[i + j] ^= a[i] & b[j];
    reduce(p, out);
}

void gfSquare(const u64 a[8], u64 out[8])
{
    u64 p[15] = {};
    for (int i = 0; i < 8; ++i)
        p[2 * i] = a[i];
    reduce(p, out);
}

// x^254, the multiplicative inverse (0 stays 0).
void gfInvert(const u64 x[8], u64 out[8])
{
    u64 x2[8], x3[8], x12[8], x15[8], t[8], u[8];
    gfSquare(x, x2);
    gfMul(x2, x, x3);
    gfSquare(x3, t);
    gfSquare(t, x12);
    gfMul(x12, x3, x15);
    gfSquare(x15, t);
    gfSquare(t, u);
    gfSquare(u, t);
    gfSquare(t, u); // x^240
    gfMul(u, x12, t); // x^252
    gfMul(t, x2, out);
}

void subBytes(u64 q[8])
{
    u64 y[8];
    gfInvert(q, y);
    for (int i = 0; i < 8; ++i)
        q[i] = y[i] ^ y[(i + 4) % 8] ^ y[(i + 5) % 8] ^ y[(i + 6) % 8] ^ y[(i + 7) % 8];
    // + 0x63
    q[0] = ~q[0];
    q[1] = ~q[1];
    q[5] = ~q[5];
    q[6] = ~q[6];
}

void invSubBytes(u64 q[8])
{
    u64 z[8];
    for (int i = 0; i < 8; ++i)
        z[i] = q[(i + 2) % 8] ^ q[(i + 5) % 8] ^ q[(i + 7) % 8];
    // + 0x05
    z[0] = ~z[0];
    z[2] = ~z[2];
    gfInvert(z, q);
}

void shiftRows(u64 q[8])
{
    for (int i = 0; i < 8; ++i) {
        const u64 x = q[i];
        q[i] = (x & 0x000000000000FFFFULL)                                                       // row 0
               | ((x & 0x00000000FFF00000ULL) >> 4) | ((x & 0x00000000000F0000ULL) << 12)        // row 1
               | ((x & 0x0000FF0000000000ULL) >> 8) | ((x & 0x000000FF00000000ULL) << 8)         // row 2
               | ((x & 0x0FFF000000000000ULL) << 4) | ((x & 0xF000000000000000ULL) >> 12);      // row 3
    }
}

void invShiftRows(u64 q[8])
{
    for (int i = 0; i < 8; ++i) {
        const u64 x = q[i];
        q[i] = (x & 0x000000000000FFFFULL)                                                       // row 0
               | ((x & 0x000000000FFF0000ULL) << 4) | ((x & 0x00000000F0000000ULL) >> 12)        // row 1
               | ((x & 0x0000FF0000000000ULL) >> 8) | ((x & 0x000000FF00000000ULL) << 8)         // row 2
               | ((x & 0xFFF0000000000000ULL) >> 4) | ((x & 0x000F000000000000ULL) << 12);      // row 3
    }
}

// Multiplication of every byte by {02}.
void xtime(const u64 a[8], u64 out[8])
{
    out[0] = a[7];
    out[1] = a[0] ^ a[7];
    out[2] = a[1];
    out[3] = a[2] ^ a[7];
    out[4] = a[3] ^ a[7];
    out[5] = a[4];
    out[6] = a[5];
    out[7] = a[6];
}

// Row r of the result: 2*a[r] + 3*a[r+1] + a[r+2] + a[r+3].
void mixColumns(u64 q[8])
{
    u64 r1[8], s[8], d[8];
    for (int i = 0; i < 8; ++i) {
        r1[i] = rotr(q[i], 16);
        s[i] = q[i] ^ r1[i];
    }
    xtime(s, d);
    for (int i = 0; i < 8; ++i)
        q[i] = d[i] ^ r1[i] ^ rotr(q[i], 32) ^ rotr(q[i], 48);
}

// The inverse matrix is the forward one after multiplying each column by
// {04}x^2 + {05}: a[r] += 4 * (a[r] + a[r+2]).
void invMixColumns(u64 q[8])
{
    u64 u[8], t[8], v[8];
    for (int i = 0; i < 8; ++i)
        u[i] = q[i] ^ rotr(q[i], 32);
    xtime(u, t);
    xtime(t, v);
    for (int i = 0; i < 8; ++i)
        q[i] ^= v[i];
    mixColumns(q);
}

void addRoundKey(u64 q[8], const u64 key[8])
{
    for (int i = 0; i < 8; ++i)
        q[i] ^= key[i];
}

class ConstantTimeCipher final : public BlockCipher {
public:
    ConstantTimeCipher(const std::uint8_t* roundKeys, int rounds) : m_rounds(rounds)
    {
        // Every round key byte, spread over the four block positions.
        for (int k = 0; k <= rounds; ++k) {
            for (int i = 0; i < 8; ++i)
                m_keys[k][i] = 0;
            for (int c = 0; c < 4; ++c)
                for (int r = 0; r < 4; ++r) {
                    const u64 byte = roundKeys[16 * k + 4 * c + r];
                    for (int i = 0; i < 8; ++i)
                        m_keys[k][i] |= (0 - ((byte >> i) & 1)) & (0xFULL << (16 * r + 4 * c));
                }
        }
    }

    ~ConstantTimeCipher() override { wipe(m_keys, sizeof m_keys); }

    void encryptBlocks(const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) const override
    {
        while (blocks > 0) {
            const std::size_t n = blocks < kBlocksPerBatch ? blocks : kBlocksPerBatch;
            u64 q[8];
            load(in, n, q);
            addRoundKey(q, m_keys[0]);
            for (int round = 1; round < m_rounds; ++round) {
                subBytes(q);
                shiftRows(q);
                mixColumns(q);
                addRoundKey(q, m_keys[round]);
            }
            subBytes(q);
            shiftRows(q);
            addRoundKey(q, m_keys[m_rounds]);
            store(q, n, out);
            in += n * kBlockSize;
            out += n * kBlockSize;
            blocks -= n;
        }
    }

    void decryptBlocks(const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) const override
    {
        while (blocks > 0) {
            const std::size_t n = blocks < kBlocksPerBatch ? blocks : kBlocksPerBatch;
            u64 q[8];
            load(in, n, q);
            addRoundKey(q, m_keys[m_rounds]);
            for (int round = m_rounds - 1; round >= 1; --round) {
                invShiftRows(q);
                invSubBytes(q);
                addRoundKey(q, m_keys[round]);
                invMixColumns(q);
            }
            invShiftRows(q);
            invSubBytes(q);
            addRoundKey(q, m_keys[0]);
            store(q, n, out);
            in += n * kBlockSize;
            out += n * kBlockSize;
            blocks -= n;
        }
    }

private:
    int m_rounds;
    u64 m_keys[15][8];
};

} // namespace

std::unique_ptr<BlockCipher> makeConstantTimeCipher(const std::uint8_t* roundKeys, int rounds)
{
    return std::make_unique<ConstantTimeCipher>(roundKeys, rounds);
}

std::uint32_t subWordConstantTime(std::uint32_t word)
{
    // Byte k of the word sits at bit k of each plane.
    u64 q[8];
    for (int i = 0; i < 8; ++i) {
        u64 plane = 0;
        for (int k = 0; k < 4; ++k)
            plane |= static_cast<u64>((word >> (8 * k + i)) & 1) << k;
        q[i] = plane;
    }
    subBytes(q);
    std::uint32_t result = 0;
    for (int i = 0; i < 8; ++i)
        for (int k = 0; k < 4; ++k)
            result |= static_cast<std::uint32_t>((q[i] >> k) & 1) << (8 * k + i);
    return result;
}

} // namespace VornAes
