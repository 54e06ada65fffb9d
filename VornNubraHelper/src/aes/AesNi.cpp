// SPDX-License-Identifier: MIT
// AES with the x86 AES instructions. Only the functions marked
// VORN_AESNI_TARGET may use them (the compiler's target attribute, per
// function, instead of -maes for the whole file: inline code the compiler
// emits here, from headers or templates, then stays plain x86 and cannot
// carry those instructions into other call paths). None of them may run
// before the caller has checked the processor (isAvailable in
// AesImplementation.cpp).
//
// Independent blocks go through the pipeline eight at a time: one AESENC has
// a latency of several cycles but a throughput of one or two per cycle. The
// lane loops are unrolled so that the eight blocks stay in registers.

#include "AesImplementation.h"

#if defined(__x86_64__) || defined(__i386__)

#include <wmmintrin.h>
#include <smmintrin.h>

// The processor support isAvailable checks for (cpuid: AES and SSE4.1).
#define VORN_AESNI_TARGET __attribute__((target("aes,sse4.1")))

namespace VornAes {
namespace {

constexpr std::size_t kLanes = 8;

class AesNiCipher final : public BlockCipher {
public:
    VORN_AESNI_TARGET AesNiCipher(const std::uint8_t* roundKeys, int rounds) : m_rounds(rounds)
    {
        for (int k = 0; k <= rounds; ++k)
            m_enc[k] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(roundKeys + 16 * k));
        // Equivalent inverse cipher: reversed keys, inner ones through InvMixColumns.
        m_dec[0] = m_enc[rounds];
        for (int k = 1; k < rounds; ++k)
            m_dec[k] = _mm_aesimc_si128(m_enc[rounds - k]);
        m_dec[rounds] = m_enc[0];
    }

    ~AesNiCipher() override
    {
        wipe(m_enc, sizeof m_enc);
        wipe(m_dec, sizeof m_dec);
    }

    VORN_AESNI_TARGET void encryptBlocks(const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) const override
    {
        const __m128i* src = reinterpret_cast<const __m128i*>(in);
        __m128i* dst = reinterpret_cast<__m128i*>(out);
        for (; blocks >= kLanes; blocks -= kLanes, src += kLanes, dst += kLanes) {
            __m128i b[kLanes];
#pragma GCC unroll 8
            for (std::size_t j = 0; j < kLanes; ++j)
                b[j] = _mm_xor_si128(_mm_loadu_si128(src + j), m_enc[0]);
            for (int k = 1; k < m_rounds; ++k)
    #pragma GCC unroll 8
            for (std::size_t j = 0; j < kLanes; ++j)
                    b[j] = _mm_aesenc_si128(b[j], m_enc[k]);
#pragma GCC unroll 8
            for (std::size_t j = 0; j < kLanes; ++j)
                _mm_storeu_si128(dst + j, _mm_aesenclast_si128(b[j], m_enc[m_rounds]));
        }
        for (; blocks > 0; --blocks, ++src, ++dst) {
            __m128i b = _mm_xor_si128(_mm_loadu_si128(src), m_enc[0]);
            for (int k = 1; k < m_rounds; ++k)
                b = _mm_aesenc_si128(b, m_enc[k]);
            _mm_storeu_si128(dst, _mm_aesenclast_si128(b, m_enc[m_rounds]));
        }
    }

    VORN_AESNI_TARGET void decryptBlocks(const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) const override
    {
        const __m128i* src = reinterpret_cast<const __m128i*>(in);
        __m128i* dst = reinterpret_cast<__m128i*>(out);
        for (; blocks >= kLanes; blocks -= kLanes, src += kLanes, dst += kLanes) {
            __m128i b[kLanes];
#pragma GCC unroll 8
            for (std::size_t j = 0; j < kLanes; ++j)
                b[j] = _mm_xor_si128(_mm_loadu_si128(src + j), m_dec[0]);
            for (int k = 1; k < m_rounds; ++k)
    #pragma GCC unroll 8
            for (std::size_t j = 0; j < kLanes; ++j)
                    b[j] = _mm_aesdec_si128(b[j], m_dec[k]);
#pragma GCC unroll 8
            for (std::size_t j = 0; j < kLanes; ++j)
                _mm_storeu_si128(dst + j, _mm_aesdeclast_si128(b[j], m_dec[m_rounds]));
        }
        for (; blocks > 0; --blocks, ++src, ++dst) {
            __m128i b = _mm_xor_si128(_mm_loadu_si128(src), m_dec[0]);
            for (int k = 1; k < m_rounds; ++k)
                b = _mm_aesdec_si128(b, m_dec[k]);
            _mm_storeu_si128(dst, _mm_aesdeclast_si128(b, m_dec[m_rounds]));
        }
    }

private:
    __m128i m_enc[15];
    __m128i m_dec[15];
    int m_rounds;
};

} // namespace

std::unique_ptr<BlockCipher> makeAesNiCipher(const std::uint8_t* roundKeys, int rounds)
{
    return std::make_unique<AesNiCipher>(roundKeys, rounds);
}

bool aesNiCompiledIn()
{
    return true;
}

} // namespace VornAes

#else // not x86: the instructions do not exist here

namespace VornAes {

std::unique_ptr<BlockCipher> makeAesNiCipher(const std::uint8_t*, int)
{
    return nullptr;
}

bool aesNiCompiledIn()
{
    return false;
}

} // namespace VornAes

#endif
