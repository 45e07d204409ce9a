#include "core/store/FileNames.h"

#include <algorithm>
#include <utility>

#include "core/store/LeadingBytes.h"

namespace zepho {

void FileNames::add(std::string_view name) {
    names.push_back(
        {leadingBytes(name), texts.size(), static_cast<std::uint32_t>(name.size()), false});
    texts += name;
}

void FileNames::sort() {
    std::sort(names.begin(), names.end(), [this](const Name& left, const Name& right) {
        if (left.beginning != right.beginning) return left.beginning < right.beginning;
        return text(left) < text(right);
    });
    // Whoever goes over the names in order goes over their texts in order, too.
    std::string sorted;
    sorted.reserve(texts.size());
    for (Name& name : names) {
        const std::size_t from = sorted.size();
        sorted += text(name);
        name.from = from;
    }
    texts = std::move(sorted);
}

FileNames::Name* FileNames::find(std::string_view name) {
    const std::uint64_t beginning = leadingBytes(name);
    const auto isBefore = [&](const Name& listed) {
        if (listed.beginning != beginning) return listed.beginning < beginning;
        return text(listed) < name;
    };
    // Far ahead or back of the last one, the search begins anew.
    constexpr std::size_t fewSteps = 8;
    const auto start = names.begin() + static_cast<std::ptrdiff_t>(next);
    const auto far = start + static_cast<std::ptrdiff_t>(std::min(fewSteps, names.size() - next));
    auto place = start;
    while (place != far && isBefore(*place)) ++place;
    const bool skipped = place == start && start != names.begin() && !isBefore(*(start - 1));
    if (skipped || (place == far && far != names.end()))
        place = std::partition_point(names.begin(), names.end(), isBefore);
    if (place == names.end() || text(*place) != name) return nullptr;
    next = static_cast<std::size_t>(place - names.begin()) + 1;
    return &*place;
}

}  // namespace zepho
