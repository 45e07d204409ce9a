// The broadcast page: which voice speaks for which airline, language and gender, and the exchange of
// voices with other machines.
#include <QClipboard>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QShortcut>
#include <QVBoxLayout>
#include <utility>

#include "app/FileDialogs.h"
#include "app/Page.h"
#include "app/QtText.h"
#include "app/pages/BindingRows.h"
#include "app/pages/BindingText.h"
#include "app/pages/Pages.h"
#include "app/widgets/RecordModel.h"
#include "app/widgets/RecordTable.h"
#include "app/widgets/SpeechPickers.h"
#include "core/base/Text.h"
#include "core/config/BindingKeys.h"
#include "core/pack/ClonePack.h"

namespace zepho {
namespace {

constexpr auto clnExt = ".cln";
constexpr auto packName = "zepho-voices";
constexpr auto packKinds = "克隆包 (*.cln)|*.cln";
constexpr std::size_t shownErrors = 8;

class BroadcastPage : public Page {
public:
    explicit BroadcastPage(AppState& state);
    bool escape() override;

private:
    using BindingColumn = Column<BindingRow>;
    std::vector<BindingColumn> columnsOfTable();

    void addForm(QVBoxLayout* to);
    void addButtons(QVBoxLayout* to);
    void addShortcuts();
    [[nodiscard]] const BindingRow* selected() const { return model->find(table->selectedId()); }
    [[nodiscard]] QString tipOf(const BindingRow& row) const;
    void showRows();
    void showVoices();
    void loadSelection();
    void saveAndReload();

    void bind();
    void unbind();
    void preview();
    void duplicate();
    void copyAsText();
    void pasteText();
    void takeRows(const std::vector<BindingRow>& read);
    void exportPack();
    void exportRows(const std::vector<std::string>& keys);
    void importPack();
    void setPacking(bool now);

    RecordModel<BindingRow>* const model;
    RecordTable* const table;
    QLineEdit* const airline;
    LanguagePicker* const language;
    GenderPicker* const gender;
    QComboBox* const voice;  // the data is the id
    QLabel* const status;
    QPushButton* exportButton = nullptr;
    QPushButton* importButton = nullptr;
    std::vector<BindingRow> rows;
    bool synthesizing = false;
    bool packing = false;
};

BroadcastPage::BroadcastPage(AppState& state)
    : Page(state),
      model(new RecordModel<BindingRow>(
          columnsOfTable(), [](const BindingRow& row) { return row.id; }, this)),
      table(new RecordTable(model, RecordTable::Selects::one, 3, this)),
      airline(new QLineEdit(this)),
      language(new LanguagePicker(this)),
      gender(new GenderPicker(this)),
      voice(new QComboBox(this)),
      status(new QLabel(this)) {
    QVBoxLayout* const all = column();
    addHint(
        all,
        "广播请求只带航司、语言和性别,在这里定好各由哪个音色来念。语言选「自动」的那条兜底所有语言,性别选「默认」的那条兜底"
        "两种性别。选中一行按 Ctrl+C 复制成文字(没选就复制全部),Ctrl+V 从表格软件粘贴。");
    table->setObjectName("bindings");
    table->setMinimumHeight(table->fontMetrics().height() * 6);
    table->setColumnWidth(1, table->fontMetrics().averageCharWidth() * 14);
    name(table, "广播");
    all->addWidget(table, 1);
    addForm(all);
    addButtons(all);
    status->setObjectName("status");
    status->setTextFormat(Qt::PlainText);
    status->setWordWrap(true);
    all->addWidget(status);
    addShortcuts();
    connect(table, &RecordTable::choiceChanged, this, &BroadcastPage::loadSelection);
    connect(&app, &AppState::bindingsChanged, this, &BroadcastPage::showRows);
    connect(&app, &AppState::voicesChanged, this, [this] {
        showVoices();
        showRows();
    });
    texts([this] {
        language->setTexts();
        gender->setTexts();
        showVoices();
        showRows();
        model->refreshTexts();
    });
}

std::vector<BroadcastPage::BindingColumn> BroadcastPage::columnsOfTable() {
    std::vector<BindingColumn> columns{
        BindingColumn("航司", [](const BindingRow& row) { return toQt(row.airline); }),
        BindingColumn("语言",
                      [](const BindingRow& row) { return toQt(langDisplay(row.language)); }),
        BindingColumn("性别",
                      [](const BindingRow& row) { return toQt(ttsGenderDisplay(row.gender)); }),
        BindingColumn("音色", [](const BindingRow& row) {
            return row.voiceName.empty() ? qT("这个音色已经不在了") : toQt(row.voiceName);
        })};
    for (BindingColumn& column : columns)
        column.tip([this](const BindingRow& row) { return tipOf(row); });
    return columns;
}

void BroadcastPage::addForm(QVBoxLayout* to) {
    auto* grid = new QGridLayout;
    grid->setHorizontalSpacing(12);
    grid->setColumnStretch(1, 1);
    grid->setColumnStretch(3, 1);
    grid->setColumnMinimumWidth(2, 40);
    const auto add = [&](int row, int half, std::string_view key, QWidget* field) {
        auto* label = new QLabel(this);
        say(label, key);
        label->setBuddy(field);
        grid->addWidget(label, row, half * 2);
        grid->addWidget(field, row, half * 2 + 1);
    };
    add(0, 0, "航司", airline);
    add(0, 1, "语言", language);
    add(1, 0, "性别", gender);
    add(1, 1, "音色", voice);
    airline->setObjectName("airline");
    hint(airline, "例如 ANA");
    language->setObjectName("language");
    gender->setObjectName("gender");
    voice->setObjectName("voice");
    voice->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    voice->setMinimumContentsLength(14);
    to->addLayout(grid);
    connect(airline, &QLineEdit::returnPressed, this, &BroadcastPage::bind);
}

void BroadcastPage::addButtons(QVBoxLayout* to) {
    auto* line = new QHBoxLayout;
    const auto add = [&](std::string_view key, void (BroadcastPage::*action)()) {
        auto* button = new QPushButton(this);
        say(button, key);
        connect(button, &QPushButton::clicked, this, action);
        line->addWidget(button);
        return button;
    };
    add("新增", &BroadcastPage::bind)->setProperty("primary", true);
    add("删除", &BroadcastPage::unbind);
    add("试听选中", &BroadcastPage::preview);
    add("复制", &BroadcastPage::duplicate);
    exportButton = add("导出 .cln…", &BroadcastPage::exportPack);
    importButton = add("导入 .cln…", &BroadcastPage::importPack);
    line->addStretch();
    to->addLayout(line);
}

void BroadcastPage::addShortcuts() {
    const auto add = [this](const QKeySequence& keys, void (BroadcastPage::*action)()) {
        auto* shortcut = new QShortcut(keys, table);
        shortcut->setContext(Qt::WidgetShortcut);
        connect(shortcut, &QShortcut::activated, this, action);
    };
    add(QKeySequence::Copy, &BroadcastPage::copyAsText);
    add(QKeySequence::Paste, &BroadcastPage::pasteText);
    add(QKeySequence::Delete, &BroadcastPage::unbind);
}

bool BroadcastPage::escape() {
    if (app.playing || table->selectedIds().empty()) return false;
    table->clearChoice();
    return true;
}

// ---- what is shown

void BroadcastPage::showRows() {
    rows = bindingRows(app.bindings, app.voices);
    model->setRecords(rows);
    std::set<std::string> known;
    for (const BindingRow& row : rows) known.insert(row.id);
    table->keepOnly(known);
}

void BroadcastPage::showVoices() {
    const QString kept = voice->currentData().toString();
    voice->clear();
    for (const VoiceInfo& each : app.voices) {
        // Names are not unique; what is said with them mostly tells them apart.
        const std::string shown = each.display + " · " + langDisplay(each.language) + " · " +
                                  ttsGenderDisplay(each.gender);
        voice->addItem(toQt(shown), toQt(each.id));
    }
    voice->setPlaceholderText(app.voices.empty() ? qT("还没有音色") : qT("选一个音色"));
    voice->setCurrentIndex(kept.isEmpty() ? -1 : voice->findData(kept));
}

QString BroadcastPage::tipOf(const BindingRow& row) const {
    const BindingRow* const fallback = fallbackOf(row, rows);
    if (fallback == nullptr) return qT("没有这条的话:没有别的绑定可以兜底。");
    const std::string voiceName =
        fallback->voiceName.empty() ? T("这个音色已经不在了") : fallback->voiceName;
    return qTF("没有这条的话:%@(%@ · %@ · %@)", voiceName, fallback->airline,
               langDisplay(fallback->language), ttsGenderDisplay(fallback->gender));
}

void BroadcastPage::loadSelection() {
    const BindingRow* const row = selected();
    if (row == nullptr) return;
    airline->setText(toQt(row->airline));
    language->setCode(row->language);
    gender->setGender(row->gender);
    voice->setCurrentIndex(voice->findData(toQt(row->voiceId), Qt::UserRole, Qt::MatchFixedString));
}

void BroadcastPage::saveAndReload() {
    app.saveConfig(this);
    app.reloadBindings();
}

// ---- one binding

void BroadcastPage::bind() {
    const std::string code = normAirline(fromQt(airline->text()));
    const std::string voiceId = fromQt(voice->currentData().toString());
    if (code.empty()) return app.alert(qT("先填航司代码(ICAO 三字码,比如 ANA、CCA、CES)。"));
    // It would shift the parts of the key.
    if (code.find(':') != std::string::npos) return app.alert(qT("航司代码里不能有冒号。"));
    if (voiceId.empty()) return app.alert(qT("先选一个音色。没有音色的话,去「音色」页克隆一个。"));
    const std::string lang = language->code();
    app.config->setAirlineVoice(code, lang, gender->gender(), voiceId);
    saveAndReload();
    table->select(airlineKey(code, lang, gender->gender()));
    status->setText(
        qTF("已新增 %@ · %@ · %@", code, langDisplay(lang), ttsGenderDisplay(gender->gender())));
}

void BroadcastPage::unbind() {
    const BindingRow* const row = selected();
    if (row == nullptr) return app.alert(qT("先在上面选一条。"));
    const QString sentence = qTF("已解除 %@ · %@ · %@", row->airline, langDisplay(row->language),
                                 ttsGenderDisplay(row->gender));
    app.config->removeAirlineBinding(row->id);
    saveAndReload();
    status->setText(sentence);
}

void BroadcastPage::preview() {
    const BindingRow* const row = selected();
    if (row == nullptr) return app.alert(qT("先在上面选一条。"));
    if (synthesizing) return;
    TtsRequest request =
        TtsRequest::make(T("这是一次连通测试。"), row->language, row->gender, 1.0F);
    request.voiceId = row->voiceId;
    synthesizing = true;
    status->setText(qT("正在合成…"));
    app.inBackground(
        this, [service = app.service, request] { return service->synthesize(request); },
        [this](const Outcome<TtsResult>& spoken) {
            synthesizing = false;
            status->clear();
            if (!spoken.ok()) return app.alert(qT("合成失败:") + toQt(spoken.error));
            app.play(spoken.value->wav, spoken.value->durationMs,
                     [page = QPointer(this)](bool began) {
                         if (page && !began) page->app.alert(qT("播不出来,原因在日志里。"));
                     });
        });
}

void BroadcastPage::duplicate() {
    const BindingRow* const row = selected();
    if (row == nullptr) return app.alert(qT("先在上面选一条。"));
    if (row->voiceName.empty())
        return app.alert(qT("这条绑的音色已经不在了,先给它选个音色再复制。"));
    const std::string code = row->airline;
    const std::optional<BindingSlot> slot = firstFreeSlot(code, commonLanguages(), *app.config);
    if (!slot)
        return app.alert(qTF("%@ 常用的语言和性别都绑满了,没地方放这条复制。", code) + "\n" +
                         qT("想加别的语种的话,在下面直接敲语言代码再点「绑定 / 更新」。"));
    app.config->setAirlineVoice(code, slot->language, slot->gender, row->voiceId);
    saveAndReload();
    table->select(airlineKey(code, slot->language, slot->gender));
    status->setText(qTF("已复制成 %@ · %@ · %@ —— 要改成别的,改完点「绑定 / 更新」", code,
                        langDisplay(slot->language), ttsGenderDisplay(slot->gender)));
}

// ---- rows as text

void BroadcastPage::copyAsText() {
    const BindingRow* const row = selected();
    const std::vector<BindingRow> copied = row != nullptr ? std::vector{*row} : rows;
    if (copied.empty()) return;
    QGuiApplication::clipboard()->setText(toQt(bindingsToText(copied)));
    status->setText(qTF("已把 %d 条复制成文字", copied.size()));
}

void BroadcastPage::pasteText() {
    const BindingsRead read =
        bindingsFromText(fromQt(QGuiApplication::clipboard()->text()), app.voices);
    if (!read.errors.empty()) {
        QString told = qT("粘贴的内容有问题,一条都没有绑定:");
        for (std::size_t i = 0; i < read.errors.size() && i < shownErrors; ++i)
            told += "\n" + toQt(read.errors[i]);
        if (read.errors.size() > shownErrors) told += "\n…";
        return app.alert(told);
    }
    if (read.rows.empty())
        return app.alert(qT("剪贴板里没有绑定。每行要有:航司、语言、性别、音色,用制表符隔开。"));
    int replaced = 0;
    for (const BindingRow& row : read.rows) {
        const BindingRow* const before = model->find(row.id);
        if (before != nullptr && before->voiceId != row.voiceId) ++replaced;
    }
    if (replaced == 0) return takeRows(read.rows);
    app.confirm(qTF("粘贴会换掉 %d 条已有绑定的音色。继续?", replaced),
                [page = QPointer(this), pasted = read.rows] {
                    if (page) page->takeRows(pasted);
                });
}

void BroadcastPage::takeRows(const std::vector<BindingRow>& read) {
    for (const BindingRow& row : read)
        app.config->setAirlineVoice(row.airline, row.language, row.gender, row.voiceId);
    saveAndReload();
    table->select(read.front().id);
    status->setText(qTF("粘贴了 %d 条绑定", read.size()));
}

// ---- packs

void BroadcastPage::exportPack() {
    if (rows.empty()) return app.alert(qT("还没有任何绑定,没什么可导的。"));
    std::vector<std::string> all;
    for (const BindingRow& row : rows) all.push_back(row.id);
    const BindingRow* const row = selected();
    if (row == nullptr || rows.size() == 1) return exportRows(all);
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->addAction(qTF("全部 %d 条", all.size()), this, [this, all] { exportRows(all); });
    menu->addAction(qTF("只导出 %@ · %@ · %@", row->airline, langDisplay(row->language),
                        ttsGenderDisplay(row->gender)),
                    this, [this, one = row->id] { exportRows({one}); });
    menu->popup(exportButton->mapToGlobal(QPoint(0, exportButton->height())));
}

void BroadcastPage::exportRows(const std::vector<std::string>& keys) {
    const auto write = [this, keys](const QString& to) {
        if (packing) return;
        setPacking(true);
        status->setText(qT("正在导出…"));
        app.inBackground(
            this,
            [service = app.service, config = app.config, keys, path = fromQt(to)] {
                return zepho::exportPack(path, keys, service->voices, *config);
            },
            [this](const Outcome<PackSummary>& summary) {
                setPacking(false);
                status->clear();
                if (!summary.ok()) return app.alert(toQt(summary.error));
                app.alert(qT("导出完成:") + toQt(summary.value->describe()));
            });
    };
    chooseSavePath(app.dialogParent(), QString(packName) + clnExt, QString(clnExt).mid(1),
                   fileKinds(qT(packKinds)), [page = QPointer(this), write](const QString& to) {
                       if (page) write(to);
                   });
}

void BroadcastPage::setPacking(bool now) {
    packing = now;
    for (QPushButton* button : {exportButton, importButton}) button->setEnabled(!now);
}

void BroadcastPage::importPack() {
    const auto read = [this](const QString& from) {
        if (packing) return;
        setPacking(true);
        status->setText(qT("正在导入…"));
        app.inBackground(
            this,
            [service = app.service, config = app.config, path = fromQt(from)] {
                return zepho::importPack(path, service->voices, *config);
            },
            [this](const Outcome<PackSummary>& summary) {
                setPacking(false);
                status->clear();
                if (!summary.ok()) return app.alert(toQt(summary.error));
                app.reloadVoices();
                app.reloadBindings();
                app.alert(qT("导入完成:") + toQt(summary.value->describe()), qT("导入完成"));
            });
    };
    chooseFile(app.dialogParent(), fileKinds(qT(packKinds)),
               [page = QPointer(this), read](const QString& from) {
                   if (page) read(from);
               });
}

}  // namespace

Page* makeBroadcastPage(AppState& app) {
    return new BroadcastPage(app);
}

}  // namespace zepho
