// The order in which Tab goes through the controls of a page.
#pragma once

#include <QWidget>
#include <initializer_list>

namespace zepho {

inline void tabThrough(std::initializer_list<QWidget*> controls) {
    QWidget* before = nullptr;
    for (QWidget* const control : controls) {
        if (before != nullptr) QWidget::setTabOrder(before, control);
        before = control;
    }
}

}  // namespace zepho
