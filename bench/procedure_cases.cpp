#include <memory>
#include <random>

#include "baselines.h"
#include "groups.h"
#include "host_table.h"
#include "module_under_test.h"
#include "workloads.h"

namespace bench {
namespace {

/** What the procedures deliver, straight from the vectors through the same function table. */
mirona_value MakeFromVector(const mirona_extension_api& table, const VectorView& view, idx_t row) {
    if (view.IsNull(row)) {
        return nullptr;
    }
    switch (view.type) {
        case DUCKDB_TYPE_INTEGER:
            return table.make_int_value(nullptr, static_cast<const int32_t*>(view.data)[row]);
        case DUCKDB_TYPE_BIGINT:
            return table.make_int_value(nullptr, static_cast<const int64_t*>(view.data)[row]);
        case DUCKDB_TYPE_DECIMAL:  // delivered as the double at its place
        case DUCKDB_TYPE_DOUBLE:
            return table.make_double_value(nullptr, static_cast<const double*>(view.data)[row]);
        case DUCKDB_TYPE_DATE: {
            const duckdb_date_struct date = duckdb_from_date(static_cast<const duckdb_date*>(view.data)[row]);
            return table.make_date_value(nullptr, static_cast<uint32_t>(date.year) << 9 |
                                                      static_cast<uint32_t>(date.month) << 5 |
                                                      static_cast<uint32_t>(date.day));
        }
        case DUCKDB_TYPE_VARCHAR: {
            duckdb_string_t text = static_cast<const duckdb_string_t*>(view.data)[row];
            return table.make_text_value(nullptr, duckdb_string_t_data(&text), duckdb_string_t_length(text),
                                         0);
        }
        default:
            Die("no vector reading for this type");
    }
}

void UseAndRelease(mirona_value handle) {
    if (handle != nullptr) {
        auto* value = static_cast<nbx::I_Value*>(handle);
        Consume(value->get_TypeCode());
        value->Release();
    }
}

uint64_t ReadVectorsThroughTable(duckdb_connection connection, const std::string& sql) {
    const mirona_extension_api& table = GetHostTable();
    duckdb_result result;
    if (duckdb_query(connection, sql.c_str(), &result) != DuckDBSuccess) {
        Die(duckdb_result_error(&result));
    }
    uint64_t cells = 0;
    while (duckdb_data_chunk chunk = duckdb_fetch_chunk(result)) {
        const std::vector<VectorView> vectors = GetVectors(chunk);
        const idx_t rows = duckdb_data_chunk_get_size(chunk);
        for (idx_t row = 0; row < rows; ++row) {
            for (const VectorView& view : vectors) {
                UseAndRelease(MakeFromVector(table, view, row));
            }
        }
        cells += rows * vectors.size();
        duckdb_destroy_data_chunk(&chunk);
    }
    duckdb_destroy_result(&result);
    return cells;
}

uint64_t ReadProcedure(const std::string& procedure, const std::vector<std::string>& arguments) {
    mirona_cursor_def cursor{};
    CallProcedure(GetProcedure(procedure), arguments, cursor);
    uint64_t cells = 0;
    while (cursor.next_row(cursor.state) == MIRONA_ROW_OK) {
        for (uint32_t column = 0; column < cursor.column_count; ++column) {
            UseAndRelease(cursor.get_value(nullptr, cursor.state, static_cast<int32_t>(column)));
        }
        cells += cursor.column_count;
    }
    cursor.close(cursor.state);
    return cells;
}

Group MakeFetchGroup(const std::string& procedure, const Options& options) {
    const auto bare = std::make_shared<std::unique_ptr<BareDuckDB>>();
    const auto sql = std::make_shared<std::string>();
    const auto arguments = std::make_shared<std::vector<std::string>>();
    const bool is_parquet = procedure == "fetch_parquet";
    return {procedure,
            "cell",
            [=, &options] {
                const Data& data = PrepareData(options);
                *bare = std::make_unique<BareDuckDB>(is_parquet ? "" : data.database);
                // The procedures run on all of the machine's threads, so their rivals do too.
                (*bare)->Run("RESET threads");
                *sql = is_parquet ? "SELECT * FROM read_parquet('" + data.parquet + "')"
                                  : "SELECT * FROM orders";
                *arguments = is_parquet ? std::vector<std::string>{data.parquet}
                                        : std::vector<std::string>{data.database, "orders"};
            },
            {{"drain", [=] { return Drain((*bare)->get(), *sql); }, nullptr},
             {"vectors", [=] { return ReadVectorsThroughTable((*bare)->get(), *sql); }, nullptr},
             {"procedure", [=] { return ReadProcedure(procedure, *arguments); }, nullptr}}};
}

constexpr uint64_t kRandomRows = 2'000;

Group MakeGoToRowGroup(const Options& options) {
    const auto cursor = std::make_shared<mirona_cursor_def>();
    return {"go-to-row",
            "row",
            [=, &options] {
                CallProcedure(GetProcedure("fetch_parquet"), {PrepareData(options).tall_parquet}, *cursor);
            },
            {{"random row",
              [=] {
                  std::mt19937_64 random(20260101);
                  const uint64_t rows = cursor->row_count(cursor->state);
                  for (uint64_t i = 0; i < kRandomRows; ++i) {
                      cursor->go_to_row(cursor->state, static_cast<int64_t>(random() % rows));
                      UseAndRelease(cursor->get_value(nullptr, cursor->state, 0));
                  }
                  return kRandomRows;
              },
              nullptr}}};
}

}  // namespace

std::vector<Group> GetProcedureGroups(const Options& options) {
    return {MakeFetchGroup("fetch_parquet", options), MakeFetchGroup("fetch_duckdb", options),
            MakeGoToRowGroup(options)};
}

}  // namespace bench
