// What the cache holds: search, play, delete, and the limit of its size.
#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>
#include <set>

#include "app/Page.h"
#include "app/QtText.h"
#include "app/TabOrder.h"
#include "app/pages/CacheRows.h"
#include "app/pages/Pages.h"
#include "app/widgets/NumberField.h"
#include "app/widgets/RecordModel.h"
#include "app/widgets/RecordTable.h"
#include "core/base/Text.h"

namespace zepho {
namespace {

constexpr int textColumn = 5;
constexpr int largestCapMB = 8192;  // as in the configuration
constexpr double mebibyte = 1048576;

class CachePage : public Page {
public:
    explicit CachePage(AppState& state);
    void appear() override {
        filter->setFocus();
        showSummary();
    }

private:
    using Row = CacheRows::Row;
    using RowColumn = Column<Row>;

    std::vector<RowColumn> columns();
    void addFilterLine(QVBoxLayout* to);
    void addButtonLine(QVBoxLayout* to);

    void prepareRows();
    void showVoices();
    void showRows();
    void showSummary();
    void showState();

    void playChosen();
    void deleteChosen();
    void clearAll();
    void storeCap();
    // Runs `work` while the buttons rest, and then takes a new snapshot.
    template <class Work, class Done>
    void change(Work work, Done done);
    void beginChange();
    void endChange(const QString& told);

    [[nodiscard]] const CacheEntry& entry(Row row) const { return rows->entry(row); }

    std::shared_ptr<const CacheRows> rows;
    std::string voiceFilter;
    bool working = false;

    RecordModel<Row>* const model;
    RecordTable* table = nullptr;
    QLineEdit* const filter;
    QComboBox* const voicePicker;
    QPushButton* const play;
    QPushButton* const stop;
    QPushButton* const remove;
    QPushButton* const clear;
    NumberField* const cap;
    QLabel* const summary;
    QLabel* const status;
};

CachePage::CachePage(AppState& state)
    : Page(state),
      rows(std::make_shared<CacheRows>(std::make_shared<CacheSnapshot>(), app.voices)),
      model(new RecordModel<Row>(
          columns(), [this](Row row) { return rows->key(row); }, this)),
      filter(new QLineEdit(this)),
      voicePicker(new QComboBox(this)),
      play(new QPushButton(this)),
      stop(new QPushButton(this)),
      remove(new QPushButton(this)),
      clear(new QPushButton(this)),
      cap(new NumberField(this)),
      summary(new QLabel(this)),
      status(new QLabel(this)) {
    QVBoxLayout* const all = column();
    addHint(all, "缓存里存着已经念过的句子。同一句话下次直接取,不用再算一遍。");
    table = new RecordTable(model, RecordTable::Selects::many, textColumn, this);
    addFilterLine(all);
    table->setObjectName("cacheTable");
    name(table, "缓存");
    const int letter = table->fontMetrics().horizontalAdvance('0');
    const int widths[] = {20, 12, 8, 10, 11};
    for (int i = 0; i < textColumn; ++i) table->setColumnWidth(i, widths[i] * letter);
    all->addWidget(table, 1);
    addButtonLine(all);
    summary->setObjectName("cacheSummary");
    status->setObjectName("cacheStatus");
    for (QLabel* const label : {summary, status}) {
        label->setTextFormat(Qt::PlainText);
        label->setWordWrap(true);
    }
    all->addWidget(summary);
    all->addWidget(status);
    status->hide();

    connect(&app, &AppState::cacheChanged, this, &CachePage::prepareRows);
    connect(&app, &AppState::voicesChanged, this, &CachePage::prepareRows);
    connect(&app, &AppState::ticked, this, [this] {
        if (isVisible()) showSummary();
    });
    connect(&app, &AppState::playingChanged, this, &CachePage::showState);
    connect(table, &RecordTable::choiceChanged, this, &CachePage::showState);
    connect(table, &QTableView::activated, this, &CachePage::playChosen);
    texts([this] {
        model->refreshTexts();
        showVoices();
        showSummary();
    });
    showState();
    prepareRows();
}

std::vector<CachePage::RowColumn> CachePage::columns() {
    return {
        RowColumn("音色", [this](Row row) { return toQt(rows->voiceName(row)); })
            .by([this](Row row) { return rows->voiceRank(row); })
            .tip([this](Row row) { return toQt(entry(row).voiceId); }),
        RowColumn("语言", [this](Row row) { return toQt(langDisplay(entry(row).language)); })
            .by([this](Row row) { return rows->languageRank(row); }),
        RowColumn("语速", [this](Row row) { return qTF("%.2f", double(entry(row).speed)); })
            .by([this](Row row) { return double(entry(row).speed); })
            .right(),
        RowColumn("时长", [this](Row row) { return qTF("%.2f s", entry(row).durationMs / 1000.0); })
            .by([this](Row row) { return double(entry(row).durationMs); })
            .right(),
        RowColumn("大小", [this](Row row) { return qTF("%.1f KB", entry(row).bytes / 1024.0); })
            .by([this](Row row) { return double(entry(row).bytes); })
            .right(),
        RowColumn("文本",
                  [this](Row row) { return toQt(entry(row).text).replace(QChar('\n'), ' '); })
            .by([this](Row row) { return rows->textRank(row); })
            .tip([this](Row row) { return toQt(entry(row).text); }),
    };
}

void CachePage::addFilterLine(QVBoxLayout* to) {
    auto* const line = new QHBoxLayout;
    auto* const label = new QLabel(this);
    say(label, "筛选");
    label->setBuddy(filter);
    filter->setObjectName("cacheFilter");
    filter->setClearButtonEnabled(true);
    hint(filter, "按音色、文字随便打几个字就行");
    name(filter, "筛选");
    voicePicker->setObjectName("cacheVoice");
    voicePicker->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    voicePicker->setMaximumWidth(fontMetrics().horizontalAdvance('0') * 40);
    name(voicePicker, "音色");
    auto* const refresh = new QPushButton(this);
    say(refresh, "刷新");
    line->addWidget(label);
    line->addWidget(filter, 1);
    line->addWidget(voicePicker);
    line->addWidget(refresh);
    to->addLayout(line);
    tabThrough({filter, voicePicker, refresh, table});
    connect(filter, &QLineEdit::textChanged, this, &CachePage::showRows);
    connect(voicePicker, &QComboBox::activated, this, [this](int at) {
        voiceFilter = fromQt(voicePicker->itemData(at).toString());
        showRows();
    });
    connect(refresh, &QPushButton::clicked, this, [this] {
        status->hide();
        app.reloadCache();
    });
}

void CachePage::addButtonLine(QVBoxLayout* to) {
    auto* const line = new QHBoxLayout;
    play->setProperty("primary", true);
    say(play, "播放选中");
    say(stop, "停止播放");
    say(remove, "删除选中");
    auto* const folder = new QPushButton(this);
    say(folder, "打开缓存目录");
    auto* const capLabel = new QLabel(this);
    say(capLabel, "上限(MB,0=不限)");
    capLabel->setBuddy(cap);
    cap->setObjectName("cacheCap");
    // Below 0 stands for 0, as in the configuration file.
    cap->setRange(-largestCapMB, largestCapMB);
    cap->setValue(static_cast<int>(app.config->cacheBudgetMB.get()));
    name(cap, "上限(MB,0=不限)");
    say(clear, "清空全部");
    for (QWidget* const control : {static_cast<QWidget*>(play), static_cast<QWidget*>(stop),
                                   static_cast<QWidget*>(remove), static_cast<QWidget*>(folder)})
        line->addWidget(control);
    line->addStretch(1);
    to->addLayout(line);
    // A line of its own: with the longest words one would not fit the smallest window.
    auto* const limits = new QHBoxLayout;
    limits->addWidget(capLabel);
    limits->addWidget(cap);
    limits->addWidget(clear);
    limits->addStretch(1);
    to->addLayout(limits);
    tabThrough({table, play, stop, remove, folder, cap, clear});
    connect(play, &QPushButton::clicked, this, &CachePage::playChosen);
    connect(stop, &QPushButton::clicked, &app, &AppState::stopPlaying);
    connect(remove, &QPushButton::clicked, this, &CachePage::deleteChosen);
    connect(folder, &QPushButton::clicked, this,
            [this] { app.openPath(app.service->cache.directory()); });
    connect(cap, &NumberField::editingFinished, this, &CachePage::storeCap);
    connect(clear, &QPushButton::clicked, this, &CachePage::clearAll);
}

// ---- what is shown

void CachePage::prepareRows() {
    app.inBackground(
        this,
        [snapshot = app.cacheEntries, voices = app.voices] {
            return std::shared_ptr<const CacheRows>(std::make_shared<CacheRows>(snapshot, voices));
        },
        [this](Outcome<std::shared_ptr<const CacheRows>> made) {
            // One of an older snapshot may come late.
            if (!made.ok() || (*made.value)->snapshot() != app.cacheEntries) return;
            rows = std::move(*made.value);
            std::set<std::string> known;
            for (const std::string& key : table->selectedIds())
                if (rows->contains(key)) known.insert(key);
            table->keepOnly(known);
            showVoices();
            showRows();
        });
}

void CachePage::showVoices() {
    voicePicker->clear();
    voicePicker->addItem(qT("(全部音色)"), QString());
    bool stillThere = voiceFilter.empty();
    const std::vector<CacheRows::Voice>& voices = rows->voices();
    for (std::size_t i = 0; i < voices.size(); ++i) {
        const auto& [id, shown] = voices[i];
        if (id.empty()) continue;
        const bool ambiguous = (i > 0 && voices[i - 1].name == shown) ||
                               (i + 1 < voices.size() && voices[i + 1].name == shown);
        QString label = toQt(shown);
        if (ambiguous) label += " · " + toQt(id);
        voicePicker->addItem(label, toQt(id));
        if (id != voiceFilter) continue;
        stillThere = true;
        voicePicker->setCurrentIndex(voicePicker->count() - 1);
    }
    if (!stillThere) voiceFilter.clear();
}

void CachePage::showRows() {
    model->setRecords(rows->matching(fromQt(filter->text()), voiceFilter));
    showSummary();
    showState();
}

void CachePage::showSummary() {
    const CacheStats stats = app.service->cache.stats();
    const std::int64_t capMB = app.config->cacheBudgetMB;
    const std::string limit = capMB == 0 ? T("不限上限") : TF("上限 %d MB", capMB);
    summary->setText(qTF("%d 条(显示 %d) · %.1f MB / %@ · 命中 %d / 未命中 %d(%.0f%%)", stats.count,
                         model->rowCount(), double(stats.bytes) / mebibyte, limit, stats.hits,
                         stats.misses, stats.hitRate() * 100));
    // Another page may have changed it.
    if (!cap->hasFocus() && cap->value() != capMB) cap->setValue(static_cast<int>(capMB));
}

void CachePage::showState() {
    const bool chosen = !table->selectedIds().empty();
    play->setEnabled(chosen && !working);
    remove->setEnabled(chosen && !working);
    clear->setEnabled(!working);
    stop->setEnabled(app.playing);
}

// ---- what is done

template <class Work, class Done>
void CachePage::change(Work work, Done done) {
    beginChange();
    app.inBackground(this, std::move(work), [this, done = std::move(done)](auto outcome) {
        endChange(outcome.ok() ? done(*outcome.value) : toQt(outcome.error));
    });
}

void CachePage::beginChange() {
    working = true;
    status->hide();
    showState();
}

void CachePage::endChange(const QString& told) {
    working = false;
    status->setText(told);
    status->setVisible(!told.isEmpty());
    showState();
    app.reloadCache();
    app.tick();
}

void CachePage::playChosen() {
    const std::string key = table->selectedId();
    if (key.empty() || working) return;
    status->hide();
    app.inBackground(
        this,
        [key, service = app.service] {
            std::optional<TtsResult> clip;
            const std::optional<SharedBytes> wav = service->cache.readAudio(key);
            if (wav) {
                clip.emplace();
                clip->wav = *wav;
            } else {
                service->cache.remove(key);
            }
            return clip;
        },
        [this, key](Outcome<std::optional<TtsResult>> read) {
            if (!read.ok() || !*read.value) {
                app.alert(qT("这条缓存的文件读不出来了,已经把它从索引里去掉。"));
                app.reloadCache();
                return;
            }
            app.play((*read.value)->wav, 0, [this, page = QPointer<CachePage>(this)](bool sounds) {
                if (!page || sounds) return;
                status->setText(qT("播不出来:这台机器上没有能用的声音设备。"));
                status->show();
            });
        });
}

void CachePage::deleteChosen() {
    const std::set<std::string>& chosen = table->selectedIds();
    change([keys = std::vector(chosen.begin(), chosen.end()),
            service = app.service] { return service->cache.remove(keys); },
           [](std::size_t count) { return qTF("已删掉 %d 条缓存", count); });
}

void CachePage::clearAll() {
    app.confirm(qT("真要清空全部缓存?下次遇到同样的句子会重新算一遍。"),
                [this, page = QPointer<CachePage>(this)] {
                    if (!page) return;
                    change(
                        [service = app.service] {
                            service->cache.clear();
                            return true;
                        },
                        [](bool) { return qT("缓存已清空"); });
                });
}

void CachePage::storeCap() {
    const int wanted = std::max(0, cap->value());
    cap->setValue(wanted);
    // Leaving the field ends an edit, too.
    if (wanted == app.config->cacheBudgetMB) return;
    app.config->cacheBudgetMB = wanted;
    showSummary();
    app.saveConfig(this, [this] {
        beginChange();
        // It starts the engine where that is not running.
        app.inTurn(
            this, [service = app.service] { service->applyConfig(); },
            [this](const Outcome<Nothing>& applied) {
                endChange(applied.ok() ? QString() : toQt(applied.error));
            });
    });
}

}  // namespace

Page* makeCachePage(AppState& app) {
    return new CachePage(app);
}

}  // namespace zepho
