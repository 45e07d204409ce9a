// One page of the main window: what every page has in common.
//
// A page holds its controls and what the person has typed, and nothing of the service. Every text is
// set through say() and its relatives, which set it again when the interface language changes.
#pragma once

#include <QWidget>
#include <functional>
#include <string_view>
#include <vector>

#include "app/AppState.h"

class QAbstractButton;
class QLabel;
class QLineEdit;
class QVBoxLayout;

namespace zepho {

class Page : public QWidget {
    Q_OBJECT

public:
    explicit Page(AppState& state, QWidget* parent = nullptr);

    // The page has come to the front.
    virtual void appear() {}
    // Stops what Esc stops here; false where there is nothing.
    virtual bool escape() { return false; }

protected:
    // Sets texts now and after each change of language.
    void texts(std::function<void()> set);
    void say(QLabel* label, std::string_view key);
    void say(QAbstractButton* button, std::string_view key);
    // The grey text of an empty field.
    void hint(QLineEdit* field, std::string_view key);
    // What a screen reader calls a control that carries no text.
    void name(QWidget* control, std::string_view key);

    // The sentence at the head of a page or a section.
    QLabel* addHint(QVBoxLayout* to, std::string_view key);
    QLabel* addTitle(QVBoxLayout* to, std::string_view key);
    // The column that everything of the page stands in, with the margins of all pages.
    QVBoxLayout* column();

    AppState& app;

private:
    std::vector<std::function<void()>> sayings;
};

}  // namespace zepho
