#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

// Runs a fuzz target over stored inputs, where no fuzzer drives it: files, or folders of files.
// Exit codes: 0 all were run, 1 there was none, 2 one can't be read.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

bool replay(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> content{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        std::fprintf(stderr, "Can't read %s. Does it exist, and may you read it?\n", path.c_str());
        return false;
    }
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
    return true;
}

}  // namespace

int main(int argumentCount, char** arguments) {
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argumentCount; ++i) {
        if (std::filesystem::is_directory(arguments[i])) {
            for (const auto& entry : std::filesystem::directory_iterator(arguments[i])) {
                files.push_back(entry.path());
            }
        } else {
            files.emplace_back(arguments[i]);
        }
    }
    if (files.empty()) {
        std::fprintf(stderr, "Nothing to replay. Usage: %s FILE|FOLDER...\n", arguments[0]);
        return 1;
    }
    for (const auto& file : files) {
        if (!replay(file)) {
            return 2;
        }
    }
    std::printf("Replayed %zu inputs.\n", files.size());
}
