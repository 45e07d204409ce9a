#include "app/pages/ShareSheet.h"

#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/QtText.h"
#include "app/pages/BindingRows.h"
#include "app/widgets/SheetButtons.h"
#include "core/base/Text.h"

namespace zepho {
namespace {

constexpr auto gap = "   ";
constexpr int longestField = 200;

QString languageAndGender(const std::string& language, TtsGender gender) {
    return toQt(langDisplay(language) + " / " + ttsGenderDisplay(gender));
}

QString suggestionFrom(const std::string& name, const std::string& language, TtsGender gender) {
    return toQt(name + " · " + langDisplay(language) + " · " + ttsGenderDisplay(gender));
}

std::string trimmedText(const QLineEdit* field) {
    return trimmed(fromQt(field->text()));
}

}  // namespace

std::string hubKindLabel(HubKind kind) {
    return kind == HubKind::voices ? T("音色") : T("广播");
}

ShareSheet::ShareSheet(AppState& state, HubKind what,
                       std::function<void(std::optional<ShareChoice>)> onDone, QWidget* parent)
    : QDialog(parent),
      app(state),
      kind(what),
      entries(what == HubKind::voices ? voiceEntries() : bindingEntries()),
      list(new QListWidget(this)),
      userId(new QLineEdit(toQt(app.config->hubUserId.get()), this)),
      title(new QLineEdit(this)),
      note(new QLineEdit(this)) {
    setObjectName("shareSheet");
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(qTF("分享%@到云上", hubKindLabel(kind)));
    auto* const all = new QVBoxLayout(this);
    all->setContentsMargins(20, 16, 20, 16);
    all->setSpacing(12);
    auto* const head = new QLabel(windowTitle(), this);
    QFont bold = head->font();
    bold.setWeight(QFont::DemiBold);
    head->setFont(bold);
    all->addWidget(head);
    addList(all);
    addForm(all);
    connect(addSheetButtons(this, all, qT("上传")), &QPushButton::clicked, this,
            &ShareSheet::check);
    connect(this, &QDialog::finished, this,
            [this, onDone = std::move(onDone)] { onDone(std::move(choice)); });
    resize(620, 520);
}

void ShareSheet::addList(QVBoxLayout* to) {
    auto* const asked =
        new QLabel(kind == HubKind::voices
                       ? qT("选一个要分享的音色(参考音频会一起打包,一次只能分享一个):")
                       : qT("选一条要分享的广播绑定(它用到的音色会一起打包,一次只能分享一条):"),
                   this);
    asked->setWordWrap(true);
    to->addWidget(asked);
    list->setObjectName("shareList");
    list->setAccessibleName(asked->text());
    for (const Entry& entry : entries) list->addItem(entry.shown);
    to->addWidget(list, 1);
    connect(list, &QListWidget::itemSelectionChanged, this, &ShareSheet::rowChosen);
    if (!entries.empty()) return;
    list->hide();
    auto* const none =
        new QLabel(kind == HubKind::voices ? qT("音色库还是空的 —— 先克隆一个再来分享。")
                                           : qT("还没有任何广播绑定 —— 先去「广播」页配一条。"),
                   this);
    none->setObjectName("shareEmpty");
    none->setAlignment(Qt::AlignCenter);
    none->setWordWrap(true);
    to->addWidget(none, 1);
}

void ShareSheet::addForm(QVBoxLayout* to) {
    auto* const form = new QFormLayout;
    form->setLabelAlignment(Qt::AlignLeft);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    userId->setObjectName("shareUser");
    title->setObjectName("shareTitle");
    note->setObjectName("shareNote");
    for (QLineEdit* const field : {userId, title, note}) field->setMaxLength(longestField);
    userId->setPlaceholderText(qT("自己随便起,用来署名"));
    note->setPlaceholderText(qT("一句话就行,可以留空"));
    form->addRow(qT("你的用户 ID"), userId);
    auto* const remark = new QLabel(qT("只是个署名,不是账号 —— 不验证、不注册。"), this);
    remark->setForegroundRole(QPalette::PlaceholderText);
    remark->setWordWrap(true);
    form->addRow(QString(), remark);
    form->addRow(qT("标题"), title);
    form->addRow(qT("说明"), note);
    to->addLayout(form);
}

std::vector<ShareSheet::Entry> ShareSheet::voiceEntries() const {
    std::vector<Entry> made;
    for (const VoiceInfo& voice : app.voices)
        made.push_back({voice.id,
                        toQt(voice.display) + gap +
                            languageAndGender(voice.language, voice.gender) + gap +
                            qTF("%d 段参考音频", voice.clips.size()),
                        suggestionFrom(voice.display, voice.language, voice.gender)});
    return made;
}

std::vector<ShareSheet::Entry> ShareSheet::bindingEntries() const {
    std::vector<Entry> made;
    for (const BindingRow& row : bindingRows(app.bindings, app.voices)) {
        // A key of another shape cannot be packed.
        if (!bindingParts(row.id)) continue;
        made.push_back({row.id,
                        toQt(row.airline) + " [" + languageAndGender(row.language, row.gender) +
                            "]" + gap +
                            (row.voiceName.empty() ? qT("(音色已不在)") : toQt(row.voiceName)),
                        suggestionFrom(row.airline, row.language, row.gender)});
    }
    return made;
}

// Not the current row: a list that gets the focus makes its first row the current one by itself.
const ShareSheet::Entry* ShareSheet::chosenEntry() const {
    const QModelIndexList rows = list->selectionModel()->selectedRows();
    return rows.isEmpty() ? nullptr : &entries[static_cast<std::size_t>(rows.front().row())];
}

// A title that the person has written stays.
void ShareSheet::rowChosen() {
    const Entry* const chosen = chosenEntry();
    if (chosen == nullptr || title->text() != lastAutoTitle) return;
    lastAutoTitle = chosen->suggestion.left(longestField);
    title->setText(lastAutoTitle);
}

void ShareSheet::check() {
    ShareChoice made{kind, trimmedText(userId), trimmedText(title), trimmedText(note), {}};
    const Entry* const chosen = chosenEntry();
    if (chosen == nullptr) return app.alert(qT("先选一个。"));
    if (made.userId.empty()) return app.alert(qT("用户 ID 不能空 —— 别人靠它认出这是谁分享的。"));
    if (made.title.empty()) return app.alert(qT("标题不能空。"));
    made.picked = chosen->id;
    choice = std::move(made);
    accept();
}

}  // namespace zepho
