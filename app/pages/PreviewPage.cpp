// The page to try a line: what to say, who says it, and the clip that came of it.
#include <QComboBox>
#include <QFileInfo>
#include <QFormLayout>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QShortcut>
#include <QSlider>
#include <QVBoxLayout>
#include <array>

#include "app/FileDialogs.h"
#include "app/Page.h"
#include "app/QtText.h"
#include "app/pages/Pages.h"
#include "app/pages/TextFile.h"
#include "app/widgets/LineEditor.h"
#include "app/widgets/WaveformView.h"
#include "core/base/Text.h"
#include "core/platform/Files.h"

namespace zepho {
namespace {

enum class VoicePickMode { byDefault, byAirline, byName };
constexpr std::array pickModeKeys{"默认(语言+性别)", "按航司(广播)", "直接点名音色"};

constexpr int speedSteps = 100;  // of the slider, to 1.0
constexpr int positionTickMs = 40;
constexpr std::size_t outlineColumns = 1200;
// Ids of voices that stand in where none is bound.
constexpr std::string_view fallbackMark = "(auto)";

struct Spoken {
    TtsResult result;
    std::string voice;  // its name
};

class PreviewPage : public Page {
public:
    explicit PreviewPage(AppState& state);
    void appear() override { fillAirlines(); }

protected:
    void showEvent(QShowEvent*) override { followPlaying(); }
    void hideEvent(QHideEvent*) override { followPlaying(); }

private:
    void addForm(QVBoxLayout* to);
    int addRow(std::string_view key, QWidget* control, QLayout* around = nullptr);
    void addLanguage();
    void addSpeed();
    void addButtons(QVBoxLayout* to);
    void addClip(QVBoxLayout* to);

    void fillPickers();
    void fillAirlines();
    void fillVoices();
    void showMode();
    void showWorking();
    void showOutline();
    void followPlaying();

    [[nodiscard]] VoicePickMode pickMode() const {
        return static_cast<VoicePickMode>(mode->currentIndex());
    }
    [[nodiscard]] TtsRequest currentRequest() const;
    void synthesize();
    void take(const Spoken& spoken);
    void saveWav();
    void readTextFile(const QStringList& paths);

    QFormLayout* const form = new QFormLayout;
    QComboBox* const mode = new QComboBox(this);
    QLineEdit* const language = new QLineEdit(this);
    QComboBox* const languages = new QComboBox(this);
    QComboBox* const gender = new QComboBox(this);
    QComboBox* const airline = new QComboBox(this);
    QLabel* const noAirline = new QLabel(this);
    QComboBox* const voice = new QComboBox(this);
    QLineEdit* const style = new QLineEdit(this);
    QSlider* const speed = new QSlider(Qt::Horizontal, this);
    QLabel* const speedShown = new QLabel(this);
    LineEditor* const text = new LineEditor(this);
    QPushButton* const play = new QPushButton(this);
    QLabel* const message = new QLabel(this);
    WaveformView* const outline = new WaveformView(this);
    QTimer moving;
    int languageRow = 0;
    int genderRow = 0;
    int airlineRow = 0;
    int voiceRow = 0;
    bool working = false;  // a synthesis runs
};

PreviewPage::PreviewPage(AppState& state) : Page(state) {
    QVBoxLayout* const all = column();
    addForm(all);
    addButtons(all);
    addClip(all);
    all->addStretch(1);

    connect(mode, &QComboBox::currentIndexChanged, this, &PreviewPage::showMode);
    connect(&app, &AppState::voicesChanged, this, &PreviewPage::fillVoices);
    connect(&app, &AppState::bindingsChanged, this, &PreviewPage::fillAirlines);
    connect(&app, &AppState::messageChanged, this, [this] { message->setText(app.lastMessage); });
    connect(&app, &AppState::resultChanged, this, &PreviewPage::showOutline);
    connect(&app, &AppState::playingChanged, this, &PreviewPage::followPlaying);
    connect(&moving, &QTimer::timeout, this, &PreviewPage::followPlaying);
    for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter}) {
        auto* shortcut = new QShortcut(QKeySequence(Qt::CTRL | key), this);
        shortcut->setContext(Qt::WidgetWithChildrenShortcut);
        connect(shortcut, &QShortcut::activated, this, &PreviewPage::synthesize);
    }
    texts([this] {
        fillPickers();
        fillAirlines();
        fillVoices();
        showWorking();
        message->setText(app.lastMessage);
    });
    showMode();
    showOutline();
}

// ---- what stands on the page

int PreviewPage::addRow(std::string_view key, QWidget* control, QLayout* around) {
    auto* label = new QLabel(this);
    say(label, key);
    label->setBuddy(control);
    name(control, key);
    if (around != nullptr)
        form->addRow(label, around);
    else
        form->addRow(label, control);
    return form->rowCount() - 1;
}

void PreviewPage::addForm(QVBoxLayout* to) {
    form->setLabelAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    form->setHorizontalSpacing(16);
    form->setVerticalSpacing(10);
    mode->setObjectName("mode");
    for (std::size_t i = 0; i < pickModeKeys.size(); ++i) mode->addItem(QString());
    addRow("怎么挑音色", mode);
    addLanguage();
    gender->setObjectName("gender");
    for (const TtsGender each : allTtsGenders) gender->addItem(QString(), static_cast<int>(each));
    genderRow = addRow("性别", gender);
    airline->setObjectName("airline");
    noAirline->setObjectName("noAirline");
    noAirline->setForegroundRole(QPalette::PlaceholderText);
    say(noAirline, "(先去广播页绑定航司)");
    auto* airlines = new QHBoxLayout;
    airlines->addWidget(airline, 1);
    airlines->addWidget(noAirline, 1);
    airlineRow = addRow("航司", airline, airlines);
    voice->setObjectName("voice");
    // A long name of a voice must not widen the window.
    voice->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    voiceRow = addRow("音色", voice);
    style->setObjectName("style");
    hint(style, "例如 professional broadcast tone");
    addRow("风格标签", style);
    addSpeed();
    text->setObjectName("text");
    texts([this] { text->setPlaceholderText(qT("在这里写要念的字。把文本文件拖到这里也行。")); });
    connect(text, &LineEditor::filesGiven, this, &PreviewPage::readTextFile);
    addRow("文本", text);
    to->addLayout(form);
}

void PreviewPage::addLanguage() {
    language->setObjectName("language");
    hint(language, "zh / ja / en …");
    languages->setObjectName("languages");
    name(languages, "常用语言");
    languages->addItem(QString(), QString());
    for (const std::string& code : commonLanguages()) languages->addItem(QString(), toQt(code));
    const auto pickWritten = [this] {
        languages->setCurrentIndex(languages->findData(toQt(normLang(fromQt(language->text())))));
    };
    connect(language, &QLineEdit::textChanged, this, pickWritten);
    connect(languages, &QComboBox::activated, this,
            [this] { language->setText(languages->currentData().toString()); });
    auto* both = new QHBoxLayout;
    both->setSpacing(8);
    both->addWidget(language, 1);
    both->addWidget(languages, 1);
    languageRow = addRow("语言", language, both);
}

void PreviewPage::addSpeed() {
    speed->setObjectName("speed");
    speed->setRange(static_cast<int>(ZEPHO::speedMin * speedSteps),
                    static_cast<int>(ZEPHO::speedMax * speedSteps));
    speed->setSingleStep(speedSteps / 20);
    speed->setPageStep(speedSteps / 4);
    speedShown->setObjectName("speedShown");
    speedShown->setMinimumWidth(speedShown->fontMetrics().horizontalAdvance("0.00x") + 4);
    connect(speed, &QSlider::valueChanged, this, [this](int value) {
        speedShown->setText(toQt(formatText("%.2fx", static_cast<double>(value) / speedSteps)));
    });
    speed->setValue(speedSteps);
    auto* both = new QHBoxLayout;
    both->setSpacing(10);
    both->addWidget(speed, 1);
    both->addWidget(speedShown);
    addRow("语速", speed, both);
}

void PreviewPage::addButtons(QVBoxLayout* to) {
    auto* row = new QHBoxLayout;
    row->setSpacing(8);
    play->setObjectName("synthesize");
    play->setProperty("primary", true);
    play->setToolTip("Ctrl+Return");
    connect(play, &QPushButton::clicked, this, &PreviewPage::synthesize);
    row->addWidget(play);
    const auto add = [&](const char* objectName, std::string_view key, auto act) {
        auto* button = new QPushButton(this);
        button->setObjectName(objectName);
        say(button, key);
        connect(button, &QPushButton::clicked, this, act);
        row->addWidget(button);
        return button;
    };
    add("stop", "停止播放", [this] { app.stopPlaying(); })->setToolTip("Esc");
    add("save", "另存为 WAV", [this] { saveWav(); });
    row->addStretch(1);
    to->addLayout(row);
}

void PreviewPage::addClip(QVBoxLayout* to) {
    auto* card = new QFrame(this);
    card->setObjectName("card");
    auto* inside = new QVBoxLayout(card);
    inside->setContentsMargins(14, 12, 14, 12);
    inside->setSpacing(10);
    outline->setObjectName("outline");
    name(outline, "上一条音频的波形");
    inside->addWidget(outline);
    message->setObjectName("message");
    message->setTextFormat(Qt::PlainText);
    message->setWordWrap(true);
    message->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    message->setFocusPolicy(Qt::TabFocus);
    inside->addWidget(message);
    to->addWidget(card);
}

// ---- following the state

void PreviewPage::fillPickers() {
    for (std::size_t i = 0; i < pickModeKeys.size(); ++i)
        mode->setItemText(static_cast<int>(i), qT(pickModeKeys[i]));
    for (int i = 0; i < gender->count(); ++i)
        gender->setItemText(
            i, toQt(ttsGenderDisplay(static_cast<TtsGender>(gender->itemData(i).toInt()))));
    for (int i = 0; i < languages->count(); ++i)
        languages->setItemText(i, toQt(langWithCode(fromQt(languages->itemData(i).toString()))));
}

void PreviewPage::fillAirlines() {
    const QString chosen = airline->currentText();
    airline->clear();
    for (const std::string& code : app.config->knownAirlines()) airline->addItem(toQt(code));
    airline->setCurrentIndex(std::max(0, airline->findText(chosen)));
    airline->setVisible(airline->count() > 0);
    noAirline->setVisible(airline->count() == 0);
    showMode();
}

void PreviewPage::fillVoices() {
    const QVariant chosen = voice->currentData();
    voice->clear();
    voice->addItem(qT("(按语言性别自动路由)"), QString());
    for (const VoiceInfo& each : app.voices) {
        std::string shown = each.display + " · " + langDisplay(each.language) + " · " +
                            ttsGenderDisplay(each.gender);
        if (each.id.starts_with(fallbackMark)) shown += " " + T("(兜底)");
        voice->addItem(toQt(shown), toQt(each.id));
    }
    voice->setCurrentIndex(std::max(0, voice->findData(chosen)));
}

void PreviewPage::showMode() {
    const bool named = pickMode() == VoicePickMode::byName;
    form->setRowVisible(languageRow, !named);
    form->setRowVisible(genderRow, !named);
    form->setRowVisible(voiceRow, named);
    form->setRowVisible(airlineRow, pickMode() == VoicePickMode::byAirline);
    // Showing a row shows all that is in it.
    if (pickMode() == VoicePickMode::byAirline) {
        airline->setVisible(airline->count() > 0);
        noAirline->setVisible(airline->count() == 0);
    }
}

void PreviewPage::showWorking() {
    play->setText(working ? qT("正在合成…") : qT("合成并播放"));
    play->setEnabled(!working);
}

void PreviewPage::showOutline() {
    if (!app.lastResult) return outline->setPeaks({});
    app.inBackground(
        this,
        [wav = app.lastResult->wav] { return std::pair(wav, waveformPeaks(wav, outlineColumns)); },
        [this](Outcome<std::pair<SharedBytes, std::vector<WaveformPeak>>> drawn) {
            // Another clip has come meanwhile, and draws itself.
            if (!drawn.ok() || drawn.value->first.data() != app.lastResult->wav.data()) return;
            outline->setPeaks(std::move(drawn.value->second));
            followPlaying();
        });
}

void PreviewPage::followPlaying() {
    // Other pages play their clips with the same player.
    const bool ours =
        app.playing && app.lastResult && app.playedClip.data() == app.lastResult->wav.data();
    const std::int64_t length = ours ? app.player->durationMs() : 0;
    outline->setPosition(length > 0 ? static_cast<double>(app.player->positionMs()) /
                                          static_cast<double>(length)
                                    : 0);
    if (!ours || !isVisible())
        moving.stop();
    else if (!moving.isActive())
        moving.start(positionTickMs);
}

// ---- what the person asks for

TtsRequest PreviewPage::currentRequest() const {
    TtsRequest request;
    request.text = trimmed(fromQt(text->toPlainText()));
    request.speed = static_cast<float>(speed->value()) / speedSteps;
    request.style = fromQt(style->text());
    if (pickMode() == VoicePickMode::byName) {
        request.voiceId = fromQt(voice->currentData().toString());
        return request;
    }
    request.language = normLang(fromQt(language->text()));
    request.gender = static_cast<TtsGender>(gender->currentData().toInt());
    if (pickMode() == VoicePickMode::byAirline) request.airline = fromQt(airline->currentText());
    return request;
}

void PreviewPage::synthesize() {
    if (working) return;
    const TtsRequest request = currentRequest();
    if (request.text.empty()) return app.alert(qT("先写点要念的字。"));
    working = true;
    showWorking();
    app.inBackground(
        this,
        [service = app.service, request] {
            Spoken spoken{service->synthesize(request), {}};
            const auto known = service->voices.find(spoken.result.voiceId);
            spoken.voice = known ? known->display : spoken.result.voiceId;
            return spoken;
        },
        [this](const Outcome<Spoken>& outcome) {
            working = false;
            showWorking();
            if (outcome.ok())
                take(*outcome.value);
            else
                app.setMessage(qT("合成失败:") + toQt(outcome.error));
        });
}

void PreviewPage::take(const Spoken& spoken) {
    const TtsResult& result = spoken.result;
    const QString sentence = qTF(
        "引擎 %@ · 音色 %@ · %d Hz · 时长 %.2f 秒 · 引擎耗时 %d 毫秒 · %@ · %d 字节", result.engine,
        spoken.voice, result.sampleRate, static_cast<double>(result.durationMs) / 1000,
        result.synthMs, result.fromCache ? T("命中缓存") : T("现算"), result.wav.size());
    app.setResult(result);
    app.setMessage(sentence);
    app.play(result.wav, result.durationMs, [state = &app, sentence](bool sounds) {
        if (!sounds) state->setMessage(sentence + qT(" —— 但是播不出来"));
    });
    // The line may have made the default voice.
    app.reloadVoices();
}

void PreviewPage::saveWav() {
    if (!app.lastResult) return app.alert(qT("还没有合成过任何音频。"));
    chooseSavePath(this, "zepho.wav", "wav", "WAV (*.wav)",
                   [this, wav = app.lastResult->wav](const QString& path) {
                       app.inBackground(
                           this, [wav, file = fromQt(path)] { saveFileBytes(file, wav); },
                           [this, path](const Outcome<Nothing>& saved) {
                               if (saved.ok())
                                   app.setMessage(qTF("已保存:%@", fromQt(path)));
                               else
                                   app.alert(qT("存不下来:") + toQt(saved.error));
                           });
                   });
}

void PreviewPage::readTextFile(const QStringList& paths) {
    if (paths.size() != 1) return app.alert(qT("一次只能拖一个文本文件。"));
    app.inBackground(
        this, [path = fromQt(paths.first())] { return textOfFile(path); },
        [this](const Outcome<std::string>& read) {
            if (!read.ok()) return app.alert(toQt(read.error));
            text->replaceText(toQt(*read.value));
            text->setFocus();
        });
}

}  // namespace

Page* makePreviewPage(AppState& app) {
    return new PreviewPage(app);
}

}  // namespace zepho
