#include <QVBoxLayout>

#include "app/Page.h"
#include "app/pages/Pages.h"

namespace zepho {
namespace {

class LogPage : public Page {
public:
    explicit LogPage(AppState& state) : Page(state) { addTitle(column(), "日志"); }
};

}  // namespace

Page* makeLogPage(AppState& app) {
    return new LogPage(app);
}

}  // namespace zepho
