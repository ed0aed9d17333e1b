// Runs a fuzz target over the files (or the files in the folders) named on the command line, for
// compilers without libFuzzer and for replaying a corpus as a regression test.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

int runFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return 1;
    }
    const std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                          std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    int failures = 0;
    std::size_t inputs = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        if (std::filesystem::is_directory(path)) {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
                if (entry.is_regular_file()) {
                    failures += runFile(entry.path());
                    ++inputs;
                }
            }
        } else {
            failures += runFile(path);
            ++inputs;
        }
    }
    std::printf("%zu inputs run\n", inputs);
    return failures == 0 && inputs > 0 ? 0 : 1;
}
