// AES with the x86 AES instructions. This file is compiled with -maes
// -msse4.1, so nothing in it may run before the caller has checked the
// processor (isAvailable in AesImplementation.cpp, which is compiled
// without those flags).
//
// Independent blocks go through the pipeline eight at a time: one AESENC has
// a latency of several cycles but a throughput of one or two per cycle. The
// lane loops are unrolled so that the eight blocks stay in registers.

#include "AesImplementation.h"

#if defined(__x86_64__) || defined(__i386__)

#include <wmmintrin.h>
#include <smmintrin.h>

namespace VornAes {
namespace {

constexpr std::size_t kLanes = 8;

class AesNiCipher final : public BlockCipher {
public:
    AesNiCipher(const std::uint8_t* roundKeys, int rounds) : m_rounds(rounds)
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
        // Round keys are key material: do not leave them in freed memory.
        volatile __m128i* enc = m_enc;
        volatile __m128i* dec = m_dec;
        for (int k = 0; k < 15; ++k) {
            enc[k] = __m128i{};
            dec[k] = __m128i{};
        }
    }

    void encryptBlocks(const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) const override
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

    void decryptBlocks(const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) const override
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
