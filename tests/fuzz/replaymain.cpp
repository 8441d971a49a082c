// SPDX-License-Identifier: BSD-3-Clause
// Runs a fuzz target's entry point over saved inputs, without libFuzzer: every
// file named on the command line, and every file under each directory named
// there (in name order, so a failure is reproducible). Directories that do not
// exist are passed over, since a target may have no regression inputs yet; but
// replaying nothing at all is a failure, so a lost corpus cannot pass silently.
//
// A target reports a broken invariant by aborting, and the sanitizers of the
// build stop at memory and undefined-behaviour errors, so reaching the end
// means every input went through cleanly.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> inputsUnder(const fs::path &root)
{
    std::vector<fs::path> files;
    std::error_code error;
    if (fs::is_regular_file(root, error)) {
        files.push_back(root);
        return files;
    }
    if (!fs::is_directory(root, error))
        return files;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(root, error)) {
        if (entry.is_regular_file(error) && entry.path().filename().string().front() != '.')
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

bool replay(const fs::path &file)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
        return false;
    }
    const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    // An input of its own exact size, as libFuzzer hands it over, so that a
    // read one byte past the end is caught here too.
    std::vector<uint8_t> input(bytes.begin(), bytes.end());
    std::fprintf(stderr, "%s (%zu bytes)\n", file.c_str(), input.size());
    LLVMFuzzerTestOneInput(input.empty() ? nullptr : input.data(), input.size());
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    size_t replayed = 0;
    bool ok = true;
    for (int i = 1; i < argc; ++i) {
        for (const fs::path &file : inputsUnder(argv[i])) {
            ok = replay(file) && ok;
            ++replayed;
        }
    }
    std::fprintf(stderr, "replayed %zu inputs\n", replayed);
    if (replayed == 0) {
        std::fprintf(stderr, "no input found: the seed corpus is missing\n");
        return 1;
    }
    return ok ? 0 : 1;
}
