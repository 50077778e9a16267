#include <algorithm>
#include <memory>
#include <random>

#include "bare_duckdb.h"
#include "baselines.h"
#include "groups.h"
#include "host_table.h"
#include "module_under_test.h"
#include "workloads.h"

namespace bench {
namespace {

/** The values that the procedures deliver, straight from the vectors through the same function table. */
mirona_value MakeFromVector(const mirona_extension_api& table, const VectorView& view, idx_t row) {
    if (view.IsNull(row)) {
        return nullptr;
    }
    switch (view.type) {
        case DUCKDB_TYPE_SMALLINT:
            return table.make_int_value(nullptr, static_cast<const int16_t*>(view.data)[row]);
        case DUCKDB_TYPE_INTEGER:
            return table.make_int_value(nullptr, static_cast<const int32_t*>(view.data)[row]);
        case DUCKDB_TYPE_BIGINT:
            return table.make_int_value(nullptr, static_cast<const int64_t*>(view.data)[row]);
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

/** One way to read a workload's file, and the engine that a bare program uses for it, with all of the
   machine's threads. Each run opens its own engine on a database file, and only a connection of its own where
   a Parquet file is read, as each call of the procedure does. */
struct Source {
    std::string procedure;
    std::vector<std::string> arguments;
    std::string engine_path;
    /** The query, with the casts that the procedure adds. */
    std::string sql;
    /** In memory, and open for all runs; null for a database file. */
    std::shared_ptr<BareDuckDB> engine;
};

/** The connection of one run. */
class SourceConnection {
  public:
    explicit SourceConnection(const Source& source) {
        if (source.engine == nullptr) {
            own_engine_ = std::make_unique<BareDuckDB>(source.engine_path, BareDuckDB::Access::reading, 0);
        }
        const BareDuckDB& engine = source.engine == nullptr ? *own_engine_ : *source.engine;
        if (duckdb_connect(engine.get_Engine(), &connection_) != DuckDBSuccess) {
            Die("cannot connect");
        }
    }
    ~SourceConnection() { duckdb_disconnect(&connection_); }
    SourceConnection(const SourceConnection&) = delete;
    SourceConnection& operator=(const SourceConnection&) = delete;

    duckdb_connection get() const { return connection_; }

  private:
    std::unique_ptr<BareDuckDB> own_engine_;
    duckdb_connection connection_ = nullptr;
};

/** A column as the procedure reads it: types that the host does not have are cast. */
std::string GetSelectItem(const Column& column) {
    const auto is = [&](const char* word) { return column.type.find(word) != std::string::npos; };
    if (is("DECIMAL")) {
        return "CAST(" + column.name + " AS DOUBLE)";
    }
    return is("[]") || is("STRUCT") || is("VARIANT") ? "CAST(" + column.name + " AS VARCHAR)" : column.name;
}

Source GetSource(const std::string& procedure, const std::string& workload_name, const Options& options) {
    const Workload workload = GetWorkload(workload_name, options);
    std::string items;
    for (const Column& column : workload.columns) {
        items += (items.empty() ? "" : ", ") + GetSelectItem(column);
    }
    if (procedure == "fetch_parquet") {
        return {procedure,
                {workload.parquet},
                "",
                "SELECT " + items + " FROM read_parquet('" + workload.parquet + "')",
                std::make_shared<BareDuckDB>("", BareDuckDB::Access::reading, 0)};
    }
    return {procedure,
            {workload.database, workload.table},
            workload.bare_database,
            "SELECT " + items + " FROM " + workload.table,
            nullptr};
}

template <class Deliver>
uint64_t ReadVectorsThroughTable(const Source& source, Deliver deliver) {
    const SourceConnection bare(source);
    const mirona_extension_api& table = GetHostTable();
    duckdb_result result;
    if (duckdb_query(bare.get(), source.sql.c_str(), &result) != DuckDBSuccess) {
        Die(duckdb_result_error(&result));
    }
    uint64_t cells = 0;
    while (duckdb_data_chunk chunk = duckdb_fetch_chunk(result)) {
        const std::vector<VectorView> vectors = GetVectors(chunk);
        const idx_t rows = duckdb_data_chunk_get_size(chunk);
        for (idx_t row = 0; row < rows; ++row) {
            for (const VectorView& view : vectors) {
                deliver(MakeFromVector(table, view, row));
            }
        }
        cells += rows * vectors.size();
        duckdb_destroy_data_chunk(&chunk);
    }
    duckdb_destroy_result(&result);
    return cells;
}

uint64_t DrainSource(const Source& source) {
    const SourceConnection bare(source);
    return Drain(bare.get(), source.sql);
}

template <class Deliver>
uint64_t ReadProcedure(const Source& source, Deliver deliver) {
    mirona_cursor_def cursor{};
    CallProcedure(GetProcedure(source.procedure), source.arguments, cursor);
    uint64_t cells = 0;
    while (cursor.next_row(cursor.state) == MIRONA_ROW_OK) {
        for (uint32_t column = 0; column < cursor.column_count; ++column) {
            deliver(cursor.get_value(nullptr, cursor.state, static_cast<int32_t>(column)));
        }
        cells += cursor.column_count;
    }
    cursor.close(cursor.state);
    return cells;
}

void CheckSource(const std::string& what, const Source& source) {
    KeptValues expected;
    ReadVectorsThroughTable(source,
                            [&](mirona_value value) { expected.Keep(static_cast<nbx::I_Value*>(value)); });
    KeptValues actual;
    ReadProcedure(source, [&](mirona_value value) { actual.Keep(static_cast<nbx::I_Value*>(value)); });
    RequireSame(what, expected, actual);
}

Group MakeFetchGroup(const std::string& procedure, const std::string& workload, const Options& options) {
    const auto source = std::make_shared<Source>();
    Group group{procedure + "-" + workload, "cell", nullptr, {}};
    group.prepare = [=, &options] { *source = GetSource(procedure, workload, options); };
    group.cases = {{"drain", [=] { return DrainSource(*source); }, nullptr},
                   {"vectors", [=] { return ReadVectorsThroughTable(*source, UseAndRelease); }, nullptr},
                   {"procedure", [=] { return ReadProcedure(*source, UseAndRelease); }, nullptr}};
    group.check = [=, name = group.name] { CheckSource(name, *source); };
    if (workload == "W2" || workload == "W4") {
        group.module = "mduckdb_casts";  // returns correct cells for all their types
    }
    return group;
}

constexpr uint64_t kRandomRows = 2'000;

/** The rows of the tall file through a cursor of the procedure, and as a bare result with an index of its
    chunks. */
class TallRows {
  public:
    TallRows() = default;
    ~TallRows() {
        duckdb_destroy_result(&result_);
        if (cursor_.close != nullptr) {
            cursor_.close(cursor_.state);
        }
    }
    TallRows(const TallRows&) = delete;
    TallRows& operator=(const TallRows&) = delete;

    void Prepare(const Options& options) {
        const std::string file = GetTallParquet(options);
        CallProcedure(GetProcedure("fetch_parquet"), {file}, cursor_);
        const std::string sql = "SELECT * FROM read_parquet('" + file + "')";
        if (duckdb_query(bare_.get(), sql.c_str(), &result_) != DuckDBSuccess) {
            Die(duckdb_result_error(&result_));
        }
        for (idx_t i = 0; i < duckdb_result_chunk_count(result_); ++i) {
            duckdb_data_chunk chunk = duckdb_result_get_chunk(result_, i);
            first_rows_.push_back(row_count_);
            row_count_ += duckdb_data_chunk_get_size(chunk);
            duckdb_destroy_data_chunk(&chunk);
        }
    }

    template <class Deliver>
    uint64_t ReadByCursor(Deliver deliver) {
        std::mt19937_64 random(20260101);
        for (uint64_t i = 0; i < kRandomRows; ++i) {
            cursor_.go_to_row(cursor_.state, static_cast<int64_t>(random() % row_count_));
            deliver(cursor_.get_value(nullptr, cursor_.state, 0));
        }
        return kRandomRows;
    }

    template <class Deliver>
    uint64_t ReadBare(Deliver deliver) {
        std::mt19937_64 random(20260101);
        for (uint64_t i = 0; i < kRandomRows; ++i) {
            const idx_t row = random() % row_count_;
            const auto after = std::upper_bound(first_rows_.begin(), first_rows_.end(), row);
            const auto index = static_cast<idx_t>(after - first_rows_.begin()) - 1;
            duckdb_data_chunk chunk = duckdb_result_get_chunk(result_, index);
            duckdb_vector vector = duckdb_data_chunk_get_vector(chunk, 0);
            const VectorView view{DUCKDB_TYPE_BIGINT, DUCKDB_TYPE_INVALID, 1, duckdb_vector_get_data(vector),
                                  duckdb_vector_get_validity(vector)};
            deliver(MakeFromVector(GetHostTable(), view, row - first_rows_[index]));
            duckdb_destroy_data_chunk(&chunk);
        }
        return kRandomRows;
    }

    void Check() {
        KeptValues expected;
        ReadBare([&](mirona_value value) { expected.Keep(static_cast<nbx::I_Value*>(value)); });
        KeptValues actual;
        ReadByCursor([&](mirona_value value) { actual.Keep(static_cast<nbx::I_Value*>(value)); });
        RequireSame("go-to-row", expected, actual);
    }

  private:
    mirona_cursor_def cursor_{};
    BareDuckDB bare_{"", BareDuckDB::Access::reading, 0};
    duckdb_result result_{};
    std::vector<idx_t> first_rows_;
    idx_t row_count_ = 0;
};

Group MakeGoToRowGroup(const Options& options) {
    const auto rows = std::make_shared<std::unique_ptr<TallRows>>();
    Group group{"go-to-row", "row", nullptr, {}};
    group.prepare = [=, &options] {
        *rows = std::make_unique<TallRows>();
        (*rows)->Prepare(options);
    };
    group.cases = {{"bare", [=] { return (*rows)->ReadBare(UseAndRelease); }, nullptr},
                   {"procedure", [=] { return (*rows)->ReadByCursor(UseAndRelease); }, nullptr}};
    group.check = [=] { (*rows)->Check(); };
    return group;
}

}  // namespace

std::vector<Group> GetProcedureGroups(const Options& options) {
    std::vector<Group> groups;
    for (const char* procedure : {"fetch_parquet", "fetch_duckdb"}) {
        for (const char* workload : {"W1", "W2", "W3", "W4"}) {
            groups.push_back(MakeFetchGroup(procedure, workload, options));
        }
    }
    groups.push_back(MakeGoToRowGroup(options));
    return groups;
}

}  // namespace bench
