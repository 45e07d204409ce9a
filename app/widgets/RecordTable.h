// The table of all pages: whole rows, the width filled, a selection that survives a refresh.
//
// The selection is kept by the records' ids. A row that a filter hides stays selected until the
// person selects others.
#pragma once

#include <QTableView>
#include <set>
#include <string>

namespace zepho {

class RecordModelBase;

class RecordTable : public QTableView {
    Q_OBJECT

public:
    enum class Selects { one, many };

    // `stretched` is the column that takes the width that is left.
    RecordTable(RecordModelBase* shown, Selects selects, int stretched, QWidget* parent);

    [[nodiscard]] const std::set<std::string>& selectedIds() const { return chosen; }
    // The first in the order on screen; empty where there is none.
    [[nodiscard]] std::string selectedId() const;
    void select(const std::string& id);
    void clearChoice();
    // Drops what is selected but is not `known` any more.
    void keepOnly(const std::set<std::string>& known);

signals:
    void choiceChanged();

private:
    void restore();
    void take();

    RecordModelBase* const model;
    std::set<std::string> chosen;
    bool restoring = false;
};

}  // namespace zepho
