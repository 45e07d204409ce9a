#include "core/http/BufferBudget.h"

#include <string>

#include "core/diag/AppLog.h"
#include "core/platform/SystemMemory.h"

namespace zepho {

const std::shared_ptr<BufferBudget>& BufferBudget::ofProcess() {
    static const auto whole = std::make_shared<BufferBudget>(physicalMemory() / 2);
    return whole;
}

void BufferBudget::tellOfRefusal() {
    if (refusing.exchange(true)) return;
    AppLog::warn("http", "requests take " + std::to_string(taken.load() >> 20) +
                             " MB; connections that send more are closed");
}

bool BufferBudget::Share::grow(std::size_t bytes) {
    if (bytes <= size) {
        shrink(bytes);
        return true;
    }
    const std::size_t more = bytes - size;
    const std::size_t before = budget->taken.fetch_add(more);
    if (more > budget->limit || before > budget->limit - more) {
        budget->taken.fetch_sub(more);
        budget->tellOfRefusal();
        return false;
    }
    size = bytes;
    return true;
}

void BufferBudget::Share::shrink(std::size_t bytes) {
    if (bytes >= size) return;
    const std::size_t less = size - bytes;
    size = bytes;
    const std::size_t left = budget->taken.fetch_sub(less) - less;
    if (left < budget->limit / 2) budget->refusing.store(false);
}

}  // namespace zepho
