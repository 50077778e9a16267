#include <algorithm>
#include <cstring>
#include <deque>
#include <memory>

#include "groups.h"
#include "item_tables.h"
#include "nbx/mrsql/duckdb_appender.h"

namespace bench {
namespace {

using nbx::mrsql::DuckDBBytes;
using nbx::mrsql::DuckDBColumnArray;
using nbx::mrsql::I_DuckDBAppender;

/** One column as an array of C. */
struct PlainColumn {
    duckdb_type type = DUCKDB_TYPE_INVALID;
    uint8_t width = 0;
    uint8_t scale = 0;
    std::size_t size = 0;
    std::vector<char> elements;
    /** Of the texts. */
    std::deque<std::string> texts;
};

struct Fixture {
    ItemTables tables;
    /** The same rows twice, and the first few. */
    nbx::smart_ptr<nbx::ValueRows> host_rows;
    std::vector<PlainColumn> columns;
    uint64_t row_count = 0;
    nbx::smart_ptr<nbx::ValueRows> few_host_rows;
};

/** Five times the rows that the module stores at a time, three times those that DuckDB's appender does.
   DuckDB moves as many rows into the table as they are, but copies the fewer rows of a last transaction once
   more: with another number the comparison would depend on how many rows that are. */
constexpr uint64_t kRows = 614'400;
constexpr uint64_t kFewRows = 5'000;

std::size_t SizeOf(duckdb_type type) {
    switch (type) {
        case DUCKDB_TYPE_SMALLINT:
            return sizeof(int16_t);
        case DUCKDB_TYPE_INTEGER:
        case DUCKDB_TYPE_DATE:
            return sizeof(int32_t);
        case DUCKDB_TYPE_BIGINT:
        case DUCKDB_TYPE_DOUBLE:
        case DUCKDB_TYPE_DECIMAL:
            return sizeof(int64_t);
        case DUCKDB_TYPE_VARCHAR:
            return sizeof(DuckDBBytes);
        default:
            Die("no array for a column of type " + std::to_string(type));
    }
}

void AddChunk(PlainColumn& column, duckdb_vector vector, idx_t count) {
    const auto* const data = static_cast<const char*>(duckdb_vector_get_data(vector));
    if (column.type != DUCKDB_TYPE_VARCHAR) {
        column.elements.insert(column.elements.end(), data, data + count * column.size);
        return;
    }
    for (idx_t i = 0; i < count; ++i) {
        duckdb_string_t text = reinterpret_cast<const duckdb_string_t*>(data)[i];
        const std::string& kept =
            column.texts.emplace_back(duckdb_string_t_data(&text), duckdb_string_t_length(text));
        const DuckDBBytes bytes{kept.data(), kept.size()};
        const auto* const raw = reinterpret_cast<const char*>(&bytes);
        column.elements.insert(column.elements.end(), raw, raw + sizeof(bytes));
    }
}

void TakeColumns(Fixture& fixture, const Workload& workload, const std::string& sql) {
    const BareDuckDB source(workload.bare_database);
    duckdb_result result;
    if (duckdb_query(source.get(), sql.c_str(), &result) != DuckDBSuccess) {
        Die(duckdb_result_error(&result));
    }
    fixture.columns.resize(duckdb_column_count(&result));
    for (idx_t i = 0; i < fixture.columns.size(); ++i) {
        PlainColumn& column = fixture.columns[i];
        column.type = duckdb_column_type(&result, i);
        column.size = SizeOf(column.type);
        if (column.type == DUCKDB_TYPE_DECIMAL) {
            duckdb_logical_type type = duckdb_column_logical_type(&result, i);
            column.width = duckdb_decimal_width(type);
            column.scale = duckdb_decimal_scale(type);
            duckdb_destroy_logical_type(&type);
        }
    }
    while (duckdb_data_chunk chunk = duckdb_fetch_chunk(result)) {
        const idx_t count = duckdb_data_chunk_get_size(chunk);
        for (idx_t i = 0; i < fixture.columns.size(); ++i) {
            AddChunk(fixture.columns[i], duckdb_data_chunk_get_vector(chunk, i), count);
        }
        fixture.row_count += count;
        duckdb_destroy_data_chunk(&chunk);
    }
    duckdb_destroy_result(&result);
}

void PrepareFixture(Fixture& fixture, const std::string& name, uint64_t count, const Options& options) {
    const Workload workload = GetWorkload(name, options);
    fixture.tables.Open(workload);
    TakeColumns(fixture, workload, GetFirstRowsQuery(workload, count));
    fixture.host_rows = TakeHostRows(workload, count);
    fixture.few_host_rows = TakeHostRows(workload, std::min(count, kFewRows));
}

void FillVector(duckdb_vector vector, const PlainColumn& column, uint64_t first, idx_t count) {
    const char* const elements = column.elements.data() + first * column.size;
    if (column.type != DUCKDB_TYPE_VARCHAR) {
        std::memcpy(duckdb_vector_get_data(vector), elements, count * column.size);
        return;
    }
    const auto* const texts = reinterpret_cast<const DuckDBBytes*>(elements);
    for (idx_t i = 0; i < count; ++i) {
        duckdb_vector_assign_string_element_len(vector, i, texts[i].data, texts[i].length);
    }
}

/** DuckDB's own appender, filled chunk by chunk. */
uint64_t RunBare(const Fixture& fixture) {
    duckdb_appender appender = nullptr;
    if (duckdb_appender_create(fixture.tables.bare->get(), nullptr, "items", &appender) != DuckDBSuccess) {
        Die("no appender");
    }
    std::vector<duckdb_logical_type> types;
    for (idx_t i = 0; i < fixture.columns.size(); ++i) {
        types.push_back(duckdb_appender_column_type(appender, i));
    }
    duckdb_data_chunk chunk = duckdb_create_data_chunk(types.data(), types.size());
    const idx_t chunk_size = duckdb_vector_size();
    for (uint64_t first = 0; first < fixture.row_count; first += chunk_size) {
        const idx_t count = std::min(chunk_size, fixture.row_count - first);
        duckdb_data_chunk_reset(chunk);
        for (idx_t i = 0; i < types.size(); ++i) {
            FillVector(duckdb_data_chunk_get_vector(chunk, i), fixture.columns[i], first, count);
        }
        duckdb_data_chunk_set_size(chunk, count);
        if (duckdb_append_data_chunk(appender, chunk) != DuckDBSuccess) {
            Die("a chunk is not appended");
        }
    }
    duckdb_destroy_data_chunk(&chunk);
    for (duckdb_logical_type& type : types) {
        duckdb_destroy_logical_type(&type);
    }
    if (duckdb_appender_destroy(&appender) != DuckDBSuccess) {
        Die("the rows are not flushed");
    }
    return fixture.row_count;
}

nbx::smart_ptr<I_DuckDBAppender> MakeAppender(const Fixture& fixture) {
    nbx::mrsql::DuckDBAppenderOptions options;
    options.table = nbx::String("items");
    return static_cast<nbx::mrsql::I_DuckDBAppenders*>(
               fixture.tables.database->QueryInterface(nbx::mrsql::kDuckDBAppendersInterfaceId))
        ->CreateAppender(options);
}

uint64_t RunRows(const Fixture& fixture) {
    const auto appender = MakeAppender(fixture);
    for (std::size_t i = 0; i < fixture.host_rows->get_Count(); ++i) {
        appender->AppendRow(fixture.host_rows->get_Item(i));
    }
    appender->Close();
    return fixture.host_rows->get_Count();
}

uint64_t RunColumns(const Fixture& fixture) {
    std::vector<DuckDBColumnArray> arrays;
    for (const PlainColumn& column : fixture.columns) {
        DuckDBColumnArray& array = arrays.emplace_back();
        array.type = column.type;
        array.data = column.elements.data();
        array.width = column.width;
        array.scale = column.scale;
    }
    const auto appender = MakeAppender(fixture);
    appender->AppendColumns(arrays.data(), static_cast<uint32_t>(arrays.size()), fixture.row_count);
    appender->Close();
    return fixture.row_count;
}

Group MakeAppendGroup(const std::string& name, uint64_t full, const Options& options) {
    const auto fixture = std::make_shared<Fixture>();
    const uint64_t count = Scaled(full, options);
    const auto clean = [=] { fixture->tables.Clear(); };
    Group group{"append-" + name, "row", nullptr, {}};
    group.prepare = [=, &options] { PrepareFixture(*fixture, name, count, options); };
    group.cases = {
        {"bare", [=] { return RunBare(*fixture); }, clean},
        {"module", [=] { return RunRows(*fixture); }, clean},
        {"columns", [=] { return RunColumns(*fixture); }, clean},
        {"parameters", [=] { return InsertAsParameters(fixture->tables, fixture->few_host_rows); }, clean}};
    group.check = [=] {
        RunBare(*fixture);
        RunRows(*fixture);
        fixture->tables.RequireSame("append-" + name);
        clean();
        RunBare(*fixture);
        RunColumns(*fixture);
        fixture->tables.RequireSame("append-columns-" + name);
    };
    return group;
}

}  // namespace

std::vector<Group> GetAppendGroups(const Options& options) {
    return {MakeAppendGroup("W1", kRows, options), MakeAppendGroup("W2", kRows, options)};
}

}  // namespace bench
