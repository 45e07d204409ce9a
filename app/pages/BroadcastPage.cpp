#include <QVBoxLayout>

#include "app/Page.h"
#include "app/pages/Pages.h"

namespace zepho {
namespace {

class BroadcastPage : public Page {
public:
    explicit BroadcastPage(AppState& state) : Page(state) { addTitle(column(), "广播"); }
};

}  // namespace

Page* makeBroadcastPage(AppState& app) {
    return new BroadcastPage(app);
}

}  // namespace zepho
