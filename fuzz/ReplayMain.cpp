// Runs a fuzz target over the files of directories, under any compiler: what was found once stays
// found. Usage: replay-NAME directory …
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int count, char** words) {
    int replayed = 0;
    for (int at = 1; at < count; ++at) {
        std::vector<std::filesystem::path> files;
        for (const auto& entry : std::filesystem::directory_iterator(words[at]))
            if (entry.is_regular_file()) files.push_back(entry.path());
        std::sort(files.begin(), files.end());
        for (const auto& path : files) {
            std::ifstream file(path, std::ios::binary);
            const std::vector<char> content{std::istreambuf_iterator<char>(file), {}};
            // Told beforehand, so that a crash names its input.
            std::fprintf(stderr, "%s\n", path.filename().c_str());
            // Exactly as long as the input, for the sanitizers to see a byte too many.
            const std::vector<std::uint8_t> bytes(content.begin(), content.end());
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            ++replayed;
        }
    }
    std::printf("%d inputs\n", replayed);
    return replayed > 0 ? 0 : 1;
}
