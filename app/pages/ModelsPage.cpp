#include <QVBoxLayout>

#include "app/Page.h"
#include "app/pages/Pages.h"

namespace zepho {
namespace {

class ModelsPage : public Page {
public:
    explicit ModelsPage(AppState& state) : Page(state) { addTitle(column(), "模型"); }
};

}  // namespace

Page* makeModelsPage(AppState& app) {
    return new ModelsPage(app);
}

}  // namespace zepho
