#include "app/pages/ModelsStatus.h"

#include <QGridLayout>
#include <QLabel>

#include "app/QtText.h"
#include "core/config/ZEPHOPaths.h"
#include "core/engine/EngineDiscovery.h"
#include "core/platform/Files.h"

namespace zepho {

ModelsStatus::ModelsStatus(AppState& state, QWidget* parent) : FormPage(state, parent) {
    setObjectName("card");
    setAttribute(Qt::WA_StyledBackground);
    auto* grid = new QGridLayout(this);
    grid->setContentsMargins(16, 12, 16, 12);
    grid->setHorizontalSpacing(10);
    grid->setVerticalSpacing(6);
    grid->setColumnStretch(2, 1);
    dataFolder = addLine(grid, "数据目录", "dataFolder");
    modelsFolder = addLine(grid, "模型目录", "modelsFolder");
    tokenizer = addLine(grid, "分词器", "tokenizer");
    program = addLine(grid, "推理程序", "program");
    gpu = addLine(grid, "显卡", "gpu");
    backend = addLine(grid, "计算后端", "backend");
    engine = addLine(grid, "引擎状态", "engineState");
    const auto look = [this] {
        if (isVisible()) refresh();
    };
    connect(&app, &AppState::ticked, this, look);
    connect(&app, &AppState::modelsChanged, this, look);
    texts([this] { refresh(); });
}

ModelsStatus::Line ModelsStatus::addLine(QGridLayout* grid, std::string_view key,
                                         const char* objectName) {
    const int row = grid->rowCount();
    Line line{new StatusDot(this), new QLabel(this)};
    auto* label = new QLabel(this);
    say(label, key);
    line.mark->setObjectName(QString(objectName) + "Mark");
    line.value->setObjectName(objectName);
    line.value->setTextFormat(Qt::PlainText);
    line.value->setTextInteractionFlags(Qt::TextSelectableByMouse);
    // A long path is cut rather than that it widens the page; its tool tip is whole.
    line.value->setWordWrap(true);
    line.value->setMinimumWidth(1);
    line.value->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    grid->addWidget(line.mark, row, 0, Qt::AlignVCenter);
    grid->addWidget(label, row, 1);
    grid->addWidget(line.value, row, 2);
    return line;
}

void ModelsStatus::show(const Line& line, bool good, const std::string& text) {
    line.mark->setTone(good ? StatusDot::Tone::good : StatusDot::Tone::warning);
    const QString shown = toQt(text);
    if (line.value->text() == shown) return;
    line.value->setText(shown);
    line.value->setToolTip(asTip(shown));
}

void ModelsStatus::refresh() {
    const std::string& root = ZEPHOPaths::dataRoot();
    show(dataFolder, directoryExists(root), root);

    const std::size_t models = app.installedModelFiles.size();
    const std::string count =
        models > 0 ? "  " + TF("%d 个", models) : T("(还没有,先在上面下一个)");
    show(modelsFolder, models > 0,
         ZEPHOPaths::modelsDir() + "  " + T("(放 .gguf 和 tokenizer.json)") + count);

    const std::string ready = T("已就位");
    const bool hasTokenizer = tokenizerInstalled();
    show(tokenizer, hasTokenizer,
         hasTokenizer ? ready : T("缺 tokenizer.json —— 下载模型时会自动补"));
    const bool hasProgram = engineInstalled();
    show(program, hasProgram, hasProgram ? ready : T("缺 engine/s2 —— 见该目录里的说明"));

    const GpuInfo device = gpuInfo();
    show(gpu, device.available, device.available ? device.name : T("没有找到可用的显卡"));
    const ComputeBackend chosen = app.config->engine.get().compute;
    show(backend, backendUsable(chosen), computeBackendDisplay(chosen));
    show(engine, app.health.ready && !app.stats.placeholder, app.health.detail);
}

}  // namespace zepho
