// Numbers that their column's type does not allow, in tables and in Parquet files.
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <optional>

#include "cursor_fixture.h"
#include "duckdb_internals/plain_functions.h"
#include "support/expected_by_version.h"

namespace mduckdb {
namespace {

/** One column of a type, filled with raw numbers. The first is an ordinary value. */
struct RawColumn {
    const char* name;
    duckdb_type type;
    std::vector<int64_t> numbers;
    /** What a cursor returns for each number; a null pointer when it only has to survive. */
    std::vector<const char*> expected;
};

constexpr int64_t kMax = INT64_MAX;
constexpr int64_t kMin = INT64_MIN;

std::vector<RawColumn> GetRawColumns() {
    return {
        {"time",
         DUCKDB_TYPE_TIME,
         {0, -1, kMax, kMin, 86'400'000'000, 86'400'000'001, 1},
         {"String 00:00:00", "String ", "String ", "String ", "String 24:00:00", "String ",
          "String 00:00:00.000001"}},
        {"time_ns",
         DUCKDB_TYPE_TIME_NS,
         {0, -1, kMax, kMin, 86'400'000'000'001},
         {"String 00:00:00", "String ", "String ", "String ", "String "}},
        {"timestamp",
         DUCKDB_TYPE_TIMESTAMP,
         {0, kMax, -kMax, kMin, kMax - 1},
         {"String 1970-01-01 00:00:00", "String infinity", "String -infinity", nullptr,
          "String 294247-01-10 04:00:54.775806"}},
        {"timestamp_s",
         DUCKDB_TYPE_TIMESTAMP_S,
         {0, kMax, -kMax, kMin, kMax - 1, 1'000'000'000'000'000},
         {"String 1970-01-01 00:00:00", "String infinity", "String -infinity", nullptr, nullptr, nullptr}},
        {"timestamp_ms",
         DUCKDB_TYPE_TIMESTAMP_MS,
         {0, kMax, -kMax, kMin, kMax - 1},
         {"String 1970-01-01 00:00:00", "String infinity", "String -infinity", nullptr, nullptr}},
        {"timestamp_ns",
         DUCKDB_TYPE_TIMESTAMP_NS,
         {0, kMax, -kMax, kMin},
         {"String 1970-01-01 00:00:00", "String infinity", "String -infinity", nullptr}},
        {"timestamp_tz",
         DUCKDB_TYPE_TIMESTAMP_TZ,
         {0, kMax, -kMax, kMin},
         {"String 1970-01-01 00:00:00+00", "String infinity", "String -infinity", nullptr}},
        {"date",
         DUCKDB_TYPE_DATE,
         {0, INT32_MAX, -INT32_MAX, INT32_MIN},
         {"String 1970-01-01", "String infinity", "String -infinity", nullptr}},
    };
}

/** A database file with one table `raw` of the column's numbers. */
class HostileValues : public testing::TestWithParam<RawColumn> {
  protected:
    HostileValues()
        : folder_(std::filesystem::temp_directory_path() /
                  ("mduckdb_hostile_" + std::to_string(getpid()) + "_" + GetParam().name)) {
        std::filesystem::create_directories(folder_);
        database_.emplace((folder_ / "raw.db").string());
        MakeTable();
    }
    ~HostileValues() override {
        database_.reset();
        std::filesystem::remove_all(folder_);
    }

    void MakeTable() {
        const RawColumn& column = GetParam();
        LogicalTypeHolder type(duckdb_create_logical_type(column.type));
        const TextHolder type_name(duckdb_logical_type_to_string(type.get()));
        database_->Query(std::string("CREATE TABLE raw(x ") + type_name.get() + ")");
        duckdb_logical_type types[] = {type.get()};
        const ChunkHolder chunk(duckdb_create_data_chunk(types, 1));
        void* data = duckdb_vector_get_data(duckdb_data_chunk_get_vector(chunk.get(), 0));
        for (std::size_t i = 0; i < column.numbers.size(); ++i) {
            if (column.type == DUCKDB_TYPE_DATE) {
                static_cast<int32_t*>(data)[i] = static_cast<int32_t>(column.numbers[i]);
            } else {
                static_cast<int64_t*>(data)[i] = column.numbers[i];
            }
        }
        duckdb_data_chunk_set_size(chunk.get(), column.numbers.size());
        duckdb_appender appender = nullptr;
        ASSERT_EQ(duckdb_appender_create(database_->get_Connection(), nullptr, "raw", &appender),
                  DuckDBSuccess);
        EXPECT_EQ(duckdb_append_data_chunk(appender, chunk.get()), DuckDBSuccess);
        EXPECT_EQ(duckdb_appender_destroy(&appender), DuckDBSuccess);
    }

    /** Reads every row of the query; nothing when DuckDB refuses it with an ordinary error. */
    std::vector<std::string> ReadAll(const std::string& sql, uint32_t location) {
        ResultHolder result;
        if (duckdb_query(database_->get_Connection(), sql.c_str(), result.Receive()) != DuckDBSuccess) {
            EXPECT_NE(duckdb_result_error(result.get()), nullptr);
            return {};
        }
        const Cursor cursor = database_->Open(std::move(result), location);
        std::vector<std::string> fields;
        while (cursor->NextRecord()) {
            fields.push_back(DescribeField(*cursor, 0));
        }
        return fields;
    }

    void ExpectRows(const std::vector<std::string>& fields) {
        const RawColumn& column = GetParam();
        ASSERT_EQ(fields.size(), column.expected.size());
        for (std::size_t i = 0; i < fields.size(); ++i) {
            if (column.expected[i] != nullptr) {
                EXPECT_EQ(fields[i], column.expected[i]) << column.name << " " << column.numbers[i];
            } else {
                EXPECT_EQ(fields[i].rfind("String ", 0), 0U) << column.name << " " << column.numbers[i];
            }
        }
    }

    std::filesystem::path folder_;
    std::optional<OpenedDatabase> database_;
};

INSTANTIATE_TEST_SUITE_P(Columns, HostileValues, testing::ValuesIn(GetRawColumns()),
                         [](const auto& column) { return std::string(column.param.name); });

TEST_P(HostileValues, InATableAffectNoOtherCell) {
    for (const uint32_t location : {kServerCursor, kClientCursor}) {
        ExpectRows(ReadAll("SELECT x FROM raw", location));
    }
}

TEST_P(HostileValues, LeaveTheEngineUsableForOthers) {
    nbx::smart_ptr<DuckDBDatabase> other =
        nbx::MakeObject<DuckDBDatabase>(nbx::CreateLocation(FromUtf8((folder_ / "raw.db").string())));
    other->Open();
    for (const uint32_t location : {kServerCursor, kClientCursor}) {
        ReadAll("SELECT x FROM raw", location);
        ReadAll("SELECT [x] FROM raw", location);
        EXPECT_EQ(other->SqlExecute(FromUtf8("CREATE OR REPLACE TABLE mine (i INTEGER)"), nullptr), 0);
    }
}

TEST_P(HostileValues, InsideListsStructsMapsAndVARIANTsAreSurvived) {
    for (const char* expression : {"[x]", "{'a': x}", "MAP {'k': x}", "[[x], NULL]", "x::VARIANT",
                                   "[x]::VARIANT", "union_value(u := x)"}) {
        for (const uint32_t location : {kServerCursor, kClientCursor}) {
            const auto fields = ReadAll(std::string("SELECT ") + expression + " FROM raw LIMIT 1", location);
            ASSERT_EQ(fields.size(), 1U) << expression;
            EXPECT_NE(fields[0].find(GetParam().expected[0] + std::strlen("String ")), std::string::npos)
                << expression << ": " << fields[0];
            ReadAll(std::string("SELECT ") + expression + " FROM raw", location);
        }
    }
}

TEST_P(HostileValues, InAListEmptyItsTextWhenTheElementHasNone) {
    const auto fields = ReadAll("SELECT [x] FROM raw", kServerCursor);
    ASSERT_EQ(fields.size(), GetParam().expected.size());
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (GetParam().expected[i] != nullptr && std::strcmp(GetParam().expected[i], "String ") == 0) {
            EXPECT_EQ(fields[i], "String ") << GetParam().numbers[i];
        }
    }
}

TEST_P(HostileValues, InAParquetFileAffectNoOtherCell) {
    const std::string file = (folder_ / "raw.parquet").string();
    ResultHolder copied;
    if (duckdb_query(database_->get_Connection(), ("COPY raw TO '" + file + "'").c_str(), copied.Receive()) !=
        DuckDBSuccess) {
        const auto& refused = get_ExpectedByVersion().refused_by_parquet;
        EXPECT_NE(std::find(refused.begin(), refused.end(), GetParam().type), refused.end())
            << duckdb_result_error(copied.get());
        return;
    }
    for (const uint32_t location : {kServerCursor, kClientCursor}) {
        const auto fields = ReadAll("SELECT x FROM '" + file + "'", location);
        // Some files are refused as a whole: a time in milliseconds may not fit into microseconds.
        if (!fields.empty()) {
            EXPECT_EQ(fields.size(), GetParam().expected.size());
            EXPECT_EQ(fields[0], GetParam().expected[0]);
        }
        ReadAll("SELECT [x] FROM '" + file + "'", location);
    }
    EXPECT_EQ(database_->Select("SELECT 1", kClientCursor)->get_RecordCount(), 1U);
}

}  // namespace
}  // namespace mduckdb
