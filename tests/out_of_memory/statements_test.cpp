#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <stdexcept>

#include "../statement/statement_fixture.h"
#include "each_allocation.h"
#include "nbx/mrsql/duckdb_error_facts.h"
#include "nbx/mrsql/duckdb_written_statements.h"
#include "support/test_host.h"

namespace mduckdb::test {
namespace {

using nbx::ValueType;

// ---- Executing.

/** What is tried on a database with the table `t (i INTEGER, s VARCHAR)`. */
struct Execution {
    const char* name;
    std::string (*act)(nbx::mrsql::I_DuckDBDatabase& database, smart_ptr<I_DuckDBStatement>& statement);
    /** Of the statement, which is recreated before each attempt. */
    const char* sql = "INSERT INTO t VALUES ($1, $2)";
    void (*prepare)(I_DuckDBStatement& statement) = [](I_DuckDBStatement&) {};
    std::string error = kBadAlloc;
};

void PrepareWithParameters(I_DuckDBStatement& statement) {
    statement.PrepareNext();
    statement.put_Parameters(Row({Long(1), Str("a text that is not short")}));
}

std::string DescribeResult(I_DuckDBQueryResult& result) {
    return Quietly(
        [&] { return std::to_string(result.get_Flags()) + " " + std::to_string(result.get_RowsChanged()); });
}

std::string Number(int64_t number) {
    return Quietly([number] { return std::to_string(number); });
}

const Execution kExecutions[] = {
    {"Script",
     [](nbx::mrsql::I_DuckDBDatabase& d, auto&) {
         static const String sql = S("INSERT INTO t VALUES (1, 'one'), (2, 'two')");
         return Number(d.SqlExecute(sql, nullptr));
     }},
    {"WithParameters",
     [](nbx::mrsql::I_DuckDBDatabase& d, auto&) {
         static const String sql = S("INSERT INTO t VALUES (?, ?)");
         static const auto row = Row({Long(1), Str("a text that is not short")});
         return Number(d.SqlExecute(sql, row));
     }},
    {"QueryOfChangedRows",
     [](nbx::mrsql::I_DuckDBDatabase& d, auto&) {
         static const String sql = S("INSERT INTO t VALUES (1, 'one')");
         return DescribeResult(*d.SqlQuery(sql, 1, nullptr));
     }},
    {"QueryWithParameters",
     [](nbx::mrsql::I_DuckDBDatabase& d, auto&) {
         static const String sql = S("INSERT INTO t VALUES (?, ?)");
         static const auto row = Row({Long(1), Str("a text that is not short")});
         return DescribeResult(*d.SqlQuery(sql, 1, row));
     }},
    {"CreateStatement",
     [](nbx::mrsql::I_DuckDBDatabase& d, auto& statement) {
         static const String sql = S("INSERT INTO t VALUES (1, 'one')");
         statement = d.CreateStatement(sql);
         const String text = statement->get_SqlText();
         return Quietly([&] { return U(text); });
     }},
    {"PrepareNext",
     [](auto&, auto& statement) {
         statement->PrepareNext();
         return Number(static_cast<int64_t>(statement->get_PendingCount()));
     },
     "INSERT INTO t VALUES (1, 'one'); SELECT 2"},
    {"ExecuteNext",
     [](auto&, auto& statement) {
         int64_t changed = 0;
         const bool has_more = statement->ExecuteNext(changed);
         return Number(changed * 10 + (has_more ? 1 : 0));
     },
     "INSERT INTO t VALUES (1, 'one'); SELECT 2"},
    {"Execute", [](auto&, auto& statement) { return Number(statement->Execute()); },
     "INSERT INTO t VALUES ($1, $2)", PrepareWithParameters},
    {"ExecuteOfOneRow", [](auto&, auto& statement) { return Number(statement->Execute()); },
     "INSERT INTO t VALUES ($1, $2)",
     [](I_DuckDBStatement& statement) {
         statement.PrepareNext();
         statement.put_ParameterRows(Rows({Row({Long(1), Str("a text that is not short")})}));
     }},
    {"ExecuteToQueryResult",
     [](auto&, auto& statement) { return DescribeResult(*statement->ExecuteToQueryResult(1)); },
     "INSERT INTO t VALUES ($1, $2)", PrepareWithParameters},
    {"ExecuteNextWritten",
     [](auto&, auto& statement) {
         auto* written = static_cast<nbx::mrsql::I_DuckDBWrittenStatements*>(
             statement->QueryInterface(nbx::mrsql::kDuckDBWrittenStatementsInterfaceId));
         int64_t changed = 0;
         written->ExecuteNextWritten(changed);
         return Number(changed);
     },
     "ALTER TABLE t ADD COLUMN d TIMESTAMP DEFAULT now()"},
    {"TryExecuteAll",
     [](auto&, auto& statement) {
         nbx::mrsql::DuckDBExecutionResult outcome;
         try {
             outcome = statement->TryExecuteAll();
         } catch (...) {
             const allocation_faults::Pause pause;
             ADD_FAILURE() << "TryExecuteAll has thrown";
             throw;
         }
         const allocation_faults::Pause pause;
         const std::string text = U(outcome.error_message);
         EXPECT_TRUE(text.empty() || (outcome.error_code != 0 && text == "Unexpected DuckDB error")) << text;
         if (outcome.error_code != 0) {
             EXPECT_EQ(outcome.statements_executed, 0u);
             throw std::runtime_error(std::to_string(outcome.error_code));
         }
         return std::to_string(outcome.statements_executed);
     },
     "INSERT INTO t VALUES (1, 'one')", [](I_DuckDBStatement&) {}, "std: 466944"},
};

class ExecutionOutOfMemory : public StatementTest, public testing::WithParamInterface<Execution> {};

TEST_P(ExecutionOutOfMemory, IsAnErrorThatStoresNothingOrIsWhole) {
    const Execution& execution = GetParam();
    Direct("CREATE TABLE t (i INTEGER, s VARCHAR)");
    smart_ptr<I_DuckDBStatement> statement;
    Operation operation;
    operation.errors = {execution.error};
    operation.prepare = [&] {
        Direct("CREATE OR REPLACE TABLE t (i INTEGER, s VARCHAR)");
        statement = Make(execution.sql);
        execution.prepare(*statement);
    };
    operation.act = [&] { return execution.act(*database_, statement); };
    operation.look = [&] {
        std::string seen = std::to_string(database_->get_RefsCount());
        for (const auto& row : Direct("SELECT count(*), min(s), max(i) FROM t")) {
            seen += " " + row[0] + " " + row[1] + " " + row[2];
        }
        return seen + " " + Scalar("SELECT count(*) FROM duckdb_columns() WHERE table_name = 't'");
    };
    EXPECT_GT(FailEach(operation), 0u);
}
INSTANTIATE_TEST_SUITE_P(Every, ExecutionOutOfMemory, testing::ValuesIn(kExecutions), NameOf<Execution>);

/** Rows are executed one by one; each is whole or not there. */
class RowsOutOfMemory : public StatementTest {
  protected:
    /** Lets allocations of an execution of three rows fail, one in each attempt; calls
        `judge(statement, has_failed)` after each. */
    template <class Judge>
    void FailEach(const char* before, Judge judge) {
        constexpr uint64_t kSamples = 40;
        const auto rows = Rows({Row({Long(1), Str("the first of the texts")}),
                                Row({Long(2), Str("the second of the texts")}),
                                Row({Long(3), Str("the third of the texts")})});
        uint64_t allocations = 0;
        for (uint64_t i = 0; i <= kSamples; ++i) {
            Direct("CREATE OR REPLACE TABLE t (i INTEGER, s VARCHAR)");
            auto statement = Prepared("INSERT INTO t VALUES ($1, $2)");
            statement->put_ParameterRows(rows);
            Direct(before);
            // The first one is whole, and counts.
            allocation_faults::FailNth(i == 0 ? 0 : 1 + (i - 1) * allocations / kSamples);
            const std::string thrown = ::Thrown([&] { statement->Execute(); });
            allocations = std::max(allocations, allocation_faults::Stop());
            EXPECT_TRUE(thrown == "none" || thrown == kBadAlloc) << thrown;
            judge(*statement, thrown != "none");
        }
    }
    std::string Stored() {
        return Scalar("SELECT coalesce(string_agg(i || ' ' || s, ',' ORDER BY i), '') FROM t");
    }
};

TEST_F(RowsOutOfMemory, StoreTheRowsBeforeTheFailureWholeAndCanBeExecutedAgain) {
    const std::string rows[] = {"1 the first of the texts", "2 the second of the texts",
                                "3 the third of the texts"};
    const std::string prefixes[] = {"", rows[0], rows[0] + "," + rows[1],
                                    rows[0] + "," + rows[1] + "," + rows[2]};
    std::set<std::string> seen;
    FailEach("SELECT 1", [&](I_DuckDBStatement& statement, bool has_failed) {
        const std::string stored = Stored();
        seen.insert(stored);
        EXPECT_THAT(prefixes, testing::Contains(stored));
        EXPECT_EQ(has_failed, stored != prefixes[3]);
        Direct("DELETE FROM t");
        EXPECT_EQ(statement.Execute(), 1);
        EXPECT_EQ(Stored(), prefixes[3]);
    });
    EXPECT_EQ(seen.size(), 4U) << "each row failed once";
}

TEST_F(RowsOutOfMemory, LeaveNothingBehindInATransaction) {
    int failures = 0;
    FailEach("BEGIN", [&](I_DuckDBStatement&, bool has_failed) {
        failures += has_failed ? 1 : 0;
        Direct("ROLLBACK");
        EXPECT_EQ(Stored(), "");
    });
    EXPECT_GT(failures, 0);
}

// ---- Errors.

class ErrorOutOfMemory : public StatementTest {};

TEST_F(ErrorOutOfMemory, KeepsItsTextWithoutItsFacts) {
    static const String sql = S("SELECT a_column_that_is_missing FROM range(3)");
    int without_facts = 0;
    Operation operation;
    operation.act = [&] {
        try {
            database_->SqlExecute(sql, nullptr);
        } catch (const nbx::mrsql::xDuckDBError& error) {
            const allocation_faults::Pause pause;
            without_facts += nbx::mrsql::FindDuckDBErrorFacts(error) == nullptr ? 1 : 0;
            return DescribeCurrentException();
        }
        return std::string();
    };
    operation.samples = 10'000;
    EXPECT_GT(FailEach(operation), 0u);
    EXPECT_GT(without_facts, 0);
}

// ---- Binding.

struct Binding {
    std::string name;
    std::function<void(I_DuckDBStatement&)> bind;
    /** Of the one parameter: its value is replaced, and not all values at once. */
    bool is_single = true;
};

/** A value of each kind, made before memory runs out. */
Binding Of(const char* name, const Value& value) {
    return {std::string("Value") + name, [value](I_DuckDBStatement& s) { s.BindValue(1, value); }};
}

Value Reference(const Value& inner) {
    return Value::Adopt(nbx::CreateValueReference(inner));
}

Value OfType(ValueType type, const char* text) {
    Value value = Value::Adopt(nbx::CreateValueOfType(static_cast<uint32_t>(type), true));
    value->put_Text(S(text));
    return value;
}

std::vector<Binding> MakeTypedBindings() {
    using Statement = I_DuckDBStatement;
    static const String text = S("a text that does not fit into a string object, \u00e4\u4e16");
    return {
        {"Null", [](Statement& s) { s.BindNull(1); }},
        {"Boolean", [](Statement& s) { s.BindBoolean(1, true); }},
        {"TinyInt", [](Statement& s) { s.BindTinyInt(1, -1); }},
        {"UTinyInt", [](Statement& s) { s.BindUTinyInt(1, 1); }},
        {"SmallInt", [](Statement& s) { s.BindSmallInt(1, -1); }},
        {"USmallInt", [](Statement& s) { s.BindUSmallInt(1, 1); }},
        {"Integer", [](Statement& s) { s.BindInteger(1, -1); }},
        {"UInteger", [](Statement& s) { s.BindUInteger(1, 1); }},
        {"BigInt", [](Statement& s) { s.BindBigInt(1, -1); }},
        {"UBigInt", [](Statement& s) { s.BindUBigInt(1, 1); }},
        {"HugeInt", [](Statement& s) { s.BindHugeInt(1, 1, 1); }},
        {"UHugeInt", [](Statement& s) { s.BindUHugeInt(1, 1, 1); }},
        {"NarrowDecimal", [](Statement& s) { s.BindDecimal(1, 4, 2, 123, 0); }},
        {"WideDecimal", [](Statement& s) { s.BindDecimal(1, 30, 2, 123, 0); }},
        {"Float", [](Statement& s) { s.BindFloat(1, 1.5); }},
        {"Double", [](Statement& s) { s.BindDouble(1, 0.1); }},
        {"Date", [](Statement& s) { s.BindDate(1, 2024, 2, 29); }},
        {"Time", [](Statement& s) { s.BindTime(1, 1); }},
        {"TimeNs", [](Statement& s) { s.BindTimeNs(1, 1); }},
        {"TimeTz", [](Statement& s) { s.BindTimeTz(1, 1, 3600); }},
        {"Timestamp", [](Statement& s) { s.BindTimestamp(1, 1); }},
        {"TimestampTz", [](Statement& s) { s.BindTimestampTz(1, 1); }},
        {"TimestampS", [](Statement& s) { s.BindTimestampS(1, 1); }},
        {"TimestampMs", [](Statement& s) { s.BindTimestampMs(1, 1); }},
        {"TimestampNs", [](Statement& s) { s.BindTimestampNs(1, 1); }},
        {"Interval", [](Statement& s) { s.BindInterval(1, 1, 2, 3); }},
        {"Varchar", [](Statement& s) { s.BindVarchar(1, text); }},
        {"Blob", [](Statement& s) { s.BindBlob(1, "bytes that do not fit into an object", 36); }},
        {"Bit", [](Statement& s) { s.BindBit(1, "\0a", 2); }},
        {"Bignum", [](Statement& s) { s.BindBignum(1, "a", 1, 0); }},
        {"Uuid", [](Statement& s) { s.BindUuid(1, 1, 1); }},
    };
}

std::vector<Binding> MakeValueBindings() {
    const std::string long_text = "a text that does not fit into a string object";
    const auto row = Row({Str(long_text)});
    return {
        Of("Nothing", nullptr),
        Of("Boolean", Boolean(true)),
        Of("Long", Long(-1)),
        Of("LLong", LLong(-1)),
        Of("Double", Double(0.1)),
        Of("String", Str(long_text)),
        Of("Date", Date(2024, 2, 29)),
        Of("Time", TimeOfDay(1, 2, 3, 4)),
        Of("DateTime", DateTime({2024, 2, 29}, {1, 2, 3, 4})),
        Of("Bytes", Bytes(long_text)),
        Of("Currency", OfType(ValueType::Currency, "1.5")),
        Of("Reference", Reference(Str(long_text))),
        Of("Array", Array(static_cast<uint32_t>(ValueType::String), {Str(long_text), nullptr, Str("b")})),
        Of("ArrayOfArrays", Array(static_cast<uint32_t>(ValueType::Long), {Long(1), Long(2)})),
        Of("PlainJson", Json(R"({"a": [1, "a text that does not fit into a string object"]})")),
        Of("TypedText", Json(R"({"duckdb_value":true,"value_type":"VARCHAR","value":"a text like others"})")),
        Of("TypedNumber", Json(R"({"duckdb_value":true,"value_type":"INT128","value":"12"})")),
        Of("TypedDecimal", Json(R"({"duckdb_value":true,"value_type":"DECIMAL","value":"12.50"})")),
        Of("TypedUuid", Json(R"({"duckdb_value":true,"value_type":"UUID",)"
                             R"("value":"a1b2c3d4-0000-4000-8000-00000000ffff"})")),
        Of("TypedNull", Json(R"({"duckdb_variant":true,"variant_type":"VARIANT_NULL","value":""})")),
        Of("VariantObject",
           Json(R"({"duckdb_variant":true,"variant_type":"OBJECT","value":{"a":[1,"a long text in it"]}})")),
        Of("VariantArray", Json(R"({"duckdb_variant":true,"variant_type":"ARRAY","value":[1,"x",null]})")),
        {"Parameters", [row](I_DuckDBStatement& s) { s.put_Parameters(row); }, false},
    };
}

std::vector<Binding> MakeBindings() {
    std::vector<Binding> all = MakeTypedBindings();
    for (Binding& binding : MakeValueBindings()) {
        all.push_back(std::move(binding));
    }
    return all;
}

class BindOutOfMemory : public StatementTest, public testing::WithParamInterface<Binding> {
  protected:
    /** The bind under test, judged by the parameter that the statement then has. */
    Operation MakeBind(I_DuckDBStatement& probe) {
        Operation operation;
        operation.act = [&probe] {
            GetParam().bind(probe);
            return std::string();
        };
        operation.look = [this, &probe] {
            std::string seen;
            const std::string thrown = ::Thrown([&] {
                const auto [type, text] = ReadBack(probe);
                seen = type + " " + text;
            });
            return seen + " " + thrown;
        };
        return operation;
    }
};

TEST_P(BindOutOfMemory, LeavesTheParameterAsItWasOrBindsItsValue) {
    auto probe = Probe();
    Operation operation = MakeBind(*probe);
    // The first bind of a parameter, and another one in the place of its value.
    operation.prepare = [&] { probe->ClearBindings(); };
    FailEach(operation);
    operation.prepare = [&] {
        probe->ClearBindings();
        probe->BindInteger(1, 5);
    };
    if (GetParam().is_single) {
        FailEach(operation);
    }
}
TEST_P(BindOutOfMemory, KeepsTheStoredParametersOrBindsItsValue) {
    if (!GetParam().is_single) {
        GTEST_SKIP() << "Stores parameters itself";
    }
    const auto row = Row({Str("the stored value")});
    const auto rows = Rows({row});
    struct Kind {
        const char* name;
        std::function<void(I_DuckDBStatement&)> store;
    };
    const Kind kinds[] = {
        {"a row", [row](I_DuckDBStatement& s) { s.put_Parameters(row); }},
        {"rows", [rows](I_DuckDBStatement& s) { s.put_ParameterRows(rows); }},
    };
    for (const Kind& kind : kinds) {
        SCOPED_TRACE(kind.name);
        auto probe = Probe();
        Operation operation = MakeBind(*probe);
        operation.samples = 8;
        operation.prepare = [&] { kind.store(*probe); };
        FailEach(operation);
    }
}
INSTANTIATE_TEST_SUITE_P(Every, BindOutOfMemory, testing::ValuesIn(MakeBindings()), NameOf<Binding>);

}  // namespace
}  // namespace mduckdb::test
