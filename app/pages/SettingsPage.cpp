#include <QVBoxLayout>

#include "app/Page.h"
#include "app/pages/Pages.h"

namespace zepho {
namespace {

class SettingsPage : public Page {
public:
    explicit SettingsPage(AppState& state) : Page(state) { addTitle(column(), "设置"); }
};

}  // namespace

Page* makeSettingsPage(AppState& app) {
    return new SettingsPage(app);
}

}  // namespace zepho
