#include "app/pages/DownloadBlock.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/QtText.h"
#include "core/config/ZEPHOPaths.h"
#include "core/models/ModelCatalog.h"

namespace zepho {
namespace {

// The order of the picker of sources.
enum Source { official, mirror };

// The bar counts in thousandths.
constexpr int wholeBar = 1000;

QStringList variantLines() {
    QStringList lines;
    for (const ModelVariant& variant : modelCatalog()) lines << toQt(variant.display);
    return lines;
}

QStringList sourceNames() {
    return {qT("huggingface.co(官方)"), qT("hf-mirror.com(国内镜像)")};
}

StatusDot::Tone toneOf(DownloadStage stage) {
    switch (stage) {
        case DownloadStage::done:
            return StatusDot::Tone::good;
        case DownloadStage::failed:
            return StatusDot::Tone::bad;
        case DownloadStage::cancelled:
            return StatusDot::Tone::warning;
        default:
            return StatusDot::Tone::idle;
    }
}

}  // namespace

DownloadBlock::DownloadBlock(AppState& state, QWidget* parent) : FormPage(state, parent) {
    QVBoxLayout* const layout = blockColumn();
    addTitle(layout, "— 下载模型 —");
    QLabel* const note = dimLabel();
    texts([note] {
        note->setText(qT("每个 gguf 里 transformer 和 codec 都有,不用另配 vocoder;分词器(12 "
                         "MB)会自动一起下。\r\n下到一半可以取消,残件留在 models/ "
                         "下,下次点下载会接着下。")
                          .remove('\r'));
    });
    layout->addWidget(note);

    QFormLayout* const form = addForm(layout);
    pick = addChoice(form, "量化档", "variant", variantLines);
    const std::vector<ModelVariant> catalog = modelCatalog();
    for (std::size_t i = 0; i < catalog.size(); ++i)
        if (catalog[i].id == recommendedVariant().id) pick->setCurrentIndex(static_cast<int>(i));
    source = addChoice(form, "下载源", "source", sourceNames);

    QHBoxLayout* const buttons = addButtonRow(layout);
    start = addButton(buttons, "下载", [this] { startDownload(); });
    start->setProperty("primary", true);
    cancel = addButton(buttons, "取消", [this] { cancelDownload(); });
    addButton(buttons, "打开模型目录", [this] { app.openPath(ZEPHOPaths::modelsDir()); });

    bar = new QProgressBar(this);
    bar->setObjectName("bar");
    bar->setRange(0, wholeBar);
    layout->addWidget(bar);
    auto* status = new QHBoxLayout;
    status->setSpacing(8);
    mark = new StatusDot(this);
    line = new QLabel(this);
    line->setObjectName("downloadLine");
    line->setTextFormat(Qt::PlainText);
    line->setWordWrap(true);
    line->setTextInteractionFlags(Qt::TextSelectableByMouse);
    status->addWidget(mark, 0, Qt::AlignVCenter);
    status->addWidget(line, 1);
    layout->addLayout(status);

    connect(&app, &AppState::downloadChanged, this, [this] {
        cancelling = cancelling && app.downloader->busy();
        refresh();
    });
    // The last report of a job comes a moment before its end.
    connect(&app, &AppState::ticked, this, &DownloadBlock::showState);
    texts([this] { refresh(); });
}

bool DownloadBlock::useMirror() const {
    return source->currentIndex() == mirror;
}

void DownloadBlock::setUseMirror(bool wanted) {
    source->setCurrentIndex(wanted ? mirror : official);
}

void DownloadBlock::startDownload() {
    const ModelVariant variant = modelCatalog().at(static_cast<std::size_t>(pick->currentIndex()));
    const std::string from = fromQt(source->currentText());
    const std::string question =
        TF("要下载 %@(%@)吗?", variant.fileName, humanSize(variant.sizeBytes)) + "\n" +
        T("大文件下载期间服务照常可用,下完点\"应用并重启引擎\"才生效。") + "\n" +
        TF("下载源:%@", from);
    app.confirm(toQt(question), [this, variant, fromMirror = useMirror()] {
        app.startDownload(variant, fromMirror);
    });
}

void DownloadBlock::cancelDownload() {
    cancelling = true;
    app.downloader->cancel();
    refresh();
}

void DownloadBlock::refresh() {
    const DownloadProgress& now = app.download;
    const bool known = now.total > 0;
    const bool waits = (now.stage == DownloadStage::connecting && now.received == 0) ||
                       (now.stage == DownloadStage::downloading && !known);
    // A bar without a range moves to and fro.
    bar->setRange(0, waits ? 0 : wholeBar);
    const bool whole = now.stage == DownloadStage::verifying || now.stage == DownloadStage::done;
    const double percent = whole ? 100 : now.percent();
    bar->setValue(static_cast<int>(percent * wholeBar / 100));
    bar->setFormat(now.stage == DownloadStage::idle ? QString()
                                                    : toQt(formatText("%.1f%%", percent)));
    mark->setTone(toneOf(now.stage));
    showState();
}

void DownloadBlock::showState() {
    const bool busy = app.downloader->busy();
    cancelling = cancelling && busy;
    start->setEnabled(!busy);
    cancel->setEnabled(busy && !cancelling);
    pick->setEnabled(!busy);
    source->setEnabled(!busy);
    line->setText(cancelling ? qT("正在取消…") : toQt(app.download.describe()));
}

}  // namespace zepho
