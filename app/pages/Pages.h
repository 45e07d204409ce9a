// The nine pages, made by their name. Each is a class of its own file; nobody else needs its type.
#pragma once

#include "app/MainTab.h"
#include "app/Page.h"

namespace zepho {

Page* makePage(MainTab tab, AppState& app);

// Each in the file of its page.
Page* makeServicePage(AppState& app);
Page* makePreviewPage(AppState& app);
Page* makeVoicesPage(AppState& app);
Page* makeBroadcastPage(AppState& app);
Page* makeHubPage(AppState& app);
Page* makeCachePage(AppState& app);
Page* makeModelsPage(AppState& app);
Page* makeLogPage(AppState& app);
Page* makeSettingsPage(AppState& app);

}  // namespace zepho
