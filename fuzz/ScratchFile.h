// One file in memory for targets that read and write by path; gone with the process.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

namespace zepho::fuzz {

class ScratchDirectory {
public:
    ScratchDirectory() {
        const std::filesystem::path memory = "/dev/shm";
        const std::filesystem::path base =
            std::filesystem::exists(memory) ? memory : std::filesystem::temp_directory_path();
        std::random_device seed;
        path = base / ("zepho-fuzz-" + std::to_string(seed()) + std::to_string(seed()));
        std::filesystem::create_directory(path);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    [[nodiscard]] std::string file(const std::string& name) const { return path / name; }

private:
    std::filesystem::path path;
};

}  // namespace zepho::fuzz
