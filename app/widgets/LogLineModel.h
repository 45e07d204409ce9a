// The lines of the log that are at least of a level, as a list that follows the bounded mirror.
//
// sync() takes over what has come and what has gone since the last time, so that a view keeps its
// selection. Lines are put into words when they are shown. Main thread only.
#pragma once

#include <QAbstractListModel>
#include <deque>
#include <vector>

#include "core/diag/AppLog.h"

namespace zepho {

class LogLineModel : public QAbstractListModel {
    Q_OBJECT

public:
    using QAbstractListModel::QAbstractListModel;

    // Whether there is a new last line.
    bool sync(const std::vector<LogEntry>& mirror);
    void setLevel(LogLevel least, const std::vector<LogEntry>& mirror);
    // A change of the look: the colours come anew.
    void refreshLook();

    // The width of the longest line so far, in columns of a monospaced font.
    [[nodiscard]] int widest() const { return columns; }
    [[nodiscard]] QString fullText(int row) const;

    [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex& where, int role) const override;

private:
    // A line of the mirror, and whether it is among ours.
    struct Known {
        Uuid id;
        bool shown = false;
    };

    void dropGone(const std::vector<LogEntry>& mirror);
    bool takeNew(const std::vector<LogEntry>& mirror);
    void widenFor(const LogEntry& line);

    LogLevel level = LogLevel::debug;
    std::deque<Known> known;
    std::deque<LogEntry> lines;
    int columns = 0;
};

}  // namespace zepho
