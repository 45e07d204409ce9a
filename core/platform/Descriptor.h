// A descriptor of the system that is closed with its owner. For the source files of this folder.
#pragma once

#include <utility>

namespace zepho {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int opened) : fd(opened) {}
    Descriptor(Descriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd, other.fd);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { close(); }

    [[nodiscard]] int number() const { return fd; }
    [[nodiscard]] bool isOpen() const { return fd >= 0; }
    // False, with errno set, where an error of the file shows only now. Closed in any case.
    bool close();

private:
    int fd = -1;
};

// The same file under a number that is none of the three standard ones. What a child gets as those is
// put there one after the other, which must not hit a file that is still to be placed.
[[nodiscard]] Descriptor aboveStandard(Descriptor opened);

}  // namespace zepho
