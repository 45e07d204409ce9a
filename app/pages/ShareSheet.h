// Asks what to share on the hub, and under which name. Opened on the window; tells its choice once.
#pragma once

#include <QDialog>
#include <functional>
#include <optional>

#include "app/AppState.h"
#include "app/pages/HubTransfers.h"

class QLabel;
class QLineEdit;
class QListWidget;
class QVBoxLayout;

namespace zepho {

class ShareSheet : public QDialog {
    Q_OBJECT

public:
    // `onDone` gets the choice, or nothing where the person has changed their mind.
    ShareSheet(AppState& state, HubKind what,
               std::function<void(std::optional<ShareChoice>)> onDone, QWidget* parent);

private:
    // One thing that can be shared.
    struct Entry {
        std::string id;
        QString shown;
        QString suggestion;
    };

    [[nodiscard]] std::vector<Entry> voiceEntries() const;
    [[nodiscard]] std::vector<Entry> bindingEntries() const;
    void addList(QVBoxLayout* to);
    void addForm(QVBoxLayout* to);
    [[nodiscard]] const Entry* chosenEntry() const;
    void rowChosen();
    void check();

    AppState& app;
    const HubKind kind;
    const std::vector<Entry> entries;
    QListWidget* const list;
    QLineEdit* const userId;
    QLineEdit* const title;
    QLineEdit* const note;
    QString lastAutoTitle;
    std::optional<ShareChoice> choice;
};

// The kind in the interface language.
[[nodiscard]] std::string hubKindLabel(HubKind kind);

}  // namespace zepho
