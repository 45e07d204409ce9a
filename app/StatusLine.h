// The line at the foot of the window: what the service is doing, and the warning of the placeholder.
#pragma once

#include <QWidget>

#include "app/AppState.h"

class QLabel;

namespace zepho {

class StatusLine : public QWidget {
public:
    StatusLine(AppState& state, QWidget* parent);

    [[nodiscard]] static std::string textOf(const ServiceStats& stats);

private:
    void refresh();

    AppState& app;
    QLabel* const left;
    QLabel* const warning;
};

}  // namespace zepho
