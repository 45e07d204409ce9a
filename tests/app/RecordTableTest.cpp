// The table of the pages: order, and a selection that survives what happens to the rows.
#include <QTest>

#include <gtest/gtest.h>

#include "app/widgets/RecordModel.h"
#include "app/widgets/RecordTable.h"

namespace zepho::test {
namespace {

struct Plane {
    std::string id;
    int seats = 0;
};

TEST(RecordTableTest, SelectionFollowsTheRecordsThroughFilterSortAndRefresh) {
    using PlaneColumn = Column<Plane>;
    RecordModel<Plane> model(
        {PlaneColumn("id", [](const Plane& plane) { return toQt(plane.id); }),
         PlaneColumn("seats", [](const Plane& plane) { return QString::number(plane.seats); })
             .by([](const Plane& plane) { return plane.seats; })},
        [](const Plane& plane) { return plane.id; }, nullptr);
    RecordTable table(&model, RecordTable::Selects::many, 0, nullptr);
    table.resize(400, 300);
    table.show();
    const std::vector<Plane> fleet{{"a", 100}, {"b", 9}, {"c", 50}};
    model.setRecords(fleet);
    const auto clickRow = [&](int row, Qt::KeyboardModifiers with) {
        QTest::mouseClick(table.viewport(), Qt::LeftButton, with,
                          table.visualRect(model.index(row, 0)).center());
    };
    clickRow(0, Qt::NoModifier);
    clickRow(1, Qt::ControlModifier);
    using Ids = std::set<std::string>;
    EXPECT_EQ(table.selectedIds(), (Ids{"a", "b"}));

    // Numbers sort as numbers, and the selection goes with its rows.
    table.sortByColumn(1, Qt::AscendingOrder);
    EXPECT_EQ(model.idAt(0), "b");
    EXPECT_EQ(model.idAt(2), "a");
    EXPECT_EQ(table.selectedIds(), (Ids{"a", "b"}));
    EXPECT_EQ(table.selectedId(), "b");

    // Out of sight is still selected, and comes back marked.
    model.setRecords({fleet[2], fleet[1]});
    EXPECT_EQ(table.selectedIds(), (Ids{"a", "b"}));
    clickRow(1, Qt::ControlModifier);
    EXPECT_EQ(table.selectedIds(), (Ids{"a", "b", "c"}));
    model.setRecords(fleet);
    EXPECT_EQ(table.selectionModel()->selectedRows().size(), 3);
    clickRow(0, Qt::NoModifier);
    EXPECT_EQ(table.selectedIds(), (Ids{"b"}));
    table.keepOnly({"a"});
    EXPECT_TRUE(table.selectedIds().empty());
}

}  // namespace
}  // namespace zepho::test
