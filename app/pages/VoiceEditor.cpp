#include "app/pages/VoiceEditor.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

#include "app/QtText.h"
#include "app/widgets/SpeechPickers.h"

namespace zepho {
namespace {

constexpr int rowSpacing = 8;

}  // namespace

VoiceEditor::VoiceEditor(AppState& state, QWidget* parent)
    : Page(state, parent),
      display(new QLineEdit(this)),
      language(new LanguagePicker(this)),
      gender(new GenderPicker(this)),
      style(new QLineEdit(this)),
      note(new QLineEdit(this)),
      save(new QPushButton(this)) {
    display->setObjectName("display");
    language->setObjectName("language");
    gender->setObjectName("gender");
    style->setObjectName("style");
    note->setObjectName("note");
    texts([this] {
        language->setTexts();
        gender->setTexts();
    });
    hint(style, "例如 professional broadcast tone");
    say(save, "保存修改");
    auto* form = new QFormLayout;
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    form->setVerticalSpacing(rowSpacing);
    addRow(form, "名称", display, display);
    addRow(form, "语言", language, language);
    addRow(form, "性别", gender, gender);
    addRow(form, "风格标签", style, style);
    auto* lastLine = new QWidget(this);
    auto* beside = new QHBoxLayout(lastLine);
    beside->setContentsMargins(0, 0, 0, 0);
    beside->addWidget(note, 1);
    beside->addWidget(save);
    addRow(form, "备注", lastLine, note);

    auto* right = new QVBoxLayout;
    right->setSpacing(rowSpacing);
    addTitle(right, "参考音频");
    auto* scroll = new QScrollArea(this);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    // As high as the form beside it.
    scroll->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Ignored);
    clips = new QWidget(this);
    clipColumn = new QVBoxLayout(clips);
    clipColumn->setContentsMargins(0, 0, 6, 0);
    scroll->setWidget(clips);
    right->addWidget(scroll, 1);

    auto* halves = new QHBoxLayout(this);
    halves->setContentsMargins(0, 0, 0, 0);
    halves->setSpacing(28);
    halves->addLayout(form, 1);
    halves->addLayout(right, 1);

    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);

    connect(save, &QPushButton::clicked, this, [this] { onSave(); });
    for (QLineEdit* field : {display, style, note})
        connect(field, &QLineEdit::returnPressed, this, [this] {
            if (!busy) onSave();
        });
}

void VoiceEditor::addRow(QFormLayout* form, std::string_view key, QWidget* line, QWidget* field) {
    auto* label = new QLabel(this);
    say(label, key);
    label->setBuddy(field);
    form->addRow(label, line);
}

void VoiceEditor::load(const VoiceInfo& voice) {
    display->setText(toQt(voice.display));
    language->setCode(voice.language);
    gender->setGender(voice.gender);
    style->setText(toQt(voice.style));
    note->setText(toQt(voice.note));
    showClips(voice);
}

void VoiceEditor::showClips(const VoiceInfo& voice) {
    while (QLayoutItem* const item = clipColumn->takeAt(0)) {
        // A click on one of its buttons may still be under way.
        if (item->widget() != nullptr) item->widget()->deleteLater();
        delete item;
    }
    for (std::size_t i = 0; i < voice.clips.size(); ++i) {
        const VoiceClip& clip = voice.clips[i];
        auto* row = new QFrame(clips);
        row->setObjectName("card");
        auto* text = new QLabel(toQt(clip.text), row);
        text->setTextFormat(Qt::PlainText);
        text->setWordWrap(true);
        text->setTextInteractionFlags(Qt::TextSelectableByMouse);
        auto* length = new QLabel(row);
        length->setForegroundRole(QPalette::PlaceholderText);
        if (clip.durationMs > 0)
            length->setText(qTF("%.1f 秒", static_cast<double>(clip.durationMs) / 1000));
        auto* remove = new QPushButton(qT("删除"), row);
        remove->setObjectName("deleteClip");
        remove->setAccessibleName(qT("删除") + " " + text->text());
        remove->setEnabled(!busy);
        connect(remove, &QPushButton::clicked, this,
                [this, index = static_cast<int>(i)] { onDeleteClip(index); });
        auto* line = new QHBoxLayout(row);
        line->setContentsMargins(10, 6, 6, 6);
        line->addWidget(text, 1);
        line->addWidget(length);
        line->addWidget(remove, 0, Qt::AlignTop);
        clipColumn->addWidget(row);
    }
    clipColumn->addStretch();
}

VoiceEdits VoiceEditor::edits() const {
    return {fromQt(display->text()), language->code(), gender->gender(), fromQt(style->text()),
            fromQt(note->text())};
}

void VoiceEditor::setBusy(bool now) {
    busy = now;
    save->setEnabled(!busy);
    for (QPushButton* button : clips->findChildren<QPushButton*>()) button->setEnabled(!busy);
}

}  // namespace zepho
