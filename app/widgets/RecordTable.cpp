#include "app/widgets/RecordTable.h"

#include <QApplication>
#include <QHeaderView>

#include "app/widgets/RecordModel.h"

namespace zepho {

RecordTable::RecordTable(RecordModelBase* shown, Selects selects, int stretched, QWidget* parent)
    : QTableView(parent), model(shown) {
    setModel(model);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(selects == Selects::one ? QAbstractItemView::SingleSelection
                                             : QAbstractItemView::ExtendedSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setAlternatingRowColors(true);
    setShowGrid(false);
    setWordWrap(false);
    setTabKeyNavigation(false);
    setCornerButtonEnabled(false);
    setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 12);
    horizontalHeader()->setHighlightSections(false);
    horizontalHeader()->setSectionResizeMode(QHeaderView::Interactive);
    horizontalHeader()->setSectionResizeMode(stretched, QHeaderView::Stretch);
    horizontalHeader()->setSortIndicator(-1, Qt::AscendingOrder);
    horizontalHeader()->setSortIndicatorClearable(true);
    setSortingEnabled(true);
    connect(model, &QAbstractItemModel::modelReset, this, &RecordTable::restore);
    connect(selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        if (!restoring) take();
    });
}

std::string RecordTable::selectedId() const {
    const QModelIndexList rows = selectionModel()->selectedRows();
    int first = -1;
    for (const QModelIndex& row : rows)
        if (first < 0 || row.row() < first) first = row.row();
    if (first >= 0) return model->idAt(first);
    return chosen.empty() ? std::string() : *chosen.begin();
}

void RecordTable::select(const std::string& id) {
    chosen = {id};
    restore();
    const int row = model->rowOf(id);
    if (row >= 0) scrollTo(model->index(row, 0));
    emit choiceChanged();
}

void RecordTable::clearChoice() {
    chosen.clear();
    restore();
    emit choiceChanged();
}

void RecordTable::keepOnly(const std::set<std::string>& known) {
    const std::size_t before = chosen.size();
    std::erase_if(chosen, [&](const std::string& id) { return !known.contains(id); });
    if (chosen.size() != before) emit choiceChanged();
}

void RecordTable::restore() {
    restoring = true;
    QItemSelection rows;
    // Neighbours go as one range: drawing a cell looks through all of them.
    int first = -1;
    const auto endRange = [&](int row) {
        if (first >= 0)
            rows.select(model->index(first, 0), model->index(row - 1, model->columnCount() - 1));
        first = -1;
    };
    int row = 0;
    for (int found = 0; row < model->rowCount() && found < static_cast<int>(chosen.size()); ++row) {
        if (!chosen.contains(model->idAt(row))) {
            endRange(row);
            continue;
        }
        ++found;
        if (first < 0) first = row;
    }
    endRange(row);
    selectionModel()->select(rows, QItemSelectionModel::ClearAndSelect);
    if (!rows.isEmpty())
        selectionModel()->setCurrentIndex(rows.first().topLeft(), QItemSelectionModel::NoUpdate);
    restoring = false;
}

// What the person has selected. With a modifier held the rows out of sight stay selected, too.
void RecordTable::take() {
    const bool adds =
        (QApplication::keyboardModifiers() & (Qt::ControlModifier | Qt::ShiftModifier)) != 0;
    std::set<std::string> now;
    if (adds) {
        now = chosen;
        for (int row = 0; row < model->rowCount() && !now.empty(); ++row)
            now.erase(model->idAt(row));
    }
    for (const QModelIndex& row : selectionModel()->selectedRows())
        now.insert(model->idAt(row.row()));
    chosen = std::move(now);
    emit choiceChanged();
}

}  // namespace zepho
