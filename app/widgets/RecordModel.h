// A table's model over plain records: columns say how a record is shown and sorted.
//
// The rows are replaced as a whole. Each record has an id by which the view keeps its selection. Main
// thread only. Texts are made when they are shown, so a hundred thousand records cost no more than
// those in sight; a sorted table makes the keys of its column once.
#pragma once

#include <QAbstractTableModel>
#include <QCollator>
#include <algorithm>
#include <functional>
#include <numeric>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/QtText.h"

namespace zepho {

class RecordModelBase : public QAbstractTableModel {
public:
    using QAbstractTableModel::QAbstractTableModel;
    [[nodiscard]] virtual std::string idAt(int row) const = 0;
    // -1 where it is not shown.
    [[nodiscard]] virtual int rowOf(const std::string& id) const = 0;
};

// One column: its title, how a record reads in it, and what else is not as usual.
template <class Record>
struct Column {
    using Text = std::function<QString(const Record&)>;
    using Number = std::function<double(const Record&)>;

    Column(std::string title, Text shown) : titleKey(std::move(title)), text(std::move(shown)) {}
    // Sorts by a number instead of the text.
    Column& by(Number value) {
        order = std::move(value);
        return *this;
    }
    Column& right() {
        alignment = Qt::AlignRight;
        return *this;
    }
    // Plain text, too.
    Column& tip(Text shown) {
        toolTip = std::move(shown);
        return *this;
    }

    std::string titleKey;
    Text text;
    Number order;
    Qt::Alignment alignment = Qt::AlignLeft;
    Text toolTip;
};

template <class Record>
class RecordModel : public RecordModelBase {
public:
    using Id = std::function<std::string(const Record&)>;

    RecordModel(std::vector<Column<Record>> shown, Id id, QObject* parent)
        : RecordModelBase(parent), columns(std::move(shown)), idOf(std::move(id)) {}

    void setRecords(std::vector<Record> next) {
        beginResetModel();
        records = std::move(next);
        arrange();
        endResetModel();
    }
    // After a change of language: headers and cells come anew.
    void refreshTexts() {
        emit headerDataChanged(Qt::Horizontal, 0, columnCount() - 1);
        if (rowCount() > 0) emit dataChanged(index(0, 0), index(rowCount() - 1, columnCount() - 1));
    }

    [[nodiscard]] const Record& at(int row) const {
        return records[order[static_cast<std::size_t>(row)]];
    }
    [[nodiscard]] const Record* find(const std::string& id) const {
        const int row = rowOf(id);
        return row < 0 ? nullptr : &at(row);
    }
    [[nodiscard]] std::string idAt(int row) const override { return idOf(at(row)); }
    [[nodiscard]] int rowOf(const std::string& id) const override {
        for (int row = 0; row < rowCount(); ++row)
            if (idAt(row) == id) return row;
        return -1;
    }

    [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override {
        return parent.isValid() ? 0 : static_cast<int>(records.size());
    }
    [[nodiscard]] int columnCount(const QModelIndex& parent = {}) const override {
        return parent.isValid() ? 0 : static_cast<int>(columns.size());
    }
    [[nodiscard]] QVariant headerData(int section, Qt::Orientation orientation,
                                      int role) const override {
        if (orientation != Qt::Horizontal) return {};
        const Column<Record>& column = columns[static_cast<std::size_t>(section)];
        if (role == Qt::DisplayRole) return qT(column.titleKey);
        if (role == Qt::TextAlignmentRole) return int(column.alignment | Qt::AlignVCenter);
        return {};
    }
    [[nodiscard]] QVariant data(const QModelIndex& where, int role) const override {
        const Column<Record>& column = columns[static_cast<std::size_t>(where.column())];
        if (role == Qt::DisplayRole) return column.text(at(where.row()));
        if (role == Qt::TextAlignmentRole) return int(column.alignment | Qt::AlignVCenter);
        if (role == Qt::ToolTipRole && column.toolTip)
            return asTip(column.toolTip(at(where.row())));
        return {};
    }
    // A column below 0 restores the records' own order.
    void sort(int column, Qt::SortOrder direction) override {
        emit layoutAboutToBeChanged();
        const QModelIndexList before = persistentIndexList();
        std::vector<std::size_t> recordsBefore;
        for (const QModelIndex& kept : before)
            recordsBefore.push_back(order[static_cast<std::size_t>(kept.row())]);
        sortColumn = column;
        sortDirection = direction;
        arrange();
        std::vector<int> place(order.size());
        for (std::size_t row = 0; row < order.size(); ++row)
            place[order[row]] = static_cast<int>(row);
        QModelIndexList after;
        for (qsizetype i = 0; i < before.size(); ++i)
            after.append(
                index(place[recordsBefore[static_cast<std::size_t>(i)]], before[i].column()));
        changePersistentIndexList(before, after);
        emit layoutChanged();
    }

private:
    void arrange() {
        order.resize(records.size());
        std::iota(order.begin(), order.end(), std::size_t{0});
        if (sortColumn < 0 || sortColumn >= columnCount()) return;
        const Column<Record>& column = columns[static_cast<std::size_t>(sortColumn)];
        if (column.order)
            arrangeBy<double>([&](const Record& record) { return column.order(record); });
        else
            arrangeBy<QCollatorSortKey>([&, collator = QCollator()](const Record& record) {
                return collator.sortKey(column.text(record));
            });
    }
    template <class Key, class KeyOf>
    void arrangeBy(KeyOf keyOf) {
        std::vector<Key> keys;
        keys.reserve(records.size());
        for (const Record& record : records) keys.push_back(keyOf(record));
        const bool up = sortDirection == Qt::AscendingOrder;
        std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
            return up ? keys[a] < keys[b] : keys[b] < keys[a];
        });
    }

    const std::vector<Column<Record>> columns;
    const Id idOf;
    std::vector<Record> records;
    std::vector<std::size_t> order;  // row to record
    int sortColumn = -1;
    Qt::SortOrder sortDirection = Qt::AscendingOrder;
};

}  // namespace zepho
