// The control panel of the running service: its state, its addresses, what can be done with it, and
// how clients reach it.
#include <QClipboard>
#include <QFrame>
#include <QGridLayout>
#include <QGuiApplication>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QToolTip>
#include <QVBoxLayout>
#include <algorithm>

#include "app/Page.h"
#include "app/QtText.h"
#include "app/Theme.h"
#include "app/pages/Pages.h"
#include "app/pages/UsageText.h"
#include "app/widgets/StatusDot.h"
#include "core/config/ZEPHOPaths.h"
#include "core/models/ModelCatalog.h"

namespace zepho {
namespace {

constexpr int usageLinesAtLeast = 9;

class ServicePage : public Page {
public:
    explicit ServicePage(AppState& state);
    // The settings may have changed the address.
    void appear() override { showUsage(); }

private:
    void addStatus(QVBoxLayout* to);
    void addEndpoints(QVBoxLayout* to);
    void addButtons(QVBoxLayout* to);
    void addUsage(QVBoxLayout* to);
    QPushButton* addButton(QBoxLayout* to, const char* objectName, void (ServicePage::*act)());
    QPushButton* addCopy(std::function<QString()> text);

    void showStatus();
    void showEndpoints();
    void showUsage();
    void showModel();
    void showDownload();
    void showMessage();

    void toggleServer();
    void askToClear();
    void toggleModel();
    void askToDownload();
    void openData();
    void askToQuit();

    StatusDot* const dot = new StatusDot(this);
    QLabel* const status = new QLabel(this);
    QLabel* const backend = new QLabel(this);
    QLabel* const detail = new QLabel(this);
    QFrame* const addresses = new QFrame(this);
    std::vector<std::string> shownEndpoints;
    QPushButton* server = nullptr;
    QPushButton* model = nullptr;
    QPushButton* quick = nullptr;
    QLabel* const message = new QLabel(this);
    QLabel* const trouble = new QLabel(this);
    QPlainTextEdit* const usage = new QPlainTextEdit(this);
    bool modelMoves = false;  // a load or an unload has not come back yet
};

void makeSelectable(QLabel* label) {
    label->setTextFormat(Qt::PlainText);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    label->setFocusPolicy(Qt::TabFocus);
}

ServicePage::ServicePage(AppState& state) : Page(state) {
    // More addresses than the window is high must not cut off what stands below them.
    auto* around = new QVBoxLayout(this);
    around->setContentsMargins(0, 0, 0, 0);
    auto* scroll = new QScrollArea(this);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setFocusPolicy(Qt::NoFocus);
    around->addWidget(scroll);
    auto* body = new QWidget(scroll);
    scroll->setWidget(body);
    auto* all = new QVBoxLayout(body);
    all->setContentsMargins(24, 20, 24, 16);
    all->setSpacing(12);
    addStatus(all);
    addEndpoints(all);
    addButtons(all);
    addUsage(all);

    connect(&app, &AppState::ticked, this, [this] {
        showStatus();
        showModel();
        // The last report of a job comes a moment before its end.
        showDownload();
    });
    connect(&app, &AppState::serverChanged, this, [this] {
        showStatus();
        showEndpoints();
        showUsage();
    });
    connect(&app, &AppState::modelsChanged, this, &ServicePage::showDownload);
    connect(&app, &AppState::downloadChanged, this, &ServicePage::showDownload);
    connect(&app, &AppState::messageChanged, this, &ServicePage::showMessage);
    texts([this] {
        showStatus();
        showEndpoints();
        showUsage();
        showModel();
        showDownload();
        showMessage();
    });
}

// ---- what stands on the page

void ServicePage::addStatus(QVBoxLayout* to) {
    QFont big = status->font();
    big.setPointSizeF(big.pointSizeF() * 1.35);
    big.setWeight(QFont::DemiBold);
    dot->setObjectName("statusDot");
    status->setObjectName("serviceStatus");
    status->setFont(big);
    dot->setFont(big);
    makeSelectable(status);
    backend->setObjectName("engineBackend");
    detail->setObjectName("engineDetail");
    detail->setForegroundRole(QPalette::PlaceholderText);
    for (QLabel* label : {backend, detail}) {
        label->setWordWrap(true);
        makeSelectable(label);
    }
    auto* grid = new QGridLayout;
    grid->setHorizontalSpacing(10);
    grid->setVerticalSpacing(4);
    grid->setColumnStretch(1, 1);
    grid->addWidget(dot, 0, 0, Qt::AlignVCenter);
    grid->addWidget(status, 0, 1);
    grid->addWidget(backend, 1, 1);
    grid->addWidget(detail, 2, 1);
    to->addLayout(grid);
}

void ServicePage::addEndpoints(QVBoxLayout* to) {
    addTitle(to, "监听地址");
    addresses->setObjectName("card");
    auto* rows = new QGridLayout(addresses);
    rows->setContentsMargins(14, 8, 8, 8);
    rows->setVerticalSpacing(4);
    rows->setColumnStretch(0, 1);
    to->addWidget(addresses);
}

void ServicePage::addButtons(QVBoxLayout* to) {
    auto* row = new QHBoxLayout;
    row->setSpacing(8);
    server = addButton(row, "toggleServer", &ServicePage::toggleServer);
    server->setProperty("primary", true);
    say(addButton(row, "clearCache", &ServicePage::askToClear), "清空缓存");
    model = addButton(row, "toggleModel", &ServicePage::toggleModel);
    // A line of its own: while it loads, it tells more than fits beside the others.
    auto* line = new QHBoxLayout;
    line->setSpacing(8);
    quick = addButton(line, "quickModel", &ServicePage::askToDownload);
    line->addStretch(1);
    say(addButton(row, "openData", &ServicePage::openData), "打开数据目录");
    row->addStretch(1);
    say(addButton(row, "quit", &ServicePage::askToQuit), "退出程序");
    to->addLayout(row);
    to->addLayout(line);
    trouble->setObjectName("downloadTrouble");
    message->setObjectName("serviceMessage");
    for (QLabel* label : {trouble, message}) {
        label->setWordWrap(true);
        makeSelectable(label);
        to->addWidget(label);
    }
}

void ServicePage::addUsage(QVBoxLayout* to) {
    auto* head = new QVBoxLayout;
    QLabel* const title = addTitle(head, "给客户端的接入信息");
    auto* line = new QHBoxLayout;
    line->addLayout(head, 1);
    QPushButton* const copy = addCopy([this] { return usage->toPlainText(); });
    copy->setObjectName("copyUsage");
    line->addWidget(copy);
    to->addLayout(line);
    title->setBuddy(usage);
    usage->setObjectName("usage");
    usage->setReadOnly(true);
    usage->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    usage->setTabChangesFocus(true);
    usage->setLineWrapMode(QPlainTextEdit::NoWrap);
    usage->setMinimumHeight(usageLinesAtLeast * usage->fontMetrics().lineSpacing());
    name(usage, "给客户端的接入信息");
    to->addWidget(usage, 1);
}

QPushButton* ServicePage::addButton(QBoxLayout* to, const char* objectName,
                                    void (ServicePage::*act)()) {
    auto* button = new QPushButton(this);
    button->setObjectName(objectName);
    connect(button, &QPushButton::clicked, this, act);
    to->addWidget(button);
    return button;
}

QPushButton* ServicePage::addCopy(std::function<QString()> text) {
    auto* button = new QPushButton(qT("复制"), this);
    connect(button, &QPushButton::clicked, this, [button, text = std::move(text)] {
        QGuiApplication::clipboard()->setText(text());
        QToolTip::showText(button->mapToGlobal(QPoint(0, button->height())), qT("已复制。"),
                           button);
    });
    return button;
}

// ---- following the state

void ServicePage::showStatus() {
    const bool placeholder = app.stats.placeholder || !app.health.ready;
    dot->setTone(!app.serverRunning ? StatusDot::Tone::idle
                 : placeholder      ? StatusDot::Tone::warning
                                    : StatusDot::Tone::good);
    const QString first = app.endpoints.empty() ? QString() : toQt(app.endpoints.front());
    // Text that is set anew loses its selection.
    const auto put = [](QLabel* label, const QString& text) {
        if (label->text() != text) label->setText(text);
        label->setVisible(!text.isEmpty());
    };
    put(status, app.serverRunning ? qT("状态:运行中 —— ") + first : qT("状态:已停止"));
    put(backend, toQt(app.health.backend));
    put(detail, toQt(app.health.detail));
    server->setText(app.serverRunning ? qT("停止服务") : qT("启动服务"));
}

void ServicePage::showEndpoints() {
    auto* rows = static_cast<QGridLayout*>(addresses->layout());
    if (shownEndpoints != app.endpoints) {
        shownEndpoints = app.endpoints;
        while (QLayoutItem* item = rows->takeAt(0)) {
            item->widget()->deleteLater();
            delete item;
        }
        QWidget* before = detail;
        for (std::size_t i = 0; i < shownEndpoints.size(); ++i) {
            QString address = toQt(shownEndpoints[i]);
            auto* label = new QLabel(address, addresses);
            makeSelectable(label);
            QPushButton* const copy = addCopy([address] { return address; });
            rows->addWidget(label, static_cast<int>(i), 0);
            rows->addWidget(copy, static_cast<int>(i), 1);
            setTabOrder(before, label);
            setTabOrder(label, copy);
            before = copy;
        }
    }
    addresses->setVisible(!shownEndpoints.empty());
    for (QPushButton* copy : addresses->findChildren<QPushButton*>()) copy->setText(qT("复制"));
    if (auto* copy = findChild<QPushButton*>("copyUsage")) copy->setText(qT("复制"));
}

void ServicePage::showUsage() {
    const QFont fixed = Theme::fixedFont();
    if (fixed != usage->font()) usage->setFont(fixed);
    const QString text =
        toQt(usageText(app.endpoints, app.config->bindAddress, app.config->baseUrl()));
    if (usage->toPlainText() != text) usage->setPlainText(text);
}

void ServicePage::showModel() {
    model->setText(app.service->modelUnloaded() ? qT("载入模型") : qT("卸载模型"));
    model->setEnabled(!modelMoves);
}

void ServicePage::showDownload() {
    const ModelVariant recommended = recommendedVariant();
    const auto& files = app.installedModelFiles;
    const bool busy = app.downloader->busy();
    const bool there = std::find(files.begin(), files.end(), recommended.fileName) != files.end();
    quick->setEnabled(!busy && !there);
    if (busy)
        quick->setText(toQt(app.download.describe()));
    else if (there)
        quick->setText(qT("模型已就位"));
    else
        quick->setText(qTF("一键下载推荐模型(%@)", humanSize(recommended.sizeBytes)));
    const bool failed = !busy && app.download.stage == DownloadStage::failed;
    trouble->setVisible(failed);
    // What somebody has selected stays so.
    const QString why = failed ? toQt(app.download.describe()) : QString();
    if (trouble->text() != why) trouble->setText(why);
}

void ServicePage::showMessage() {
    const QString text = app.lastMessage;
    // What the preview says before its first clip means nothing here.
    const bool shown = app.lastResult || text != qT("还没有合成过。");
    message->setVisible(shown);
    message->setText(shown ? text : QString());
}

// ---- the buttons

void ServicePage::toggleServer() {
    if (app.serverRunning)
        app.stopServer();
    else
        app.startServer();
}

void ServicePage::askToClear() {
    app.confirm(qT("真要清空全部缓存?下次遇到同样的句子会重新算一遍。"), [this] {
        app.inBackground(
            this, [service = app.service] { service->clearCache(); },
            [this](const Outcome<Nothing>&) { app.reloadCache(); });
    });
}

void ServicePage::toggleModel() {
    // The service may wait for a process to end or to start.
    const auto move = [this](auto work, const QString& after) {
        modelMoves = true;
        showModel();
        app.inTurn(this, work, [this, after](const Outcome<Nothing>& outcome) {
            modelMoves = false;
            if (!outcome.ok())
                app.setMessage(toQt(outcome.error));
            else if (!after.isEmpty())
                app.setMessage(after);
            app.tick();
        });
    };
    if (app.service->modelUnloaded()) {
        app.setMessage(qT("正在载入模型…"));
        return move([service = app.service] { service->loadModel(); }, {});
    }
    app.confirm(
        qT("卸载模型,把内存还给系统?") + "\n\n" + qT("服务不停:已经烤进缓存的广播照常秒回。") +
            "\n" + qT("但**缓存里没有的**句子会明确报错,直到你手动载入模型。"),
        [this, move] {
            move([service = app.service] { service->unloadModel(); }, qT("模型已卸载,内存已释放"));
        });
}

void ServicePage::askToDownload() {
    const ModelVariant recommended = recommendedVariant();
    app.confirm(qTF("下载推荐模型 %@(%@)?", recommended.id, humanSize(recommended.sizeBytes)) +
                    "\n\n" + qT("这是一次性的,下完就能出声。断了可以接着下,不用从头来。"),
                [this, recommended] {
                    const EngineOptions options = app.config->engine;
                    app.startDownload(recommended, options.useMirror);
                });
}

void ServicePage::openData() {
    app.openPath(ZEPHOPaths::dataRoot());
}

void ServicePage::askToQuit() {
    if (!app.serverRunning) return app.quit();
    app.confirm(qT("服务还在跑,确定退出?"), [this] { app.quit(); });
}

}  // namespace

Page* makeServicePage(AppState& app) {
    return new ServicePage(app);
}

}  // namespace zepho
