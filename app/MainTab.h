// The pages of the main window, in their order on screen.
#pragma once

#include <array>
#include <string_view>

namespace zepho {

enum class MainTab { service, preview, voices, broadcast, hub, cache, models, log, settings };

struct MainTabInfo {
    MainTab tab;
    std::string_view name;      // of objects, and of the picture in app/icons/
    std::string_view titleKey;  // in the language tables
};

inline constexpr std::array<MainTabInfo, 9> mainTabs{{
    {MainTab::service, "service", "服务"},
    {MainTab::preview, "preview", "试听"},
    {MainTab::voices, "voices", "音色"},
    {MainTab::broadcast, "broadcast", "广播"},
    {MainTab::hub, "hub", "云分享"},
    {MainTab::cache, "cache", "缓存"},
    {MainTab::models, "models", "模型"},
    {MainTab::log, "log", "日志"},
    {MainTab::settings, "settings", "设置"},
}};

}  // namespace zepho
