#include <QVBoxLayout>

#include "app/Page.h"
#include "app/pages/Pages.h"

namespace zepho {
namespace {

class VoicesPage : public Page {
public:
    explicit VoicesPage(AppState& state) : Page(state) { addTitle(column(), "音色"); }
};

}  // namespace

Page* makeVoicesPage(AppState& app) {
    return new VoicesPage(app);
}

}  // namespace zepho
