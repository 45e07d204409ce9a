#include "tests/support/TempDir.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace zepho::test {

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zephon-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr)
        throw std::system_error(errno, std::generic_category(), pattern);
    directory = pattern + "/";
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

}  // namespace zepho::test
