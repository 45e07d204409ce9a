#include "app/widgets/LogLineModel.h"

#include <QApplication>
#include <QPalette>
#include <algorithm>

#include "app/QtText.h"
#include "app/Theme.h"

namespace zepho {
namespace {

// From here on characters may be as wide as two.
constexpr char32_t firstWide = 0x1100;

QColor colorOf(LogLevel level) {
    switch (level) {
        case LogLevel::debug:
            return QApplication::palette().color(QPalette::PlaceholderText);
        case LogLevel::warn:
            return Theme::tones().warning;
        case LogLevel::error:
            return Theme::tones().bad;
        case LogLevel::info:
            break;
    }
    return QApplication::palette().color(QPalette::Text);
}

}  // namespace

bool LogLineModel::sync(const std::vector<LogEntry>& mirror) {
    dropGone(mirror);
    return takeNew(mirror);
}

// Lines leave the mirror at its front, or all together.
void LogLineModel::dropGone(const std::vector<LogEntry>& mirror) {
    const auto firstLeft = mirror.empty()
                               ? known.end()
                               : std::find_if(known.begin(), known.end(), [&](const Known& line) {
                                     return line.id == mirror.front().id;
                                 });
    const auto gone = static_cast<int>(
        std::count_if(known.begin(), firstLeft, [](const Known& line) { return line.shown; }));
    known.erase(known.begin(), firstLeft);
    if (gone > 0) {
        beginRemoveRows({}, 0, gone - 1);
        lines.erase(lines.begin(), lines.begin() + gone);
        endRemoveRows();
    }
    if (lines.empty()) columns = 0;
}

bool LogLineModel::takeNew(const std::vector<LogEntry>& mirror) {
    std::vector<const LogEntry*> fresh;
    for (std::size_t i = known.size(); i < mirror.size(); ++i) {
        const bool shown = mirror[i].level >= level;
        known.push_back({mirror[i].id, shown});
        if (shown) fresh.push_back(&mirror[i]);
    }
    if (fresh.empty()) return false;
    const auto first = static_cast<int>(lines.size());
    beginInsertRows({}, first, first + static_cast<int>(fresh.size()) - 1);
    for (const LogEntry* line : fresh) {
        widenFor(*line);
        lines.push_back(*line);
    }
    endInsertRows();
    return true;
}

void LogLineModel::setLevel(LogLevel least, const std::vector<LogEntry>& mirror) {
    beginResetModel();
    level = least;
    known.clear();
    lines.clear();
    columns = 0;
    for (const LogEntry& line : mirror) {
        known.push_back({line.id, line.level >= level});
        if (line.level < level) continue;
        widenFor(line);
        lines.push_back(line);
    }
    endResetModel();
}

void LogLineModel::refreshLook() {
    if (!lines.empty()) emit dataChanged(index(0), index(rowCount() - 1));
}

void LogLineModel::widenFor(const LogEntry& line) {
    constexpr int beforeText = 24;  // the time and the level
    int width = beforeText + static_cast<int>(line.source.size());
    for (const QChar letter : toQt(line.text)) width += letter.unicode() < firstWide ? 1 : 2;
    columns = std::max(columns, width);
}

QString LogLineModel::fullText(int row) const {
    return toQt(lines[static_cast<std::size_t>(row)].formatted());
}

int LogLineModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(lines.size());
}

QVariant LogLineModel::data(const QModelIndex& where, int role) const {
    // A row is one line high.
    if (role == Qt::DisplayRole) return fullText(where.row()).replace('\n', ' ');
    if (role == Qt::ForegroundRole)
        return colorOf(lines[static_cast<std::size_t>(where.row())].level);
    return {};
}

}  // namespace zepho
