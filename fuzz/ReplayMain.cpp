// SPDX-License-Identifier: MIT
// Runs a fuzz target over saved inputs without libFuzzer: every file named
// on the command line (directories: every file inside), or the committed
// corpus of the target when none is named. A failing input aborts.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void collect(const std::filesystem::path& path, std::vector<std::filesystem::path>& files)
{
    if (std::filesystem::is_directory(path)) {
        for (const auto& entry : std::filesystem::directory_iterator(path))
            if (entry.is_regular_file())
                files.push_back(entry.path());
    } else {
        files.push_back(path);
    }
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::filesystem::path> files;
    if (argc > 1) {
        for (int i = 1; i < argc; ++i)
            collect(argv[i], files);
    } else {
        collect(VORN_FUZZ_CORPUS_DIR, files);
    }
    if (files.empty()) {
        std::fprintf(stderr, "no inputs to replay\n");
        return 1;
    }
    for (const auto& file : files) {
        std::ifstream in(file, std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "cannot read %s\n", file.c_str());
            return 1;
        }
        const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("replayed %zu inputs\n", files.size());
    return 0;
}
