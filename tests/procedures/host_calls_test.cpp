// Each call that a procedure makes to the host fails in turn, or enters the module again before it answers.
#include <gmock/gmock.h>

#include <functional>
#include <map>

#include "engines/idle_engines.h"
#include "limited_calls.h"

namespace mduckdb::test {
namespace {

using ::testing::IsEmpty;
using ::testing::StartsWith;

/** What the module's next calls of the host lead to. Plain globals: the table's functions have no state. */
struct Plan {
    /** Which position of the table, by name, and the number of its call at which something happens; 0: none.
     */
    std::string position;
    uint64_t call = 0;
    /** Before the host answers; null: it fails. */
    std::function<void()> before;
    std::map<std::string, uint64_t> calls;
};
Plan gPlan;
const mirona_extension_api* gSound = nullptr;

/** Whether this call of the host fails. */
bool Fails(const std::string& position) {
    if (++gPlan.calls[position] != gPlan.call || gPlan.position != position) {
        return false;
    }
    if (!gPlan.before) {
        return true;
    }
    std::exchange(gPlan.before, nullptr)();
    return false;
}

/** A position of the table that follows the plan: its function's name, and what it returns when it fails. */
template <auto kFunction, const char* kName, uint32_t kFailure>
struct Planned;
template <class R, class... A, R (*mirona_extension_api::*kFunction)(A...), const char* kName,
          uint32_t kFailure>
struct Planned<kFunction, kName, kFailure> {
    static R Call(A... arguments) {
        if (!Fails(kName)) {
            return (gSound->*kFunction)(arguments...);
        }
        if constexpr (std::is_pointer_v<R>) {
            return nullptr;
        } else {
            return static_cast<R>(kFailure);
        }
    }
    static void Install(mirona_extension_api& api) { api.*kFunction = &Call; }
};

#define POSITION(name, failure)                                                 \
    {                                                                           \
        static constexpr char kName[] = #name;                                  \
        Planned<&mirona_extension_api::name, kName, failure>::Install(planned); \
    }

mirona_extension_api MakePlannedTable(const mirona_extension_api& sound) {
    gSound = &sound;
    mirona_extension_api planned = sound;
    POSITION(arg_count, 0)
    POSITION(create_table_cursor, 1)
    POSITION(create_cursor, 1)
    POSITION(make_blob_value, 0)
    POSITION(make_bool_value, 0)
    POSITION(make_date_value, 0)
    POSITION(make_datetime_value, 0)
    POSITION(make_double_value, 0)
    POSITION(make_int_value, 0)
    POSITION(make_text_value, 0)
    POSITION(make_time_value, 0)
    POSITION(make_uint_value, 0)
    POSITION(value_is_null, 1)
    POSITION(value_type, MIRONA_TYPE_UNKNOWN)
    POSITION(array_length, 0)
    POSITION(array_element, 0)
    POSITION(value_int64, 0)
    POSITION(value_uint64, 0)
    POSITION(value_text, 0)
    return planned;
}

#undef POSITION

/** The rows of a call, each a list of its cells, or what was reported. */
struct Outcome {
    bool operator==(const Outcome&) const = default;
    std::vector<std::vector<std::string>> rows;
    std::string report;
};

class HostCallsTest : public LimitedCalls {
  protected:
    HostCallsTest() : planned_(MakePlannedTable(host_.get_Api())) {
        BindApi(&planned_);
        gPlan = {};
        RunAlone(nullptr, "COPY (" + kRows + ") TO '" + parquet_ + "' (FORMAT parquet)");
        RunAlone(database_.c_str(), "CREATE TABLE t AS " + kRows);
    }
    ~HostCallsTest() override {
        host_.CloseCursor();
        gPlan = {};
        BindApi(&host_.get_Api());
    }

    template <class Procedure>
    static Outcome Run(FakeHost& host, std::vector<FakeValue*> arguments) {
        host.reports.clear();
        const mirona_cursor cursor = host.Call<Procedure>(std::move(arguments));
        Outcome outcome;
        EXPECT_EQ(cursor == nullptr ? 1U : 0U, host.reports.size());
        if (!host.reports.empty()) {
            outcome.report = host.reports.front();
        } else if (host.has_cursor) {
            while (host.cursor.next_row(host.cursor.state) == MIRONA_ROW_OK) {
                std::vector<std::string>& row = outcome.rows.emplace_back();
                for (uint32_t column = 0; column < host.cursor.column_count; ++column) {
                    row.push_back(host.Cell(static_cast<int32_t>(column)));
                }
            }
        }
        host.CloseCursor();
        return outcome;
    }

    using Operation = std::function<Outcome(FakeHost&)>;
    std::map<std::string, Operation> MakeOperations() {
        return {
            {"fetch_parquet",
             [this](FakeHost& host) {
                 return Run<FetchParquet>(
                     host, {host.Text(parquet_), host.Array({host.Text("i"), host.Null(), host.Text("s")}),
                            host.Text("i >= 0"), host.Int(3)});
             }},
            {"fetch_parquet, all columns",
             [this](FakeHost& host) { return Run<FetchParquet>(host, {host.Text(parquet_)}); }},
            {"parquet_schema",
             [this](FakeHost& host) { return Run<ParquetSchema>(host, {host.Text(parquet_)}); }},
            {"parquet_metadata",
             [this](FakeHost& host) { return Run<ParquetMetadata>(host, {host.Text(parquet_)}); }},
            {"parquet_count",
             [this](FakeHost& host) {
                 return Run<ParquetCount>(host, {host.Text(parquet_), host.Text("i > 0")});
             }},
            {"fetch_duckdb",
             [this](FakeHost& host) {
                 return Run<FetchDuckDB>(host, {host.Text(database_), host.Text("t"), UnsignedTwo(host)});
             }},
        };
    }

    static FakeValue* UnsignedTwo(FakeHost& host) {
        FakeValue* const value = host.Int(2);
        value->type = MIRONA_TYPE_UINT64;
        return value;
    }

    /** The rows that parquet_count finds while another call of the same host runs. */
    std::string CountMeanwhile() {
        const uint32_t arguments = std::exchange(host_.argument_count, 1);
        const mirona_cursor_def cursor = host_.cursor;
        const bool has_cursor = host_.has_cursor;
        mirona_value uri = host_.Text(parquet_);
        EXPECT_NE(nullptr, HandleCall<ParquetCount>(host_.get_Call(), &uri));
        EXPECT_EQ(MIRONA_ROW_OK, host_.cursor.next_row(host_.cursor.state));
        std::string count = host_.Cell(0);
        host_.cursor.close(host_.cursor.state);
        host_.cursor = cursor;
        host_.has_cursor = has_cursor;
        host_.argument_count = arguments;
        return count;
    }

    /** The number of calls of each position in an undisturbed run. */
    std::map<std::string, uint64_t> Count(const Operation& operation) {
        gPlan = {};
        operation(host_);
        return gPlan.calls;
    }

    /** Runs the operation once for each call of each position, with what happens there. */
    void ForEachCall(const std::function<void(const std::string& name, const Operation&)>& run,
                     const std::function<void()>& before) {
        for (const auto& [name, operation] : MakeOperations()) {
            const auto all = Count(operation);
            for (const auto& [position, count] : all) {
                // Each row is read alike: the first calls are enough of those that are made for each cell.
                for (uint64_t call = 1; call <= std::min<uint64_t>(count, 12); ++call) {
                    SCOPED_TRACE(name + ", call " + std::to_string(call) + " of " + position);
                    gPlan = {position, call, before, {}};
                    run(name, operation);
                    gPlan = {};
                    ++cases_;
                }
            }
        }
    }

    /** Reads all columns once for each value that the host makes for them, with `before` at that call. */
    void ForEachMadeValue(const std::function<void()>& before,
                          const std::function<void(const Outcome& sound, const Outcome& outcome)>& check) {
        const Operation operation = MakeOperations().at("fetch_parquet, all columns");
        const Outcome sound = operation(host_);
        for (const auto& [position, count] : Count(operation)) {
            for (uint64_t call = 1; position.starts_with("make_") && call <= count; ++call) {
                SCOPED_TRACE("call " + std::to_string(call) + " of " + position);
                gPlan = {position, call, before, {}};
                check(sound, operation(host_));
                ++cases_;
            }
        }
        EXPECT_GT(cases_, 30U);
    }

    static const std::string kRows;
    std::string parquet_ = folder_ / "rows.parquet";
    std::string database_ = folder_ / "rows.db";
    uint64_t cases_ = 0;

  private:
    mirona_extension_api planned_;
};

const std::string HostCallsTest::kRows =
    "SELECT i::INTEGER AS i, 'text ' || i AS s, i::UTINYINT AS u, i / 2 AS d, i % 2 = 0 AS b, "
    "encode('blob ' || i) AS x, DATE '2024-01-01' + i::INTEGER AS day, TIME '10:00:00' AS t, "
    "TIMESTAMP '2024-01-01 10:00:00' AS ts, i::UBIGINT AS ub FROM range(4) r(i)";

/** How many cells differ; more than any table has, when the rows do. */
uint64_t CountDifferences(const Outcome& left, const Outcome& right) {
    if (left.rows.size() != right.rows.size()) {
        return UINT64_MAX;
    }
    uint64_t count = 0;
    for (std::size_t row = 0; row < left.rows.size(); ++row) {
        for (std::size_t i = 0; i < left.rows[row].size(); ++i) {
            count += static_cast<uint64_t>(left.rows[row][i] != right.rows[row].at(i));
        }
    }
    return count;
}

TEST_F(HostCallsTest, AreMadeToEveryNamedPosition) {
    std::map<std::string, uint64_t> all;
    for (const auto& [name, operation] : MakeOperations()) {
        all.merge(Count(operation));
    }
    EXPECT_EQ(19U, all.size()) << ::testing::PrintToString(all);
}

TEST_F(HostCallsTest, ThatMakeNoValueLeaveOneCellEmpty) {
    std::map<std::string, Outcome> sound;
    for (const auto& [name, operation] : MakeOperations()) {
        sound[name] = operation(host_);
        ASSERT_THAT(sound[name].report, IsEmpty()) << name;
    }
    ForEachCall(
        [&](const std::string& name, const Operation& operation) {
            const bool makes_value = gPlan.position.starts_with("make_");
            const Outcome outcome = operation(host_);
            if (makes_value) {
                EXPECT_THAT(outcome.report, IsEmpty());
                EXPECT_EQ(name == "parquet_schema" ? 0U : 1U, CountDifferences(sound[name], outcome));
            } else if (gPlan.position.starts_with("create_")) {
                EXPECT_THAT(outcome.report, StartsWith("Unable to create "));
            }
            gPlan = {};
            EXPECT_EQ(sound[name], operation(host_)) << "the next call";
        },
        nullptr);
    EXPECT_GT(cases_, 150U);
}

TEST_F(HostCallsTest, ThatRunAnotherProcedureChangeNoResult) {
    std::map<std::string, Outcome> sound;
    for (const auto& [name, operation] : MakeOperations()) {
        sound[name] = operation(host_);
    }
    ForEachCall(
        [&](const std::string& name, const Operation& operation) {
            EXPECT_EQ(sound[name], operation(host_));
            EXPECT_FALSE(gPlan.before) << "nothing happened";
        },
        [&] { EXPECT_EQ("4", CountMeanwhile()); });
    EXPECT_GT(cases_, 150U);
}

TEST_F(HostCallsTest, ThatReadTheSameCursorChangeNoCell) {
    std::string again;
    ForEachMadeValue(
        [&] {
            again = host_.Cell(1);
            EXPECT_EQ(4U, host_.cursor.row_count(host_.cursor.state));
            EXPECT_EQ("NULL", host_.Cell(99));
        },
        [&](const Outcome& sound, const Outcome& outcome) {
            EXPECT_EQ(sound, outcome);
            EXPECT_THAT(std::exchange(again, ""), StartsWith("text "));
        });
}

TEST_F(HostCallsTest, ThatMoveTheSameCursorLeaveItWhereTheyMovedItTo) {
    ForEachMadeValue(
        [&] {
            EXPECT_EQ(MIRONA_ROW_OK, host_.cursor.go_to_row(host_.cursor.state, 2));
            EXPECT_EQ(MIRONA_ROW_END, host_.cursor.go_to_row(host_.cursor.state, 4));
        },
        [](const Outcome& sound, const Outcome& outcome) {
            EXPECT_THAT(outcome.report, IsEmpty());
            ASSERT_FALSE(outcome.rows.empty());
            EXPECT_EQ(sound.rows.back(), outcome.rows.back()) << "the row after the one that it moved to";
        });
}

}  // namespace
}  // namespace mduckdb::test
