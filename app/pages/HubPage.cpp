#include <QVBoxLayout>

#include "app/Page.h"
#include "app/pages/Pages.h"

namespace zepho {
namespace {

class HubPage : public Page {
public:
    explicit HubPage(AppState& state) : Page(state) { addTitle(column(), "云分享"); }
};

}  // namespace

Page* makeHubPage(AppState& app) {
    return new HubPage(app);
}

}  // namespace zepho
