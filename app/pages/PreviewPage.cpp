#include <QVBoxLayout>

#include "app/Page.h"
#include "app/pages/Pages.h"

namespace zepho {
namespace {

class PreviewPage : public Page {
public:
    explicit PreviewPage(AppState& state) : Page(state) { addTitle(column(), "试听"); }
};

}  // namespace

Page* makePreviewPage(AppState& app) {
    return new PreviewPage(app);
}

}  // namespace zepho
