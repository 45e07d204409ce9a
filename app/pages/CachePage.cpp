#include <QVBoxLayout>

#include "app/Page.h"
#include "app/pages/Pages.h"

namespace zepho {
namespace {

class CachePage : public Page {
public:
    explicit CachePage(AppState& state) : Page(state) { addTitle(column(), "缓存"); }
};

}  // namespace

Page* makeCachePage(AppState& app) {
    return new CachePage(app);
}

}  // namespace zepho
