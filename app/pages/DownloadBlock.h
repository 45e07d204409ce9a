// Choosing a model variant and its source, fetching it, and how far that is.
#pragma once

#include "app/pages/FormPage.h"
#include "app/widgets/StatusDot.h"

class QProgressBar;

namespace zepho {

class DownloadBlock : public FormPage {
    Q_OBJECT

public:
    explicit DownloadBlock(AppState& state, QWidget* parent = nullptr);

    [[nodiscard]] bool useMirror() const;
    void setUseMirror(bool mirror);

private:
    void startDownload();
    void cancelDownload();
    // What the last report tells.
    void refresh();
    void showState();

    ChoiceBox* pick = nullptr;
    ChoiceBox* source = nullptr;
    QPushButton* start = nullptr;
    QPushButton* cancel = nullptr;
    QProgressBar* bar = nullptr;
    StatusDot* mark = nullptr;
    QLabel* line = nullptr;
    bool cancelling = false;
};

}  // namespace zepho
