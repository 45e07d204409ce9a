// What there is of engine and models: one line each, with a mark of good or missing.
#pragma once

#include <vector>

#include "app/pages/FormPage.h"
#include "app/widgets/StatusDot.h"

class QGridLayout;

namespace zepho {

class ModelsStatus : public FormPage {
    Q_OBJECT

public:
    explicit ModelsStatus(AppState& state, QWidget* parent = nullptr);
    // Looks at the disk.
    void refresh();

private:
    struct Line {
        StatusDot* mark;
        QLabel* value;
    };

    Line addLine(QGridLayout* grid, std::string_view key, const char* objectName);
    static void show(const Line& line, bool good, const std::string& text);

    Line dataFolder{};
    Line modelsFolder{};
    Line tokenizer{};
    Line program{};
    Line gpu{};
    Line backend{};
    Line engine{};
};

}  // namespace zepho
