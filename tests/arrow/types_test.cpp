// Every type of column in an Arrow stream, compared with DuckDB's own export of the same query.
#include <regex>

#include "../cursor/cursor_fixture.h"
#include "arrow_reader.h"
#include "support/harmful_time.h"
#include "support/sample_values.h"
#include "support/temp_folder.h"
#include "support/test_engine.h"

namespace mduckdb {
namespace {

struct ArrowOptionsTraits {
    using Handle = duckdb_arrow_options;
    static void Destroy(Handle handle) noexcept { duckdb_destroy_arrow_options(&handle); }
};

void ExpectNoError(duckdb_error_data error) {
    if (error != nullptr) {
        ADD_FAILURE() << duckdb_error_data_message(error);
        duckdb_destroy_error_data(&error);
    }
}

/** DuckDB's own export on a connection of its own, with its setting for one without loss. */
class OwnExport {
  public:
    OwnExport() { Set("arrow_lossless_conversion = true"); }

    std::string Describe(const std::string& sql) {
        ResultHolder result = engine_.Query(sql);
        const Holder<ArrowOptionsTraits> options(duckdb_result_get_arrow_options(result.get()));
        std::vector<LogicalTypeHolder> types;
        std::vector<duckdb_logical_type> type_handles;
        std::vector<const char*> names;
        for (idx_t i = 0; i < duckdb_column_count(result.get()); ++i) {
            types.emplace_back(duckdb_column_logical_type(result.get(), i));
            type_handles.push_back(types.back().get());
            names.push_back(duckdb_column_name(result.get(), i));
        }
        OwnedSchema schema;
        ExpectNoError(duckdb_to_arrow_schema(options.get(), type_handles.data(), names.data(), names.size(),
                                             schema.get()));
        std::string text = mduckdb::Describe(*schema);
        while (const ChunkHolder chunk{duckdb_fetch_chunk(*result)}) {
            OwnedArray array;
            ExpectNoError(duckdb_data_chunk_to_arrow(options.get(), chunk.get(), array.get()));
            text += mduckdb::Describe(*schema, *array);
        }
        return text;
    }
    void Run(const std::string& sql) { engine_.Query(sql); }
    void Set(const std::string& setting) { Run("SET " + setting); }
    std::string TypeOf(const std::string& expression) {
        return engine_.QueryText("SELECT typeof(" + expression + ")").value_or("");
    }

  private:
    TestEngine engine_;
};

std::string DescribeStream(I_DuckDBCursor& cursor) {
    ArrowReader reader(cursor);
    int64_t count = 0;
    OwnedSchema schema = reader.Schema();
    return Describe(*schema) + reader.Rest(count);
}

class ArrowTypes : public testing::Test {
  protected:
    ArrowTypes() { database_->SqlExecute(FromUtf8("SET TimeZone = 'UTC'"), nullptr); }

    Cursor Select(const std::string& sql, uint32_t location) const {
        return database_->SqlSelect(FromUtf8(sql), location, nullptr);
    }
    void ExpectAsDuckDB(const std::string& sql, const std::string& own_sql) {
        const std::string expected = own_.Describe(own_sql);
        EXPECT_EQ(DescribeStream(*Select(sql, kServerCursor)), expected) << sql;
        // A stream reads its rows where the result has them; the second one finds them unchanged.
        const Cursor cursor = Select(sql, kClientCursor);
        EXPECT_EQ(DescribeStream(*cursor), expected) << sql;
        EXPECT_EQ(DescribeStream(*cursor), expected) << sql << ", once more";
    }
    void ExpectAsDuckDB(const std::string& sql) { ExpectAsDuckDB(sql, sql); }

    OwnExport own_;
    OpenedDatabase database_;
};

TEST_F(ArrowTypes, AreThoseOfDuckDBsOwnExportWithoutLoss) {
    for (const std::string& expression : get_SampleExpressions()) {
        const std::string type = own_.TypeOf(expression);
        if (type == "VARIANT") {
            continue;  // see below
        }
        const std::string as_json = std::regex_replace(type, std::regex("VARIANT"), "JSON");
        const std::string rows = " AS c FROM range(3)";
        ExpectAsDuckDB(
            "SELECT " + expression + rows,
            "SELECT " + (type == as_json ? expression : "(" + expression + ")::" + as_json) + rows);
    }
}

TEST_F(ArrowTypes, AreAllInOneRowNextToNulls) {
    // DuckDB's own example of each type; in the last of its rows every cell is NULL.
    ExpectAsDuckDB("FROM test_all_types()");
}

TEST_F(ArrowTypes, OfAVariantAreItsJsonText) {
    std::vector<std::string> expressions = get_VariantExpressions();
    expressions.insert(expressions.end(), {"NULL::VARIANT", "[1::VARIANT, 'x'::VARIANT]::VARIANT"});
    for (const std::string& expression : expressions) {
        // DuckDB casts a VARIANT that is NULL to the text "null".
        const std::string text = "CASE WHEN v IS NOT NULL THEN v::JSON END";
        ExpectAsDuckDB("SELECT " + expression + " AS c",
                       "SELECT " + text + " AS c FROM (SELECT " + expression + " AS v)");
    }
    const std::string rows = " FROM range(5000) r(i)";
    ExpectAsDuckDB(
        "SELECT {'v': i::VARIANT, 'l': [i::VARIANT, NULL]} AS c, [NULL, i::VARIANT]::VARIANT[2] AS a, "
        "MAP {i: NULL::VARIANT} AS m, CASE WHEN i % 2 = 0 THEN [i::VARIANT] END AS n" +
            rows,
        "SELECT {'v': i::JSON, 'l': [i::JSON, NULL]} AS c, [NULL, i::JSON]::JSON[2] AS a, "
        "MAP {i: NULL::JSON} AS m, CASE WHEN i % 2 = 0 THEN [i::JSON] END AS n" +
            rows);
}

TEST_F(ArrowTypes, OfAVariantAreNullWhereDuckDBMustNotReadIt) {
    const TempFolder folder;
    const std::string attach = "ATTACH '" + (folder / "times.duckdb") + "' AS file";
    {
        TestEngine engine;
        StoreHarmfulTime(engine);
        engine.Query(attach);
        engine.Query("CREATE TABLE file.times AS FROM times UNION ALL SELECT TIME '12:00'");
        engine.Query("DETACH file");
    }
    const std::string read_only = attach + " (READ_ONLY)";
    database_->SqlExecute(FromUtf8(read_only), nullptr);
    own_.Run(read_only);
    ExpectAsDuckDB(
        "SELECT t::VARIANT AS v, [t::VARIANT] AS l, {'t': t, 'n': 1::VARIANT} AS s FROM file.times",
        "SELECT CASE WHEN is_sound THEN '\"12:00:00\"'::JSON END AS v, "
        "CASE WHEN is_sound THEN ['\"12:00:00\"'::JSON] END AS l, {'t': t, 'n': '1'::JSON} AS s "
        "FROM (SELECT t, t = TIME '12:00' AS is_sound FROM file.times)");
}

TEST_F(ArrowTypes, NestInRowsOfSeveralChunks) {
    ExpectAsDuckDB(
        "SELECT i, CASE WHEN i % 3 > 0 THEN [i::VARCHAR, NULL] END AS l, {'a': i, 'b': [[i]]} AS s, "
        "MAP {i: 'text ' || i} AS m, [i, i + 1]::BIGINT[2] AS a, (i % 2 = 0) AS b, "
        "('v' || (i % 3))::ENUM('v0', 'v1', 'v2') AS e FROM range(5000) r(i)");
}

TEST_F(ArrowTypes, FollowTheSettingsOfTheConnection) {
    for (const char* const setting : {"TimeZone = 'Asia/Tokyo'", "arrow_large_buffer_size = true"}) {
        database_->SqlExecute(FromUtf8(std::string("SET ") + setting), nullptr);
        own_.Set(setting);
        ExpectAsDuckDB(
            "SELECT 'text' AS t, 'x'::BLOB AS b, [i] AS l, '2024-01-31 12:34:56+00'::TIMESTAMPTZ AS z "
            "FROM range(3) r(i)");
    }
}

TEST_F(ArrowTypes, WithoutLossAreNoSettingThatSqlSees) {
    const auto setting = [this] {
        const Cursor cursor =
            Select("SELECT current_setting('arrow_lossless_conversion')::VARCHAR", kServerCursor);
        cursor->NextRecord();
        return DescribeField(*cursor, 0);
    };
    const std::string before = setting();
    EXPECT_NE(DescribeStream(*Select("SELECT 1::HUGEINT", kServerCursor)).find("w:16"), std::string::npos);
    EXPECT_EQ(setting(), before);
}

}  // namespace
}  // namespace mduckdb
