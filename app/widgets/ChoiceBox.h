// A picker for long pages.
#pragma once

#include <QComboBox>
#include <QStringList>

#include "app/widgets/WheelShy.h"

namespace zepho {

class ChoiceBox : public WheelShy<QComboBox> {
public:
    explicit ChoiceBox(QWidget* parent = nullptr) : WheelShy(parent) {
        // A long line is cut in the picker and whole in its list; it never widens the page.
        setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        setMinimumContentsLength(24);
    }

    // Shows the same items in other words.
    void setTexts(const QStringList& texts) {
        while (count() < texts.size()) addItem(QString());
        for (int i = 0; i < count(); ++i) setItemText(i, texts.value(i));
    }
};

}  // namespace zepho
