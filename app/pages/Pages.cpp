#include "app/pages/Pages.h"

#include "core/platform/Require.h"

namespace zepho {

Page* makePage(MainTab tab, AppState& app) {
    switch (tab) {
        case MainTab::service:
            return makeServicePage(app);
        case MainTab::preview:
            return makePreviewPage(app);
        case MainTab::voices:
            return makeVoicesPage(app);
        case MainTab::broadcast:
            return makeBroadcastPage(app);
        case MainTab::hub:
            return makeHubPage(app);
        case MainTab::cache:
            return makeCachePage(app);
        case MainTab::models:
            return makeModelsPage(app);
        case MainTab::log:
            return makeLogPage(app);
        case MainTab::settings:
            return makeSettingsPage(app);
    }
    require(false, "a page without a class");
    return nullptr;
}

}  // namespace zepho
