#include "item_tables.h"

#include <utility>

namespace bench {

void ItemTables::Open(const Workload& workload) {
    bare = std::make_unique<BareDuckDB>("");
    bare->Run("SET errors_as_json = true");
    database = OpenDatabase(":memory:");
    create = "CREATE OR REPLACE TABLE items (" + GetColumnList(workload) + ")";
    insert.clear();
    for (std::size_t i = 1; i <= workload.columns.size(); ++i) {
        insert += (i == 1 ? "INSERT INTO items VALUES ($" : ", $") + std::to_string(i);
    }
    insert += ")";
    Clear();
}

void ItemTables::Clear() const {
    bare->Run(create);
    database->SqlExecute(nbx::String(create.c_str()), nullptr);
}

void ItemTables::RequireSame(const std::string& what) const {
    RequireSameRows(what, *bare, *database, "items");
}

std::string GetFirstRowsQuery(const Workload& workload, uint64_t count) {
    // Some workloads have fewer rows.
    return "SELECT * FROM (FROM " + workload.table + " UNION ALL FROM " + workload.table + ") LIMIT " +
           std::to_string(count);
}

nbx::smart_ptr<nbx::ValueRows> TakeHostRows(const Workload& workload, uint64_t count) {
    const auto source = OpenDatabase(workload.database);
    const auto cursor = source->SqlSelect(nbx::String(GetFirstRowsQuery(workload, count).c_str()),
                                          nbx::mrsql::kClientCursor, nullptr);
    auto rows = nbx::MakeObject<nbx::ValueRows>();
    while (cursor->NextRecord()) {
        auto row = nbx::MakeObject<nbx::ValueRow>();
        for (uint32_t column = 0; column < cursor->get_ColumnCount(); ++column) {
            row->Append(cursor->get_Value(column));
        }
        rows->Append(std::move(row));
    }
    return rows;
}

uint64_t InsertAsParameters(const ItemTables& tables, const nbx::smart_ptr<nbx::ValueRows>& rows) {
    tables.database->SqlExecute(nbx::String("BEGIN"), nullptr);
    const auto statement = PrepareInModule(*tables.database, tables.insert);
    statement->put_ParameterRows(rows);
    statement->Execute();
    tables.database->SqlExecute(nbx::String("COMMIT"), nullptr);
    return rows->get_Count();
}

}  // namespace bench
