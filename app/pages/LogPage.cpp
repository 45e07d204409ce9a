// What the service has been doing: finished requests above, the lines of the log below.
#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QDateTime>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollBar>
#include <QShortcut>
#include <QSplitter>
#include <QTimer>
#include <QVBoxLayout>
#include <map>

#include "app/DiagnosticsBundle.h"
#include "app/FileDialogs.h"
#include "app/Page.h"
#include "app/QtText.h"
#include "app/RequestCommand.h"
#include "app/TabOrder.h"
#include "app/pages/DiagnosticsSheet.h"
#include "app/pages/Pages.h"
#include "app/widgets/LogView.h"
#include "app/widgets/RecordModel.h"
#include "app/widgets/RecordTable.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

constexpr int noteColumn = 7;
// Records that come faster than this are shown together.
constexpr int showEveryMs = 60;

class LogPage : public Page {
public:
    explicit LogPage(AppState& state);

protected:
    void showEvent(QShowEvent* event) override;

private:
    using RequestColumn = Column<RequestLog>;

    static std::string idOf(const RequestLog& record);
    std::vector<RequestColumn> columns();
    QWidget* makeLines();
    void addBar(QVBoxLayout* to);

    void soon();
    void showNew();
    void showRequests();
    void learnVoices();
    [[nodiscard]] QString voiceName(const RequestLog& record) const;

    void copyCommand();
    void saveLog();
    void showDiagnostics();
    void saveBundle(std::vector<DiagnosticsPart> parts);
    // Writes a file in the background and tells what came of it.
    void write(const QString& path, std::function<void(const std::string&)> save);
    void tell(const QString& text);

    std::map<std::string, QString> voiceNames;  // by the id in lower case
    bool requestsCame = true;
    QTimer pause;

    RecordModel<RequestLog>* const model;
    RecordTable* const table;
    LogLineModel* const lineModel;
    LogView* const lines;
    QPushButton* const command;
    QPushButton* const diagnostics;
    QLabel* const status;
};

LogPage::LogPage(AppState& state)
    : Page(state),
      model(new RecordModel<RequestLog>(columns(), idOf, this)),
      table(new RecordTable(model, RecordTable::Selects::one, noteColumn, this)),
      lineModel(new LogLineModel(this)),
      lines(new LogView(lineModel, this)),
      command(new QPushButton(this)),
      diagnostics(new QPushButton(this)),
      status(new QLabel(this)) {
    table->setObjectName("requests");
    name(table, "请求");
    const int letter = table->fontMetrics().horizontalAdvance('0');
    const int widths[] = {11, 10, 18, 13, 12, 11, 13};
    for (int i = 0; i < noteColumn; ++i) table->setColumnWidth(i, widths[i] * letter);
    lines->setObjectName("logLines");
    name(lines, "日志");
    status->setObjectName("logStatus");
    status->setTextFormat(Qt::PlainText);
    status->setWordWrap(true);
    status->hide();
    auto* const parts = new QSplitter(Qt::Vertical, this);
    parts->setChildrenCollapsible(false);
    parts->addWidget(table);
    parts->addWidget(makeLines());
    parts->setStretchFactor(0, 2);
    parts->setStretchFactor(1, 3);
    QVBoxLayout* const all = column();
    all->addWidget(parts, 1);
    all->addWidget(status);

    auto* const copy =
        new QShortcut(QKeySequence::Copy, table, nullptr, nullptr, Qt::WidgetWithChildrenShortcut);
    connect(copy, &QShortcut::activated, this, &LogPage::copyCommand);
    connect(table, &RecordTable::choiceChanged, this,
            [this] { command->setEnabled(model->find(table->selectedId()) != nullptr); });
    pause.setSingleShot(true);
    pause.setInterval(showEveryMs);
    connect(&pause, &QTimer::timeout, this, &LogPage::showNew);
    connect(&app, &AppState::logChanged, this, &LogPage::soon);
    connect(&app, &AppState::requestsChanged, this, [this] {
        requestsCame = true;
        soon();
    });
    connect(&app, &AppState::voicesChanged, this, &LogPage::learnVoices);
    texts([this] {
        model->refreshTexts();
        lines->applyFont();
    });
    learnVoices();
    showNew();
}

std::string LogPage::idOf(const RequestLog& record) {
    return std::to_string(record.id.high) + "-" + std::to_string(record.id.low);
}

std::vector<LogPage::RequestColumn> LogPage::columns() {
    using Record = const RequestLog&;
    return {
        RequestColumn("时间",
                      [](Record record) { return toQt(formatTimeOfDay(record.time)).left(8); })
            .by([](Record record) { return double(record.time.time_since_epoch().count()); })
            .tip([](Record record) { return toQt(formatTimeOfDay(record.time)); }),
        RequestColumn("来源", [](Record record) { return toQt(record.route); })
            .tip([](Record record) { return toQt(record.peer); }),
        RequestColumn("音色", [this](Record record) { return voiceName(record); }),
        RequestColumn("状态", [](Record record) { return QString::number(record.status); })
            .by([](Record record) { return record.status; })
            .right(),
        RequestColumn("耗时", [](Record record) { return qTF("%lld ms", record.elapsedMs); })
            .by([](Record record) { return double(record.elapsedMs); })
            .right(),
        RequestColumn("音频",
                      [](Record record) {
                          return record.audioMs == 0 ? QStringLiteral("—")
                                                     : qTF("%.2f s", record.audioMs / 1000.0);
                      })
            .by([](Record record) { return double(record.audioMs); })
            .right(),
        RequestColumn(
            "缓存",
            [](Record record) { return record.cacheHit ? qT("命中") : QStringLiteral("—"); }),
        RequestColumn("备注",
                      [](Record record) { return toQt(record.note).replace(QChar('\n'), ' '); })
            .tip([](Record record) { return toQt(record.note); }),
    };
}

QWidget* LogPage::makeLines() {
    auto* const lower = new QWidget(this);
    auto* const below = new QVBoxLayout(lower);
    below->setContentsMargins(0, 6, 0, 0);
    below->setSpacing(12);
    addBar(below);
    below->addWidget(lines, 1);
    return lower;
}

void LogPage::addBar(QVBoxLayout* to) {
    auto* const bar = new QHBoxLayout;
    auto* const level = new QComboBox(this);
    level->setObjectName("logLevel");
    name(level, "级别");
    for (const LogLevel each : {LogLevel::debug, LogLevel::info, LogLevel::warn, LogLevel::error})
        level->addItem(toQt(logLevelName(each)));
    auto* const engineLog = new QPushButton(this);
    auto* const clear = new QPushButton(this);
    auto* const save = new QPushButton(this);
    say(engineLog, "引擎日志");
    say(clear, "清空");
    say(save, "保存日志…");
    say(diagnostics, "诊断包…");
    say(command, "复制为 curl");
    texts([this] {
        command->setToolTip(qT("把选中的请求复制成一条 curl 命令。日志里不存句子,句子自己填。"));
    });
    command->setEnabled(false);
    bar->addWidget(level);
    bar->addWidget(engineLog);
    bar->addWidget(clear);
    bar->addStretch(1);
    bar->addWidget(command);
    bar->addWidget(save);
    bar->addWidget(diagnostics);
    to->addLayout(bar);
    tabThrough({table, level, engineLog, clear, command, save, diagnostics, lines});
    connect(level, &QComboBox::currentIndexChanged, this, [this](int at) {
        lineModel->setLevel(logLevelFromRaw(at).value_or(LogLevel::debug), app.logLines);
        lines->follow();
    });
    connect(engineLog, &QPushButton::clicked, &app, &AppState::openEngineLog);
    connect(clear, &QPushButton::clicked, this, [this] {
        app.clearLog();
        status->hide();
        showNew();
    });
    connect(command, &QPushButton::clicked, this, &LogPage::copyCommand);
    connect(save, &QPushButton::clicked, this, &LogPage::saveLog);
    connect(diagnostics, &QPushButton::clicked, this, &LogPage::showDiagnostics);
}

// ---- what is shown

void LogPage::soon() {
    // Out of sight nothing needs to be kept up.
    if (isVisible() && !pause.isActive()) pause.start();
}

void LogPage::showEvent(QShowEvent* event) {
    Page::showEvent(event);
    showNew();
    lines->follow();
}

void LogPage::showNew() {
    if (lineModel->sync(app.logLines)) lines->follow();
    if (std::exchange(requestsCame, false)) showRequests();
}

// The newest come in at the top: what is being read further down stays where it is.
void LogPage::showRequests() {
    const QModelIndex top = table->indexAt({0, 0});
    const bool isReading = top.isValid() && table->verticalScrollBar()->value() > 0;
    const std::string anchor = isReading ? model->idAt(top.row()) : std::string();
    model->setRecords({app.requestLines.rbegin(), app.requestLines.rend()});
    const int row = isReading ? model->rowOf(anchor) : -1;
    if (row >= 0) table->scrollTo(model->index(row, 0), QAbstractItemView::PositionAtTop);
    command->setEnabled(model->find(table->selectedId()) != nullptr);
}

void LogPage::learnVoices() {
    voiceNames.clear();
    for (const VoiceInfo& voice : app.voices)
        voiceNames.emplace(lowercased(voice.id), toQt(voice.display));
    model->refreshTexts();
}

QString LogPage::voiceName(const RequestLog& record) const {
    const auto known = voiceNames.find(lowercased(record.voice));
    return known == voiceNames.end() ? toQt(record.voice) : known->second;
}

// ---- what is done

void LogPage::tell(const QString& text) {
    status->setText(text);
    status->setVisible(!text.isEmpty());
}

void LogPage::copyCommand() {
    const RequestLog* const record = model->find(table->selectedId());
    if (record == nullptr) return;
    const std::string base = app.endpoints.empty() ? app.config->baseUrl() : app.endpoints.front();
    QApplication::clipboard()->setText(toQt(curlLine(*record, base, T("要念的句子"))));
    tell(qT("curl 命令已复制。"));
}

void LogPage::write(const QString& path, std::function<void(const std::string&)> save) {
    app.inBackground(
        this, [path = fromQt(path), save = std::move(save)] { save(path); },
        [this, path](const Outcome<Nothing>& outcome) {
            if (!outcome.ok()) return app.alert(qT("保存失败:") + toQt(outcome.error));
            tell(qTF("已保存到 %@", fromQt(path)));
        });
}

void LogPage::saveLog() {
    const QString stamp = QDateTime::currentDateTime().toString("yyyyMMdd-HHmmss");
    chooseSavePath(this, "zephon-" + stamp + ".log", "log", qT("日志文件") + " (*.log *.txt)",
                   [this](const QString& path) {
                       write(path, [](const std::string& to) { AppLog::save(to); });
                   });
}

void LogPage::showDiagnostics() {
    diagnostics->setEnabled(false);
    app.inBackground(
        this,
        [config = app.config, service = app.service] {
            return collectDiagnostics(*config, *service);
        },
        [this](Outcome<std::vector<DiagnosticsPart>> got) {
            diagnostics->setEnabled(true);
            if (!got.ok()) return app.alert(toQt(got.error));
            const std::vector<DiagnosticsPart>& parts = *got.value;
            (new DiagnosticsSheet(
                 parts, [this, parts] { saveBundle(parts); }, this))
                ->open();
        });
}

void LogPage::saveBundle(std::vector<DiagnosticsPart> parts) {
    const QString stamp = QDateTime::currentDateTime().toString("yyyyMMdd-HHmmss");
    chooseSavePath(this, "zephon-diagnostics-" + stamp + ".zip", "zip", "ZIP (*.zip)",
                   [this, parts = std::move(parts)](const QString& path) {
                       write(path, [parts](const std::string& to) { saveDiagnostics(to, parts); });
                   });
}

}  // namespace

Page* makeLogPage(AppState& app) {
    return new LogPage(app);
}

}  // namespace zepho
