#include <QVBoxLayout>

#include "app/Page.h"
#include "app/pages/Pages.h"

namespace zepho {
namespace {

class ServicePage : public Page {
public:
    explicit ServicePage(AppState& state) : Page(state) { addTitle(column(), "服务"); }
};

}  // namespace

Page* makeServicePage(AppState& app) {
    return new ServicePage(app);
}

}  // namespace zepho
