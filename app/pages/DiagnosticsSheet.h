// Shows what a diagnostics bundle holds, file by file, before it is saved. Opened on the window.
#pragma once

#include <QDialog>
#include <functional>
#include <vector>

#include "app/DiagnosticsBundle.h"

namespace zepho {

class DiagnosticsSheet : public QDialog {
    Q_OBJECT

public:
    // `save` runs when the person agrees.
    DiagnosticsSheet(const std::vector<DiagnosticsPart>& parts, std::function<void()> save,
                     QWidget* parent);
};

}  // namespace zepho
