#include "app/pages/FormPage.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>
#include <utility>

namespace zepho {
namespace {

// Wide enough for the longest label in every language, so that the fields of all blocks line up.
constexpr int labelLetters = 19;
constexpr int fieldLetters = 64;

}  // namespace

QVBoxLayout* FormPage::addScrollColumn(QVBoxLayout* to) {
    auto* area = new QScrollArea(this);
    area->setObjectName("scroller");
    area->setFrameShape(QFrame::NoFrame);
    area->setWidgetResizable(true);
    area->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    area->setFocusPolicy(Qt::NoFocus);
    auto* content = new QWidget(area);
    auto* layout = new QVBoxLayout(content);
    // Room for the scroll bar, and for the frame of what has the focus.
    layout->setContentsMargins(2, 2, 12, 2);
    layout->setSpacing(10);
    area->setWidget(content);
    to->addWidget(area, 1);
    return layout;
}

QVBoxLayout* FormPage::blockColumn() {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);
    return layout;
}

QFormLayout* FormPage::addForm(QVBoxLayout* to) {
    auto* form = new QFormLayout;
    form->setLabelAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    form->setFormAlignment(Qt::AlignLeft | Qt::AlignTop);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    form->setHorizontalSpacing(16);
    form->setVerticalSpacing(8);
    to->addLayout(form);
    return form;
}

QLabel* FormPage::addField(QFormLayout* form, std::string_view key, QWidget* field,
                           QWidget* control) {
    QWidget* const named = control != nullptr ? control : field;
    auto* label = new QLabel(this);
    label->setMinimumWidth(fontMetrics().horizontalAdvance('0') * labelLetters);
    label->setBuddy(named);
    say(label, key);
    name(named, key);
    form->addRow(label, field);
    return label;
}

QLineEdit* FormPage::addEdit(QFormLayout* form, std::string_view key, const char* objectName) {
    auto* edit = new QLineEdit(this);
    edit->setObjectName(objectName);
    edit->setMaximumWidth(fontMetrics().horizontalAdvance('0') * fieldLetters);
    addField(form, key, edit);
    return edit;
}

ChoiceBox* FormPage::addChoice(QFormLayout* form, std::string_view key, const char* objectName,
                               std::function<QStringList()> items) {
    auto* choice = new ChoiceBox(this);
    choice->setObjectName(objectName);
    choice->setMaximumWidth(fontMetrics().horizontalAdvance('0') * fieldLetters);
    if (items) texts([choice, items = std::move(items)] { choice->setTexts(items()); });
    addField(form, key, choice);
    return choice;
}

QCheckBox* FormPage::addToggle(QFormLayout* form, std::string_view key, const char* objectName) {
    auto* toggle = new QCheckBox(this);
    toggle->setObjectName(objectName);
    say(toggle, key);
    form->addRow(toggle);
    return toggle;
}

QHBoxLayout* FormPage::addButtonRow(QVBoxLayout* to) {
    auto* row = new QHBoxLayout;
    row->setSpacing(8);
    row->addStretch(1);
    to->addLayout(row);
    return row;
}

QPushButton* FormPage::addButton(QHBoxLayout* row, std::string_view key,
                                 std::function<void()> pressed) {
    auto* button = new QPushButton(this);
    say(button, key);
    connect(button, &QPushButton::clicked, this, std::move(pressed));
    row->insertWidget(row->count() - 1, button);
    return button;
}

QLabel* FormPage::dimLabel() {
    auto* label = new QLabel(this);
    label->setTextFormat(Qt::PlainText);
    label->setForegroundRole(QPalette::PlaceholderText);
    label->setWordWrap(true);
    return label;
}

}  // namespace zepho
