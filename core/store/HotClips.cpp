#include "core/store/HotClips.h"

namespace zepho {

std::optional<SharedBytes> HotClips::find(std::string_view key, const FileIdentity& identity) {
    const std::lock_guard guard(lock);
    const auto found = places.find(key);
    if (found == places.end() || found->second->identity != identity) return std::nullopt;
    order.splice(order.begin(), order, found->second);
    return found->second->bytes;
}

void HotClips::add(std::string_view key, const FileIdentity& identity, const SharedBytes& clip) {
    if (clip.size() > limit) return;
    Order fresh;
    fresh.push_back({std::string(key), identity, clip});
    Order removed;
    const std::lock_guard guard(lock);
    if (const auto old = places.find(key); old != places.end()) takeLocked(old->second, removed);
    while (used + clip.size() > limit) takeLocked(std::prev(order.end()), removed);
    order.splice(order.begin(), fresh);
    places.emplace(order.front().key, order.begin());
    used += clip.size();
}

void HotClips::drop(std::string_view key) {
    Order removed;
    const std::lock_guard guard(lock);
    if (const auto found = places.find(key); found != places.end())
        takeLocked(found->second, removed);
}

void HotClips::clear() {
    Order removed;
    const std::lock_guard guard(lock);
    places.clear();
    removed.swap(order);
    used = 0;
}

std::size_t HotClips::bytes() const {
    const std::lock_guard guard(lock);
    return used;
}

void HotClips::takeLocked(Order::iterator place, Order& removed) {
    used -= place->bytes.size();
    places.erase(place->key);
    removed.splice(removed.begin(), order, place);
}

}  // namespace zepho
