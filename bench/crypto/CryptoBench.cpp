// SPDX-License-Identifier: MIT
// Throughput of AESEncryption::Crypt/Decrypt (AES-128-ECB) and of the
// protected-data codec against OpenSSL doing the same work on the same 1 MiB
// buffers, in one run. Prints the median of several runs and the ratio
// ours / OpenSSL (higher is better for us).
//
//   bench_crypto [runs]

#include "AESEncryption.h"
#include "aes/AesImplementation.h"
#include "eddata.h"

#include <openssl/evp.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kBufferSize = 1 << 20;
constexpr int kRepeatsPerRun = 8; // buffers per timed run, to rise above timer noise

const std::string kKey("\x4F\x1A\x77\xC2\x08\x93\x5E\x21\xB4\x6D\x0C\xE8\x39\xA5\x12\xF0", 16);

// Median throughput in MiB/s of `runs` runs of kRepeatsPerRun calls.
double medianMiBps(int runs, const std::function<void()>& work)
{
    work(); // warm caches and the page tables of the output buffers
    std::vector<double> rates;
    for (int r = 0; r < runs; ++r) {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < kRepeatsPerRun; ++i)
            work();
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        rates.push_back(kRepeatsPerRun * (kBufferSize / double(1 << 20)) / elapsed.count());
    }
    std::sort(rates.begin(), rates.end());
    return rates[rates.size() / 2];
}

void check(bool ok, const char* what)
{
    if (!ok) {
        std::fprintf(stderr, "bench_crypto: %s\n", what);
        std::exit(1);
    }
}

std::string opensslEcb(bool encrypt, const std::string& in)
{
    std::string out(in.size(), '\0');
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    int len = 0;
    EVP_CipherInit_ex(ctx, EVP_aes_128_ecb(), nullptr, reinterpret_cast<const unsigned char*>(kKey.data()), nullptr,
                      encrypt ? 1 : 0);
    EVP_CIPHER_CTX_set_padding(ctx, 0);
    EVP_CipherUpdate(ctx, reinterpret_cast<unsigned char*>(&out[0]), &len,
                     reinterpret_cast<const unsigned char*>(in.data()), static_cast<int>(in.size()));
    EVP_CIPHER_CTX_free(ctx);
    return out;
}

std::string opensslProtect(const std::string& plain)
{
    const std::string cipher = opensslEcb(true, plain); // 1 MiB: already whole blocks
    std::string text(4 * ((cipher.size() + 2) / 3) + 1, '\0');
    const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&text[0]),
                                  reinterpret_cast<const unsigned char*>(cipher.data()), static_cast<int>(cipher.size()));
    text.resize(static_cast<std::size_t>(n));
    return text;
}

std::string opensslRestore(const std::string& text)
{
    std::string bytes(text.size() / 4 * 3, '\0');
    int n = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(&bytes[0]),
                            reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
    // EVP_DecodeBlock counts the "=" padding as zero bytes; drop them.
    for (std::size_t i = text.size(); i > 0 && text[i - 1] == '='; --i)
        --n;
    bytes.resize(static_cast<std::size_t>(n));
    return opensslEcb(false, bytes);
}

struct Row {
    const char* what;
    double ours;
    double peer;
    double target;
};

} // namespace

int main(int argc, char** argv)
{
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 15;

    std::mt19937 rng(42);
    std::string plain(kBufferSize, '\0');
    for (auto& c : plain)
        c = static_cast<char>(rng());

    // Same bytes first: a faster wrong answer is no answer.
    const std::string cipher = AESEncryption::Crypt(AESEncryption::Aes128, AESEncryption::Ecb, plain, kKey, "",
                                                    AESEncryption::Zero);
    check(cipher == opensslEcb(true, plain), "Crypt differs from OpenSSL");
    const std::string text = EDData::global_serialize(plain);
    check(text == opensslProtect(plain), "global_serialize differs from OpenSSL");
    check(EDData::global_deserialize(text) == plain, "global_deserialize does not restore");
    check(opensslRestore(text) == plain, "OpenSSL restore does not restore");

    volatile std::size_t sink = 0;
    std::vector<Row> rows;
    rows.push_back({"Crypt AES-128-ECB", medianMiBps(runs, [&] {
                        sink = sink + AESEncryption::Crypt(AESEncryption::Aes128, AESEncryption::Ecb, plain, kKey, "",
                                                           AESEncryption::Zero)
                                          .size();
                    }),
                    medianMiBps(runs, [&] { sink = sink + opensslEcb(true, plain).size(); }), 0.80});
    rows.push_back({"Decrypt AES-128-ECB", medianMiBps(runs, [&] {
                        sink = sink + AESEncryption::Decrypt(AESEncryption::Aes128, AESEncryption::Ecb, cipher, kKey,
                                                             "", AESEncryption::Zero)
                                          .size();
                    }),
                    medianMiBps(runs, [&] { sink = sink + opensslEcb(false, cipher).size(); }), 0.80});
    rows.push_back({"global_serialize", medianMiBps(runs, [&] { sink = sink + EDData::global_serialize(plain).size(); }),
                    medianMiBps(runs, [&] { sink = sink + opensslProtect(plain).size(); }), 1.0});
    rows.push_back({"global_deserialize",
                    medianMiBps(runs, [&] { sink = sink + EDData::global_deserialize(text).size(); }),
                    medianMiBps(runs, [&] { sink = sink + opensslRestore(text).size(); }), 1.0});

    // For information: the portable path a processor without AES-NI takes.
    rows.push_back({"Crypt (constant-time)", medianMiBps(std::max(1, runs / 5), [&] {
                        sink = sink + VornAes::crypt(VornAes::Implementation::ConstantTime, AESEncryption::Aes128,
                                                     AESEncryption::Ecb, plain, kKey, "", AESEncryption::Zero)
                                          .size();
                    }),
                    rows[0].peer, 0.0});

    std::printf("AES implementation: %s; 1 MiB buffers, median of %d runs of %d\n",
                VornAes::nameOf(VornAes::fastestAvailable()), runs, kRepeatsPerRun);
    std::printf("%-22s %12s %12s %8s %8s\n", "operation", "ours MiB/s", "OpenSSL", "ratio", "target");
    bool allMet = true;
    for (const Row& row : rows) {
        const double ratio = row.ours / row.peer;
        allMet = allMet && ratio >= row.target;
        if (row.target > 0)
            std::printf("%-22s %12.0f %12.0f %8.2f %7s%.2f%s\n", row.what, row.ours, row.peer, ratio, ">=",
                        row.target, ratio >= row.target ? "" : "  (missed)");
        else
            std::printf("%-22s %12.0f %12.0f %8.2f %9s\n", row.what, row.ours, row.peer, ratio, "-");
    }
    return allMet ? 0 : 2;
}
