#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>
#include <optional>

#include "app/QtText.h"
#include "app/pages/DownloadBlock.h"
#include "app/pages/ModelsStatus.h"
#include "app/pages/Pages.h"

namespace zepho {
namespace {

class ModelsPage : public FormPage {
public:
    explicit ModelsPage(AppState& state);
    void appear() override;

private:
    void addChoiceOfModel(QVBoxLayout* to);
    void listModels();
    void applyModel();
    void setBusy(bool busy);

    ModelsStatus* status = nullptr;
    DownloadBlock* download = nullptr;
    ChoiceBox* installed = nullptr;
    QPushButton* apply = nullptr;
    QLabel* message = nullptr;
    std::string chosenModel;             // empty means automatic
    std::optional<EngineOptions> shown;  // what the configuration held when it was taken over
    std::function<void()> sayMessage = [] {};
};

ModelsPage::ModelsPage(AppState& state) : FormPage(state) {
    QVBoxLayout* const content = addScrollColumn(column());
    status = new ModelsStatus(app, this);
    content->addWidget(status);
    download = new DownloadBlock(app, this);
    content->addWidget(download);
    addChoiceOfModel(content);
    content->addStretch(1);
    connect(&app, &AppState::modelsChanged, this, &ModelsPage::listModels);
    appear();
}

void ModelsPage::addChoiceOfModel(QVBoxLayout* to) {
    addTitle(to, "— 使用哪个模型 —");
    installed = addChoice(addForm(to), "已装模型", "installed");
    connect(installed, &QComboBox::currentIndexChanged, this,
            [this](int index) { chosenModel = fromQt(installed->itemData(index).toString()); });
    // The first line is the one that has a language.
    texts([this] { listModels(); });
    apply = addButton(addButtonRow(to), "应用并重启引擎", [this] { applyModel(); });
    message = dimLabel();
    message->setObjectName("message");
    to->addWidget(message);
    texts([this] { sayMessage(); });
}

void ModelsPage::appear() {
    const EngineOptions now = app.config->engine;
    // What was picked here stays, unless the configuration has changed under it.
    if (!shown || shown->modelFile != now.modelFile || shown->useMirror != now.useMirror) {
        chosenModel = now.modelFile;
        download->setUseMirror(now.useMirror);
        shown = now;
    }
    listModels();
    status->refresh();
}

void ModelsPage::listModels() {
    const QSignalBlocker quiet(installed);
    installed->clear();
    installed->addItem(qT("(自动:挑体积最大的)"), QString());
    for (const std::string& file : app.installedModelFiles) {
        installed->addItem(toQt(file), toQt(file));
        if (file == chosenModel) installed->setCurrentIndex(installed->count() - 1);
    }
}

void ModelsPage::applyModel() {
    chosenModel = fromQt(installed->currentData().toString());
    EngineOptions engine = app.config->engine;
    engine.modelFile = chosenModel;
    engine.useMirror = download->useMirror();
    app.config->engine = engine;
    shown = engine;
    sayMessage = [this, name = toQt(chosenModel)] {
        message->setText(name.isEmpty() ? qT("已改回自动挑模型,引擎重启中…")
                                        : qT("已切换到 ") + name + qT(",引擎重启中…"));
    };
    sayMessage();
    setBusy(true);
    app.saveAndApply(this, [this] {
        setBusy(false);
        app.tick();
    });
}

void ModelsPage::setBusy(bool busy) {
    apply->setEnabled(!busy);
}

}  // namespace

Page* makeModelsPage(AppState& app) {
    return new ModelsPage(app);
}

}  // namespace zepho
