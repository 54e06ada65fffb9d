// SPDX-License-Identifier: MIT
// Chooses the AES implementation at run time; what every implementation
// shares (the short-block rule, wiping key material).

#include "AesImplementation.h"

#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace VornAes {
namespace {

bool processorHasAesNi()
{
#if defined(__x86_64__) || defined(__i386__)
    unsigned int eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx))
        return false;
    const bool aes = (ecx & bit_AES) != 0;
    const bool sse41 = (ecx & bit_SSE4_1) != 0;
    return aes && sse41;
#else
    return false;
#endif
}

} // namespace

bool isAvailable(Implementation implementation)
{
    switch (implementation) {
    case Implementation::ConstantTime:
        return true;
    case Implementation::AesNi: {
        static const bool available = aesNiCompiledIn() && processorHasAesNi();
        return available;
    }
    }
    return false;
}

const char* nameOf(Implementation implementation)
{
    switch (implementation) {
    case Implementation::ConstantTime:
        return "constant-time (bitsliced)";
    case Implementation::AesNi:
        return "AES-NI";
    }
    return "unknown";
}

Implementation fastestAvailable()
{
    static const Implementation chosen =
        isAvailable(Implementation::AesNi) ? Implementation::AesNi : Implementation::ConstantTime;
    return chosen;
}

void BlockCipher::decryptShortBlock(const std::uint8_t* in, std::uint8_t* out, std::size_t size) const
{
    std::uint8_t last[kBlockSize] = {};
    std::memcpy(last, in, size);
    decryptBlocks(last, last, 1);
    std::memcpy(out, last, size);
    wipe(last, sizeof last);
}

void wipe(void* data, std::size_t size)
{
    volatile auto* bytes = static_cast<volatile unsigned char*>(data);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = 0;
}

ExpandedKey::ExpandedKey(AESEncryption::Aes level, const std::string& key) : m_bytes(expandKey(level, key))
{
}

ExpandedKey::~ExpandedKey()
{
    wipe(&m_bytes[0], m_bytes.size());
}

std::unique_ptr<BlockCipher> makeBlockCipher(Implementation implementation, const std::uint8_t* roundKeys,
                                             int rounds)
{
    if (!isAvailable(implementation))
        return nullptr;
    switch (implementation) {
    case Implementation::ConstantTime:
        return makeConstantTimeCipher(roundKeys, rounds);
    case Implementation::AesNi:
        return makeAesNiCipher(roundKeys, rounds);
    }
    return nullptr;
}

} // namespace VornAes
