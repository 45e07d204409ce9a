// What others have shared, and what one can share: the list of the hub, downloads, uploads, takedowns.
#include <QComboBox>
#include <QDateTime>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>
#include <algorithm>

#include "app/Page.h"
#include "app/QtText.h"
#include "app/TabOrder.h"
#include "app/pages/HubTransfers.h"
#include "app/pages/Pages.h"
#include "app/pages/ShareSheet.h"
#include "app/widgets/RecordModel.h"
#include "app/widgets/RecordTable.h"
#include "core/base/Text.h"

namespace zepho {
namespace {

constexpr int noteColumn = 7;

class HubPage : public Page {
public:
    explicit HubPage(AppState& state);
    void appear() override;

private:
    using HubColumn = Column<HubItem>;

    static std::vector<HubColumn> columns();
    void addFilterBar(QVBoxLayout* to);
    void addButtonLine(QVBoxLayout* to);
    void fillFixedPickers();

    void showList();
    void showState();
    void fillPicker(QComboBox* picker, const char* allKey, const std::vector<std::string>& values,
                    std::string& wanted, std::string (*shown)(std::string_view));
    [[nodiscard]] const HubItem* chosenItem() const;

    void setWorking(bool now, const char* statusKey = nullptr);
    void fetch();
    void fetched(const std::string& title, const Outcome<HubFetched>& outcome);
    void unshare();
    void takeDown(const std::string& id, const std::string& deleteKey);
    void share();
    void send(const ShareChoice& choice);
    void sent(const Outcome<HubSent>& outcome);

    HubFilter filter;
    HubSort sort = HubSort::newest;
    bool working = false;

    RecordModel<HubItem>* const model;
    RecordTable* const table;
    QComboBox* const kindPicker;
    QLineEdit* const search;
    QComboBox* const languagePicker;
    QComboBox* const genderPicker;
    QComboBox* const uploaderPicker;
    QComboBox* const sortPicker;
    QPushButton* const refresh;
    QPushButton* const download;
    QPushButton* const shareMine;
    QPushButton* const takeBack;
    QProgressBar* const progress;
    QLabel* const status;
};

std::string asItStands(std::string_view text) {
    return std::string(text);
}

QString genderWord(const std::string& code) {
    for (const TtsGender gender : allTtsGenders)
        if (equalsIgnoringCase(code, ttsGenderCode(gender))) return toQt(ttsGenderDisplay(gender));
    return toQt(code);
}

HubPage::HubPage(AppState& state)
    : Page(state),
      model(new RecordModel<HubItem>(
          columns(), [](const HubItem& item) { return item.id; }, this)),
      table(new RecordTable(model, RecordTable::Selects::one, noteColumn, this)),
      kindPicker(new QComboBox(this)),
      search(new QLineEdit(this)),
      languagePicker(new QComboBox(this)),
      genderPicker(new QComboBox(this)),
      uploaderPicker(new QComboBox(this)),
      sortPicker(new QComboBox(this)),
      refresh(new QPushButton(this)),
      download(new QPushButton(this)),
      shareMine(new QPushButton(this)),
      takeBack(new QPushButton(this)),
      progress(new QProgressBar(this)),
      status(new QLabel(this)) {
    QVBoxLayout* const all = column();
    addHint(all, "别人分享的音色和广播,挑一个下下来直接就能用。你也可以把自己做好的传上去。");
    addFilterBar(all);
    table->setObjectName("hubTable");
    name(table, "云分享");
    const int letter = table->fontMetrics().horizontalAdvance('0');
    const int widths[] = {26, 14, 11, 10, 9, 15, 13};
    for (int i = 0; i < noteColumn; ++i) table->setColumnWidth(i, widths[i] * letter);
    all->addWidget(table, 1);
    addButtonLine(all);
    auto* const foot = new QHBoxLayout;
    status->setObjectName("hubStatus");
    status->setTextFormat(Qt::PlainText);
    status->setWordWrap(true);
    progress->setRange(0, 0);
    progress->setTextVisible(false);
    progress->setFixedSize(letter * 14, fontMetrics().height() / 2);
    name(progress, "正在拉取列表…");
    foot->addWidget(status, 1);
    foot->addWidget(progress);
    all->addLayout(foot);

    connect(&app, &AppState::hubChanged, this, &HubPage::showList);
    connect(table, &RecordTable::choiceChanged, this, &HubPage::showState);
    texts([this] {
        fillFixedPickers();
        model->refreshTexts();
        showList();
    });
}

// The first look at the page fetches the list; later ones are the person's to ask for.
void HubPage::appear() {
    if (app.hubAll.empty() && app.hubStatus.isEmpty() && !app.hubBusy) app.hubRefresh();
}

std::vector<HubPage::HubColumn> HubPage::columns() {
    using Item = const HubItem&;
    const auto number = [](std::int64_t value) { return QString::number(value); };
    return {
        HubColumn("标题", [](Item item) { return toQt(item.title); }).tip([](Item item) {
            return toQt(item.title);
        }),
        HubColumn("上传者", [](Item item) { return toQt(item.userId); }),
        HubColumn("语言", [](Item item) { return toQt(langDisplay(item.language)); }),
        HubColumn("性别", [](Item item) { return genderWord(item.gender); }),
        HubColumn("音色", [number](Item item) { return number(item.voices); })
            .by([](Item item) { return double(item.voices); })
            .right(),
        HubColumn("下载", [number](Item item) { return number(item.downloads); })
            .by([](Item item) { return double(item.downloads); })
            .right(),
        HubColumn("时间",
                  [](Item item) {
                      if (!item.createdAt) return QString();
                      const auto seconds = std::chrono::system_clock::to_time_t(*item.createdAt);
                      return QDateTime::fromSecsSinceEpoch(seconds).toString("yyyy-MM-dd");
                  })
            .by([](Item item) {
                return item.createdAt ? double(item.createdAt->time_since_epoch().count()) : -1e300;
            }),
        HubColumn("说明", [](Item item) { return toQt(item.note); }).tip([](Item item) {
            return toQt(item.note);
        }),
    };
}

void HubPage::addFilterBar(QVBoxLayout* to) {
    kindPicker->setObjectName("hubKind");
    search->setObjectName("hubSearch");
    languagePicker->setObjectName("hubLanguage");
    genderPicker->setObjectName("hubGender");
    uploaderPicker->setObjectName("hubUploader");
    sortPicker->setObjectName("hubSort");
    name(kindPicker, "云分享");
    name(languagePicker, "语言");
    name(genderPicker, "性别");
    name(uploaderPicker, "上传者");
    name(sortPicker, "排序");
    hint(search, "搜标题 / 上传者 / 说明");
    name(search, "搜标题 / 上传者 / 说明");
    search->setClearButtonEnabled(true);
    auto* const browser = new QPushButton(this);
    say(browser, "在浏览器里打开");
    auto* const first = new QHBoxLayout;
    first->addWidget(kindPicker);
    first->addWidget(search, 1);
    first->addWidget(browser);
    auto* const second = new QHBoxLayout;
    for (QComboBox* const picker : {languagePicker, genderPicker, uploaderPicker, sortPicker}) {
        picker->setSizeAdjustPolicy(QComboBox::AdjustToContents);
        picker->setMaximumWidth(fontMetrics().horizontalAdvance('0') * 34);
        second->addWidget(picker);
    }
    second->addStretch(1);
    to->addLayout(first);
    to->addLayout(second);
    tabThrough({kindPicker, search, browser, languagePicker, genderPicker, uploaderPicker,
                sortPicker, table, refresh, download, shareMine, takeBack});

    connect(kindPicker, &QComboBox::activated, this, [this](int at) {
        const HubKind kind = at == 0 ? HubKind::voices : HubKind::broadcasts;
        if (kind == app.hubKind) return;
        table->clearChoice();
        app.setHubKind(kind);
    });
    connect(search, &QLineEdit::textChanged, this, [this](const QString& text) {
        filter.text = fromQt(text);
        showList();
    });
    const auto filtersBy = [this](QComboBox* picker, std::string& field) {
        connect(picker, &QComboBox::activated, this, [this, picker, &field](int at) {
            field = fromQt(picker->itemData(at).toString());
            showList();
        });
    };
    filtersBy(languagePicker, filter.language);
    filtersBy(genderPicker, filter.gender);
    filtersBy(uploaderPicker, filter.userId);
    connect(sortPicker, &QComboBox::activated, this, [this](int at) {
        sort = static_cast<HubSort>(at);
        // The picker's order is the records' own: a column's would hide it.
        table->sortByColumn(-1, Qt::AscendingOrder);
        showList();
    });
    connect(browser, &QPushButton::clicked, this,
            [this] { app.openUrl(toQt(hubPage(app.hubKind, app.surroundings.hub))); });
}

void HubPage::addButtonLine(QVBoxLayout* to) {
    auto* const line = new QHBoxLayout;
    download->setProperty("primary", true);
    say(refresh, "刷新");
    say(download, "下载并导入");
    say(takeBack, "撤下选中");
    shareMine->setObjectName("hubShare");
    for (QPushButton* const button : {refresh, download, shareMine, takeBack})
        line->addWidget(button);
    line->addStretch(1);
    to->addLayout(line);
    connect(refresh, &QPushButton::clicked, &app, &AppState::hubRefresh);
    connect(download, &QPushButton::clicked, this, &HubPage::fetch);
    connect(shareMine, &QPushButton::clicked, this, &HubPage::share);
    connect(takeBack, &QPushButton::clicked, this, &HubPage::unshare);
}

// ---- what is shown

void HubPage::fillFixedPickers() {
    const auto fill = [](QComboBox* picker, const QStringList& shown) {
        const int before = std::max(0, picker->currentIndex());
        picker->clear();
        picker->addItems(shown);
        picker->setCurrentIndex(before);
    };
    fill(kindPicker,
         {toQt(hubKindLabel(HubKind::voices)), toQt(hubKindLabel(HubKind::broadcasts))});
    fill(genderPicker, {qT("全部性别"), qT("女声"), qT("男声")});
    genderPicker->setItemData(1, "female");
    genderPicker->setItemData(2, "male");
    fill(sortPicker, {qT("最新上传在前"), qT("最早上传在前"), qT("下载最多在前"), qT("按标题"),
                      qT("按上传者")});
}

void HubPage::fillPicker(QComboBox* picker, const char* allKey,
                         const std::vector<std::string>& values, std::string& wanted,
                         std::string (*shown)(std::string_view)) {
    picker->clear();
    picker->addItem(qT(allKey), QString());
    int current = 0;
    for (const std::string& value : values) {
        picker->addItem(toQt(shown(value)), toQt(value));
        if (equalsIgnoringCase(value, wanted)) current = picker->count() - 1;
    }
    // While a list is on its way the choice waits for it.
    if (current == 0 && !app.hubBusy) wanted.clear();
    picker->setCurrentIndex(current);
}

void HubPage::showList() {
    kindPicker->setCurrentIndex(app.hubKind == HubKind::voices ? 0 : 1);
    fillPicker(languagePicker, "全部语言", hubLanguages(app.hubAll), filter.language, langDisplay);
    fillPicker(uploaderPicker, "全部上传者", hubUploaders(app.hubAll), filter.userId, asItStands);
    shareMine->setText(qTF("分享%@到云上", hubKindLabel(app.hubKind)));
    model->setRecords(hubArrange(app.hubAll, filter, sort));
    showState();
}

const HubItem* HubPage::chosenItem() const {
    const std::string id = table->selectedId();
    const auto found = std::find_if(app.hubAll.begin(), app.hubAll.end(),
                                    [&](const HubItem& item) { return item.id == id; });
    return found == app.hubAll.end() ? nullptr : &*found;
}

void HubPage::showState() {
    const bool busy = working || app.hubBusy;
    const HubItem* const chosen = chosenItem();
    refresh->setEnabled(!busy);
    shareMine->setEnabled(!busy);
    download->setEnabled(!busy && chosen != nullptr);
    takeBack->setEnabled(!busy && chosen != nullptr);
    progress->setVisible(busy);
    QStringList words{qTF("%d / %d 条", model->rowCount(), app.hubAll.size())};
    if (!app.hubStatus.isEmpty()) words << app.hubStatus;
    if (chosen != nullptr && !app.config->hubDeleteKey(chosen->id).empty())
        words << qT("(这条是你传的)");
    status->setText(words.join("  "));
}

void HubPage::setWorking(bool now, const char* statusKey) {
    working = now;
    app.setHubStatus(statusKey == nullptr ? QString() : qT(statusKey));
}

// ---- download and import

void HubPage::fetch() {
    const HubItem* const item = chosenItem();
    if (item == nullptr) return app.alert(qT("先在列表里选一条。"));
    setWorking(true, "正在下载…");
    app.inBackground(
        this,
        [item = *item, service = app.service, config = app.config, hub = app.surroundings.hub] {
            return fetchShare(item, *service, *config, hub);
        },
        [this, title = item->title](const Outcome<HubFetched>& outcome) {
            setWorking(false);
            fetched(title, outcome);
        });
}

void HubPage::fetched(const std::string& title, const Outcome<HubFetched>& outcome) {
    if (!outcome.ok()) return app.alert(qT("下载失败:") + toQt(outcome.error));
    const HubFetched& got = *outcome.value;
    if (!got.downloadError.empty()) return app.alert(qT("下载失败:") + toQt(got.downloadError));
    if (!got.importError.empty()) return app.alert(qT("这个包导不进来:") + toQt(got.importError));
    app.refreshAll();
    app.alert(qTF("「%@」已导入。", title) + "\n" + toQt(got.summary));
}

// ---- unshare

void HubPage::unshare() {
    const HubItem* const item = chosenItem();
    if (item == nullptr) return app.alert(qT("先在列表里选中要撤下的那一条。"));
    const std::string key = app.config->hubDeleteKey(item->id);
    if (key.empty())
        return app.alert(qT("这一条不是在这台机器上传的,撤不了。") + "\n" +
                         qT("只有上传时那台机器存着删除凭据。"));
    app.confirm(qTF("把「%@」从云分享里撤下来?", item->title),
                [page = QPointer<HubPage>(this), id = item->id, key] {
                    if (page) page->takeDown(id, key);
                });
}

void HubPage::takeDown(const std::string& id, const std::string& deleteKey) {
    setWorking(true);
    app.inBackground(
        this,
        [id, deleteKey, config = app.config, hub = app.surroundings.hub] {
            std::optional<std::string> failure = hubDelete(deleteKey, hub);
            if (!failure) {
                config->removeHubShare(id);
                config->save();
            }
            return failure.value_or(std::string());
        },
        [this](const Outcome<std::string>& outcome) {
            setWorking(false);
            const std::string& why = outcome.ok() ? *outcome.value : outcome.error;
            if (!why.empty()) return app.alert(qT("撤下失败:") + toQt(why));
            app.hubRefresh();
        });
}

// ---- share

void HubPage::share() {
    const QPointer<HubPage> page(this);
    (new ShareSheet(
         app, app.hubKind,
         [page](const std::optional<ShareChoice>& choice) {
             if (page && choice) page->send(*choice);
         },
         this))
        ->open();
}

void HubPage::send(const ShareChoice& choice) {
    app.config->hubUserId = choice.userId;
    setWorking(true, "正在上传…");
    app.inBackground(
        this,
        [choice, service = app.service, config = app.config, hub = app.surroundings.hub] {
            config->save();
            return sendShare(choice, *service, *config, hub);
        },
        [this](const Outcome<HubSent>& outcome) {
            setWorking(false);
            sent(outcome);
        });
}

void HubPage::sent(const Outcome<HubSent>& outcome) {
    if (!outcome.ok()) return app.alert(qT("上传失败:") + toQt(outcome.error));
    if (!outcome.value->packingError.empty())
        return app.alert(qT("打包失败:") + toQt(outcome.value->packingError));
    const HubUploadResult& upload = outcome.value->upload;
    if (upload.duplicate && upload.dupMine)
        return app.alert(qTF("这份内容你已经分享过了:「%@」", upload.dupTitle) + "\n" +
                         qT("不用再传一次 —— 云上那份就是它。"));
    if (upload.duplicate)
        return app.alert(
            qTF("这份内容已经有人分享了:「%@」(@%@)", upload.dupTitle, upload.dupUser) + "\n" +
            qT("内容一模一样,就不重复占地方了。"));
    if (!upload.ok) return app.alert(qT("上传失败:") + toQt(upload.error));
    app.alert(qTF("分享成功。分享 ID:%@", upload.id) + "\n" +
              qT("别人现在就能在云分享页看到它了。"));
    app.hubRefresh();
}

}  // namespace

Page* makeHubPage(AppState& app) {
    return new HubPage(app);
}

}  // namespace zepho
