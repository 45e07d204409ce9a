// A fresh directory that goes away with its object.
#pragma once

#include <string>

namespace zepho::test {

class TempDir {
public:
    TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir();

    // The directory's path with a "/" at its end.
    [[nodiscard]] const std::string& path() const { return directory; }
    [[nodiscard]] std::string file(const std::string& name) const { return directory + name; }

private:
    std::string directory;
};

}  // namespace zepho::test
