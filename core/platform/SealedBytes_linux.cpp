#include <algorithm>
#include <atomic>
#include <cerrno>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include "core/platform/Descriptor.h"
#include "core/platform/SealedBytes.h"

namespace zepho {
namespace {

constexpr rlim_t maxFiles = 512;
constexpr rlim_t shareOfFiles = 8;
constexpr int allSeals = F_SEAL_WRITE | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

std::atomic<rlim_t> openFiles{0};

// One of the files that may be open at a time.
class Place {
public:
    Place() : taken(openFiles.fetch_add(1) < allowed()) {
        if (!taken) openFiles.fetch_sub(1);
    }
    Place(Place&& other) noexcept : taken(std::exchange(other.taken, false)) {}
    Place& operator=(Place&&) = delete;
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    ~Place() {
        if (taken) openFiles.fetch_sub(1);
    }
    [[nodiscard]] bool isTaken() const { return taken; }

private:
    static rlim_t allowed() {
        rlimit limit{};
        if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
        return std::min(maxFiles, limit.rlim_cur / shareOfFiles);
    }

    bool taken;
};

struct Mapping {
    Place place;
    Descriptor file;
    void* start;
    std::size_t size;

    Mapping(Place owned, Descriptor opened, void* mapped, std::size_t length)
        : place(std::move(owned)), file(std::move(opened)), start(mapped), size(length) {}
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;
    ~Mapping() { ::munmap(start, size); }
};

bool writeAll(int file, ByteView bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(file, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return true;
}

}  // namespace

std::optional<SharedBytes> sealedCopy(ByteView bytes) {
    Place place;
    if (bytes.empty() || !place.isTaken()) return std::nullopt;
    Descriptor file(::memfd_create("zephon-clip", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    const int number = file.number();
    if (!file.isOpen() || !writeAll(number, bytes)) return std::nullopt;
    if (::fcntl(number, F_ADD_SEALS, allSeals) != 0) return std::nullopt;
    void* const start = ::mmap(nullptr, bytes.size(), PROT_READ, MAP_SHARED, number, 0);
    if (start == MAP_FAILED) return std::nullopt;
    const auto mapping =
        std::make_shared<Mapping>(std::move(place), std::move(file), start, bytes.size());
    return SharedBytes({mapping, static_cast<const std::uint8_t*>(start)}, bytes.size(), number);
}

}  // namespace zepho
