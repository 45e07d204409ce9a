// A control that leaves the wheel to the page unless it has the focus: who turns it over a long page
// wants to move on, not to change what happens to be under the pointer.
#pragma once

#include <QWheelEvent>
#include <QWidget>

namespace zepho {

template <class Control>
class WheelShy : public Control {
public:
    explicit WheelShy(QWidget* parent = nullptr) : Control(parent) {
        // The wheel does not give it the focus, either.
        this->setFocusPolicy(Qt::StrongFocus);
    }

protected:
    void wheelEvent(QWheelEvent* event) override {
        if (this->hasFocus())
            Control::wheelEvent(event);
        else
            event->ignore();
    }
};

}  // namespace zepho
