#include "app/pages/ClipTextSheet.h"

#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "app/QtText.h"
#include "app/Theme.h"
#include "app/pages/ClipTextField.h"
#include "app/widgets/SheetButtons.h"
#include "app/widgets/SpeechPickers.h"

namespace zepho {
namespace {

constexpr int progressMs = 40;

}  // namespace

ClipTextSheet::ClipTextSheet(AppState& state, ClipTextRequest asked, Done onDone, QWidget* parent)
    : QDialog(parent),
      app(state),
      request(std::move(asked)),
      tell(std::move(onDone)),
      summary(new QLabel(this)) {
    setObjectName("clipTextSheet");
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(qT("这一段说的是什么?"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(20, 16, 20, 16);
    column->setSpacing(10);
    auto* title = new QLabel(qT("这一段说的是什么?"), this);
    QFont bold = title->font();
    bold.setWeight(QFont::DemiBold);
    title->setFont(bold);
    column->addWidget(title);
    auto* hint = new QLabel(
        qT("可以写多行。加粗、字号这些只是方便你自己看 —— ") + qT("交给引擎的是纯文字。"), this);
    hint->setWordWrap(true);
    hint->setForegroundRole(QPalette::PlaceholderText);
    column->addWidget(hint);
    if (request.kind.sort == ClipTextKind::Sort::newVoice) addVoiceFields(column);
    addClips(column);

    summary->setObjectName("summary");
    QPalette colours = summary->palette();
    colours.setColor(QPalette::WindowText, Theme::tones().warning);
    summary->setPalette(colours);
    connect(addSheetButtons(this, column, qT("确定"), summary), &QPushButton::clicked, this,
            &QDialog::accept);

    progress.setInterval(progressMs);
    connect(&progress, &QTimer::timeout, this, &ClipTextSheet::showProgress);
    connect(&app, &AppState::playingChanged, this, [this] {
        if (!app.playing) setPlaying(nullptr);
    });
    showSummary();
    const QFontMetrics metrics = fontMetrics();
    const int room = screen()->availableSize().height() * 85 / 100;
    resize(metrics.averageCharWidth() * 62, std::min(room, sizeHint().height()));
}

void ClipTextSheet::addVoiceFields(QVBoxLayout* to) {
    name = new QLineEdit(request.chosenName, this);
    name->setObjectName("name");
    name->setPlaceholderText(request.defaultName);
    language = new LanguagePicker(this);
    language->setObjectName("language");
    language->setTexts();
    language->setCode(request.language);
    gender = new GenderPicker(this);
    gender->setObjectName("gender");
    gender->setTexts();
    gender->setGender(request.gender);
    auto* form = new QFormLayout;
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    form->addRow(qT("名称"), name);
    form->addRow(qT("语言"), language);
    form->addRow(qT("性别"), gender);
    to->addLayout(form);
}

void ClipTextSheet::addClips(QVBoxLayout* to) {
    auto* inside = new QWidget(this);
    auto* list = new QVBoxLayout(inside);
    list->setContentsMargins(0, 0, 0, 0);
    request.texts.resize(static_cast<std::size_t>(request.files.size()));
    for (qsizetype i = 0; i < request.files.size(); ++i) {
        auto* field = new ClipTextField(app, request.files[i],
                                        request.texts[static_cast<std::size_t>(i)], inside);
        field->onChanged = [this] { showSummary(); };
        field->onPlay = [this, field] { playOrStop(field); };
        fields.push_back(field);
        list->addWidget(field);
    }
    list->addStretch();
    auto* scroll = new QScrollArea(this);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setWidget(inside);
    // About two clips in sight; a longer list scrolls.
    scroll->setSizeAdjustPolicy(QAbstractScrollArea::AdjustToContents);
    if (!fields.empty()) scroll->setMinimumHeight(fields.front()->sizeHint().height());
    to->addWidget(scroll, 1);
}

void ClipTextSheet::playOrStop(ClipTextField* field) {
    const bool stops = playing == field;
    setPlaying(nullptr);
    const int turn = ++playTurn;
    if (stops) return app.stopPlaying();
    app.inBackground(
        this, [path = fromQt(field->file())] { return loadPlayableClip(path); },
        [this, field, turn](const Outcome<std::optional<PlayableClip>>& clip) {
            if (turn != playTurn) return;
            if (!clip.ok() || !*clip.value)
                return app.alert(qTF("打不开:%@", fromQt(field->file())));
            app.play((*clip.value)->wav, (*clip.value)->durationMs,
                     [self = QPointer<ClipTextSheet>(this), field, turn](bool began) {
                         if (!self || turn != self->playTurn) return;
                         if (!began) return self->app.alert(qT("播不出来,原因在日志里。"));
                         self->setPlaying(field);
                     });
        });
}

void ClipTextSheet::setPlaying(ClipTextField* field) {
    if (playing != nullptr) playing->setPlaying(false);
    playing = field;
    if (playing != nullptr) playing->setPlaying(true);
    if (playing != nullptr)
        progress.start();
    else
        progress.stop();
}

void ClipTextSheet::showProgress() {
    const std::int64_t length = app.player->durationMs();
    if (playing == nullptr || length <= 0) return;
    playing->setPosition(static_cast<double>(app.player->positionMs()) /
                         static_cast<double>(length));
}

void ClipTextSheet::showSummary() {
    const auto count = std::count_if(fields.begin(), fields.end(), [](const ClipTextField* field) {
        return field->hasWarning();
    });
    summary->setText(count == 0 ? QString() : qTF("⚠ %d 段有问题,见上面的提示", count));
}

void ClipTextSheet::done(int result) {
    // Before the fields are gone, and with nobody left to stop it.
    if (playing != nullptr) app.stopPlaying();
    playing = nullptr;
    if (name != nullptr) {
        request.chosenName = name->text();
        request.language = language->code();
        request.gender = gender->gender();
    }
    for (std::size_t i = 0; i < fields.size(); ++i) request.texts[i] = fields[i]->text();
    QDialog::done(result);
    if (result == QDialog::Accepted)
        tell(request, request.texts);
    else
        tell(request, std::nullopt);
}

}  // namespace zepho
