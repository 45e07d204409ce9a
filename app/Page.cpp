#include "app/Page.h"

#include <QAbstractButton>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>
#include <string>

#include "app/QtText.h"

namespace zepho {

Page::Page(AppState& state, QWidget* parent) : QWidget(parent), app(state) {
    connect(&app, &AppState::languageChanged, this, [this] {
        for (const auto& set : sayings) set();
    });
}

void Page::texts(std::function<void()> set) {
    set();
    sayings.push_back(std::move(set));
}

void Page::say(QLabel* label, std::string_view key) {
    texts([label, key = std::string(key)] { label->setText(qT(key)); });
}

void Page::say(QAbstractButton* button, std::string_view key) {
    texts([button, key = std::string(key)] { button->setText(qT(key)); });
}

void Page::hint(QLineEdit* field, std::string_view key) {
    texts([field, key = std::string(key)] { field->setPlaceholderText(qT(key)); });
}

void Page::name(QWidget* control, std::string_view key) {
    texts([control, key = std::string(key)] { control->setAccessibleName(qT(key)); });
}

QLabel* Page::addHint(QVBoxLayout* to, std::string_view key) {
    auto* label = new QLabel(this);
    label->setObjectName("hint");
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    label->setForegroundRole(QPalette::PlaceholderText);
    say(label, key);
    to->addWidget(label);
    return label;
}

QLabel* Page::addTitle(QVBoxLayout* to, std::string_view key) {
    auto* label = new QLabel(this);
    QFont bold = label->font();
    bold.setWeight(QFont::DemiBold);
    label->setFont(bold);
    say(label, key);
    to->addWidget(label);
    return label;
}

QVBoxLayout* Page::column() {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 20, 24, 16);
    layout->setSpacing(12);
    return layout;
}

}  // namespace zepho
