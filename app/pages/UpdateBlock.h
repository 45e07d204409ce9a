// The version of the program, and whether there is a newer one. Asked for by its button only.
#pragma once

#include "app/pages/FormPage.h"

namespace zepho {

class UpdateBlock : public FormPage {
    Q_OBJECT

public:
    explicit UpdateBlock(AppState& state, QWidget* parent = nullptr);

private:
    void refresh();

    QPushButton* check = nullptr;
    QPushButton* download = nullptr;
    QPushButton* page = nullptr;
    QLabel* result = nullptr;
};

}  // namespace zepho
