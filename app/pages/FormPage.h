// What the pages of fields, and the blocks they are put together from, have in common: labelled rows
// in columns that stand in line from block to block, and a column that scrolls.
#pragma once

#include <QStringList>
#include <functional>
#include <string_view>

#include "app/Page.h"
#include "app/widgets/ChoiceBox.h"

class QCheckBox;
class QFormLayout;
class QHBoxLayout;
class QLineEdit;
class QPushButton;

namespace zepho {

class FormPage : public Page {
    Q_OBJECT

protected:
    using Page::Page;

    // A column that scrolls as soon as the page is higher than its place.
    QVBoxLayout* addScrollColumn(QVBoxLayout* to);
    // A column without margins, for a block within a page.
    QVBoxLayout* blockColumn();
    QFormLayout* addForm(QVBoxLayout* to);
    // `field` may be a control or a row of them, of which `control` is named by the label.
    QLabel* addField(QFormLayout* form, std::string_view key, QWidget* field,
                     QWidget* control = nullptr);
    QLineEdit* addEdit(QFormLayout* form, std::string_view key, const char* objectName);
    // `items` gives the lines in the interface language; without it the caller fills the picker.
    ChoiceBox* addChoice(QFormLayout* form, std::string_view key, const char* objectName,
                         std::function<QStringList()> items = {});
    QCheckBox* addToggle(QFormLayout* form, std::string_view key, const char* objectName);
    // Left-aligned buttons are added to it.
    QHBoxLayout* addButtonRow(QVBoxLayout* to);
    QPushButton* addButton(QHBoxLayout* row, std::string_view key, std::function<void()> pressed);
    // A dim sentence beside or under a field, in words of its own.
    QLabel* dimLabel();
};

}  // namespace zepho
