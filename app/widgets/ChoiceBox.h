// A picker for long pages: turning the wheel over it moves the page, unless it has the focus.
#pragma once

#include <QComboBox>
#include <QStringList>
#include <QWheelEvent>

namespace zepho {

class ChoiceBox : public QComboBox {
public:
    explicit ChoiceBox(QWidget* parent = nullptr) : QComboBox(parent) {
        setFocusPolicy(Qt::StrongFocus);
        // A long line is cut in the picker and whole in its list; it never widens the page.
        setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        setMinimumContentsLength(24);
    }

    // Shows the same items in other words.
    void setTexts(const QStringList& texts) {
        while (count() < texts.size()) addItem(QString());
        for (int i = 0; i < count(); ++i) setItemText(i, texts.value(i));
    }

protected:
    void wheelEvent(QWheelEvent* event) override {
        if (hasFocus())
            QComboBox::wheelEvent(event);
        else
            event->ignore();
    }
};

}  // namespace zepho
