// The voices page: the table of all voices, cloning from audio files, and the editor of one voice.
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <map>
#include <utility>

#include "app/FileDialogs.h"
#include "app/Page.h"
#include "app/QtText.h"
#include "app/pages/ClipAudio.h"
#include "app/pages/ClipTextSheet.h"
#include "app/pages/Pages.h"
#include "app/pages/VoiceEditor.h"
#include "app/widgets/FileDrop.h"
#include "app/widgets/RecordModel.h"
#include "app/widgets/RecordTable.h"
#include "core/base/Text.h"

namespace zepho {
namespace {

constexpr auto pageHint =
    "参考音频 WAV / MP3 / Ogg 都行,官方建议每段 5~30 秒,每段都要填它的原话。\r\n可以一次选多个文件 —— "
    "引擎只收一条,服务端会自动拼成一条再送过去。";

class VoicesPage : public Page {
public:
    explicit VoicesPage(AppState& state);
    bool escape() override;

private:
    using VoiceColumn = Column<VoiceInfo>;
    static std::vector<VoiceColumn> columnsOfTable();

    void addButtons(QVBoxLayout* to);
    // The selected voice, if it still exists.
    [[nodiscard]] const VoiceInfo* current() const { return model->find(table->selectedId()); }
    void showVoices();
    void selectionChanged();
    void setBusy(bool now, const QString& sentence = {});
    void enableButtons();

    void chooseClips(const ClipTextKind& kind);
    void askForTexts(const ClipTextKind& kind, const QStringList& files);
    void applyClips(const ClipTextRequest& request, const std::vector<std::string>& texts);
    void clipsApplied(const ClipTextRequest& request, const Outcome<VoiceInfo>& outcome);
    void deleteVoice();
    void saveEdits();
    void previewVoice();
    void deleteClip(int index);
    void removeClip(const std::string& voiceId, int index, const std::string& text);

    RecordModel<VoiceInfo>* const model;
    RecordTable* const table;
    VoiceEditor* const editor;
    QLabel* const status;
    QPushButton* clone = nullptr;
    std::vector<QPushButton*> forOneVoice;  // disabled with no selection
    std::string loadedId;                   // whose fields are in the editor
    QPointer<ClipTextSheet> clipSheet;
    // Transcripts of files that could not be taken, by path, for the next time they are chosen.
    std::map<QString, std::string> typedBefore;
    bool busy = false;
};

VoicesPage::VoicesPage(AppState& state)
    : Page(state),
      model(new RecordModel<VoiceInfo>(
          columnsOfTable(), [](const VoiceInfo& voice) { return voice.id; }, this)),
      table(new RecordTable(model, RecordTable::Selects::one, 0, this)),
      editor(new VoiceEditor(state, this)),
      status(new QLabel(this)) {
    QVBoxLayout* const all = column();
    addHint(all, pageHint);
    addHint(all, "音频文件拖到表格上也行:拖到一行上就加给那个音色,拖到空白处就克隆新的。");
    table->setObjectName("voices");
    table->setMinimumHeight(table->fontMetrics().height() * 6);
    table->setColumnWidth(1, table->fontMetrics().averageCharWidth() * 14);
    name(table, "音色");
    all->addWidget(table, 1);
    addButtons(all);
    status->setObjectName("status");
    status->setTextFormat(Qt::PlainText);
    status->setWordWrap(true);
    all->addWidget(status);
    editor->setObjectName("editor");
    editor->onSave = [this] { saveEdits(); };
    editor->onDeleteClip = [this](int index) { deleteClip(index); };
    all->addWidget(editor);

    new FileDrop(table->viewport(), [this](const QStringList& files, QPoint at) {
        const QModelIndex row = table->indexAt(at);
        if (row.isValid()) table->select(model->idAt(row.row()));
        askForTexts(row.isValid()
                        ? ClipTextKind{ClipTextKind::Sort::addToVoice, model->idAt(row.row())}
                        : ClipTextKind{},
                    files);
    });
    connect(table, &RecordTable::choiceChanged, this, &VoicesPage::selectionChanged);
    connect(&app, &AppState::voicesChanged, this, &VoicesPage::showVoices);
    texts([this] { model->refreshTexts(); });
    showVoices();
    selectionChanged();
}

std::vector<VoicesPage::VoiceColumn> VoicesPage::columnsOfTable() {
    return {
        VoiceColumn("名称", [](const VoiceInfo& voice) { return toQt(voice.display); })
            .tip([](const VoiceInfo& voice) { return toQt(voice.id); }),
        VoiceColumn("语言",
                    [](const VoiceInfo& voice) { return toQt(langDisplay(voice.language)); }),
        VoiceColumn("性别",
                    [](const VoiceInfo& voice) { return toQt(ttsGenderDisplay(voice.gender)); }),
        VoiceColumn("来源",
                    [](const VoiceInfo& voice) {
                        return voice.kind == VoiceKind::cloned ? qT("克隆") : qT("音色档");
                    }),
        VoiceColumn("参考音频", [](const VoiceInfo& voice) {
            return qTF("%d 段", voice.clips.size());
        }).by([](const VoiceInfo& voice) { return static_cast<double>(voice.clips.size()); })};
}

void VoicesPage::addButtons(QVBoxLayout* to) {
    auto* line = new QHBoxLayout;
    const auto add = [&](std::string_view key, auto action) {
        auto* button = new QPushButton(this);
        say(button, key);
        connect(button, &QPushButton::clicked, this, action);
        line->addWidget(button);
        return button;
    };
    clone = add("选音频克隆…", [this] { chooseClips({}); });
    clone->setProperty("primary", true);
    forOneVoice = {add("给选中的加一段",
                       [this] {
                           chooseClips({ClipTextKind::Sort::addToVoice, table->selectedId()});
                       }),
                   add("删除选中", [this] { deleteVoice(); }),
                   add("保存修改", [this] { saveEdits(); }),
                   add("试听选中", [this] { previewVoice(); })};
    line->addStretch();
    to->addLayout(line);
}

bool VoicesPage::escape() {
    if (app.playing || table->selectedIds().empty()) return false;
    table->clearChoice();
    return true;
}

// ---- what is shown

void VoicesPage::showVoices() {
    model->setRecords(app.voices);
    std::set<std::string> known;
    for (const VoiceInfo& voice : app.voices) known.insert(voice.id);
    table->keepOnly(known);
    // What is being typed stays; clips may have come or gone.
    if (const VoiceInfo* const voice = current()) editor->showClips(*voice);
}

void VoicesPage::selectionChanged() {
    const VoiceInfo* const voice = current();
    editor->setVisible(voice != nullptr);
    const std::string id = voice != nullptr ? voice->id : std::string();
    if (voice != nullptr && id != loadedId) editor->load(*voice);
    loadedId = id;
    enableButtons();
}

void VoicesPage::setBusy(bool now, const QString& sentence) {
    busy = now;
    status->setText(sentence);
    editor->setBusy(busy);
    enableButtons();
}

void VoicesPage::enableButtons() {
    clone->setEnabled(!busy);
    for (QPushButton* button : forOneVoice) button->setEnabled(!busy && current() != nullptr);
}

// ---- cloning

void VoicesPage::chooseClips(const ClipTextKind& kind) {
    const QString kinds = fileKinds(qT("音频文件 (*.wav;*.mp3;*.ogg)|*.wav;*.mp3;*.ogg|")) + ";;" +
                          fileKinds(qT("所有音频|*.wav;*.wave;*.mp3;*.mp2;*.mpga;*.ogg;*.oga;"
                                       "*.opus;*.flac;*.m4a;*.aac;*.aif;*.aiff;*.wma"));
    chooseFiles(app.dialogParent(), kinds,
                [this, page = QPointer(this), kind](const QStringList& files) {
                    if (page) askForTexts(kind, files);
                });
}

void VoicesPage::askForTexts(const ClipTextKind& kind, const QStringList& files) {
    if (files.isEmpty() || busy || clipSheet) return;
    ClipTextRequest request;
    request.kind = kind;
    request.files = files;
    request.defaultName = QFileInfo(files.first()).completeBaseName();
    request.chosenName = request.defaultName;
    for (const QString& file : files) {
        const auto typed = typedBefore.find(file);
        request.texts.push_back(typed == typedBefore.end() ? std::string() : typed->second);
    }
    clipSheet = new ClipTextSheet(
        app, std::move(request),
        [this](const ClipTextRequest& edited, const std::optional<std::vector<std::string>>& said) {
            clipSheet.clear();
            if (said) applyClips(edited, *said);
        },
        this);
    clipSheet->open();
}

void VoicesPage::applyClips(const ClipTextRequest& request, const std::vector<std::string>& texts) {
    setBusy(true, qT("正在处理参考音频…"));
    for (std::size_t i = 0; i < texts.size(); ++i)
        typedBefore[request.files[static_cast<qsizetype>(i)]] = texts[i];
    const auto work = [service = app.service, request, texts] {
        VoiceInfo voice;
        VoiceCloneSpec spec;
        for (std::size_t i = 0; i < texts.size(); ++i) {
            VoiceClipInput clip{loadClipBytes(fromQt(request.files[static_cast<qsizetype>(i)])),
                                texts[i]};
            if (request.kind.sort == ClipTextKind::Sort::addToVoice)
                voice = service->voices.addClip(request.kind.voiceId, clip);
            else
                spec.clips.push_back(std::move(clip));
        }
        if (request.kind.sort == ClipTextKind::Sort::addToVoice) return voice;
        const bool unnamed = request.chosenName.trimmed().isEmpty();
        spec.display = fromQt(unnamed ? request.defaultName : request.chosenName);
        spec.language = normLang(request.language);
        spec.gender = request.gender;
        return service->cloneVoice(spec);
    };
    app.inBackground(this, work, [this, request](const Outcome<VoiceInfo>& outcome) {
        clipsApplied(request, outcome);
    });
}

void VoicesPage::clipsApplied(const ClipTextRequest& request, const Outcome<VoiceInfo>& outcome) {
    setBusy(false);
    app.reloadVoices();
    if (!outcome.ok()) return app.alert(toQt(outcome.error));
    for (const QString& file : request.files) typedBefore.erase(file);
    if (request.kind.sort == ClipTextKind::Sort::newVoice) table->select(outcome.value->id);
    status->setText(
        qTF("「%@」现在有 %d 段参考音频。", outcome.value->display, outcome.value->clips.size()));
}

// ---- one voice

void VoicesPage::deleteVoice() {
    const VoiceInfo* const voice = current();
    if (voice == nullptr) return;
    const auto remove = [this, id = voice->id] {
        setBusy(true);
        app.inBackground(
            this, [service = app.service, id] { return service->voices.remove(id); },
            [this](const Outcome<bool>& removed) {
                setBusy(false);
                // A binding may now point at nothing.
                app.reloadVoices();
                app.reloadBindings();
                if (!removed.ok()) app.alert(toQt(removed.error));
            });
    };
    app.confirm(qTF("删掉音色「%@」?参考音频也会一起删。", voice->display),
                [page = QPointer(this), remove] {
                    if (page) remove();
                });
}

void VoicesPage::saveEdits() {
    const VoiceInfo* const voice = current();
    if (voice == nullptr || busy) return;
    VoiceEdits edits = editor->edits();
    edits.display = trimmed(edits.display);
    if (edits.display.empty()) return app.alert(qT("名字不能是空的。"));
    setBusy(true);
    // Starts from the voice as it is by then, so that a clip added meanwhile is not lost.
    const auto work = [service = app.service, id = voice->id, edits] {
        std::optional<VoiceInfo> changed = service->voices.find(id);
        if (!changed) return false;
        changed->display = edits.display;
        changed->language = normLang(edits.language);
        changed->gender = edits.gender;
        changed->style = edits.style;
        changed->note = edits.note;
        service->voices.update(*changed);
        return true;
    };
    app.inBackground(this, work, [this, display = edits.display](const Outcome<bool>& saved) {
        setBusy(false);
        loadedId.clear();  // the fields come anew, as they were stored
        app.reloadVoices();
        selectionChanged();
        if (!saved.ok()) return app.alert(toQt(saved.error));
        if (*saved.value) status->setText(qTF("「%@」已更新", display));
    });
}

void VoicesPage::previewVoice() {
    const VoiceInfo* const voice = current();
    if (voice == nullptr) return;
    if (voice->clips.empty()) return app.alert(qT("这个音色没有参考音频可以听。"));
    const std::string path = app.service->voices.clipPath(voice->clips.front());
    app.inBackground(
        this, [path] { return loadPlayableClip(path); },
        [this, path](const Outcome<std::optional<PlayableClip>>& clip) {
            if (!clip.ok() || !*clip.value) return app.alert(qTF("打不开:%@", path));
            app.play((*clip.value)->wav, (*clip.value)->durationMs,
                     [page = QPointer(this)](bool began) {
                         if (page && !began) page->app.alert(qT("播不出来,原因在日志里。"));
                     });
        });
}

void VoicesPage::deleteClip(int index) {
    const VoiceInfo* const voice = current();
    if (voice == nullptr || busy || index >= static_cast<int>(voice->clips.size())) return;
    const VoiceClip& clip = voice->clips[static_cast<std::size_t>(index)];
    const auto remove = [this, id = voice->id, index, text = clip.text] {
        removeClip(id, index, text);
    };
    // The library refuses to take the last one, with a reason: no need to ask first.
    if (voice->clips.size() == 1) return remove();
    app.confirm(qTF("删掉这一段参考音频?\n%@", clip.text), [page = QPointer(this), remove] {
        if (page) remove();
    });
}

void VoicesPage::removeClip(const std::string& voiceId, int index, const std::string& text) {
    setBusy(true);
    // Another client may have changed the list since the question: then it was about another clip.
    const auto work = [service = app.service, voiceId, index, text] {
        const std::optional<VoiceInfo> voice = service->voices.find(voiceId);
        const auto place = static_cast<std::size_t>(index);
        if (!voice || place >= voice->clips.size() || voice->clips[place].text != text)
            return false;
        return service->voices.removeClip(voiceId, index);
    };
    app.inBackground(this, work, [this](const Outcome<bool>& removed) {
        setBusy(false);
        app.reloadVoices();
        if (!removed.ok()) app.alert(toQt(removed.error));
    });
}

}  // namespace

Page* makeVoicesPage(AppState& app) {
    return new VoicesPage(app);
}

}  // namespace zepho
