// A field for a number that is typed. Neither wheel nor keys nor buttons step it: each value on the
// way would count as much as the one that is meant. editingFinished() tells when it is confirmed.
#pragma once

#include <QSpinBox>

#include "app/widgets/WheelShy.h"

namespace zepho {

class NumberField : public WheelShy<QSpinBox> {
public:
    explicit NumberField(QWidget* parent = nullptr) : WheelShy(parent) {
        setButtonSymbols(QAbstractSpinBox::NoButtons);
        // One that is emptied and left falls back to the number before, not to its last digit.
        setKeyboardTracking(false);
    }

protected:
    [[nodiscard]] StepEnabled stepEnabled() const override { return StepNone; }
};

}  // namespace zepho
