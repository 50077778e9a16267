#include <functional>

#include "statement_fixture.h"
#include "support/duckdb_faults.h"

// Makes the calls to DuckDB fail one by one, and checks the report and that nothing leaks.
namespace mduckdb::test {

using duckdb_faults::FailCall;

class FaultsTest : public StatementTest {
  protected:
    FaultsTest() { duckdb_faults::Reset(); }

    int64_t Execute(std::string_view sql, smart_ptr<ValueRow> parameters = nullptr) {
        return database_->SqlExecute(Text(sql), std::move(parameters));
    }
};

TEST_F(FaultsTest, APrepareThatFailsWithoutATextHasTheFixedOne) {
    auto statement = Make("SELECT 1; SELECT 2");
    FailCall("duckdb_prepare_extracted_statement", 1);
    EXPECT_EQ(Catch([&] { statement->PrepareNext(); }), MemoryError("Failed to prepare statement"));
    EXPECT_EQ(statement->get_PendingCount(), 2u);
    EXPECT_TRUE(statement->ExecuteNext());
}

TEST_F(FaultsTest, AnExecutionThatFailsWithoutATextHasTheFixedOne) {
    auto statement = Prepared("SELECT 1");
    for (const char* call : {"duckdb_pending_prepared_managed", "duckdb_execute_pending"}) {
        FailCall(call, 1);
        EXPECT_EQ(Catch([&] { statement->Execute(); }), MemoryError("Unknown execute error")) << call;
    }
}

TEST_F(FaultsTest, BindingsThatCannotBeClearedAreReported) {
    const Thrown failure = MemoryError("Failed to clear statement bindings");
    auto statement = Prepared("SELECT $1");
    const auto expect_failure = [&](const char* what, const std::function<void()>& call) {
        FailCall("duckdb_clear_bindings", 1);
        EXPECT_EQ(Catch(call), failure) << what;
    };
    expect_failure("ClearBindings", [&] { statement->ClearBindings(); });
    expect_failure("put_Parameters", [&] { statement->put_Parameters(Row({Long(1)})); });
    expect_failure("Execute", [&] { statement->Execute(); });
    expect_failure("BindInteger", [&] { statement->BindInteger(1, 1); });
    expect_failure("put_ParameterRows", [&] { statement->put_ParameterRows(Rows({Row({Long(1)})})); });
    statement->put_Parameters(Row({Long(1)}));
    expect_failure("PrepareNext", [&] {
        auto other = Make("SELECT $1");
        other->put_Parameters(Row({Long(1)}));
        other->PrepareNext();
    });
}

TEST_F(FaultsTest, ABindThatFailsWithoutATextHasTheFixedOneWithItsTypeName) {
    struct Item {
        const char* call;
        const char* type_word;
        std::function<void(I_DuckDBStatement&)> bind;
    };
    using S = I_DuckDBStatement;
    const Item items[] = {
        {"duckdb_bind_null", "NULL", [](S& s) { s.BindNull(1); }},
        {"duckdb_bind_boolean", "BOOLEAN", [](S& s) { s.BindBoolean(1, true); }},
        {"duckdb_bind_int8", "TINYINT", [](S& s) { s.BindTinyInt(1, 1); }},
        {"duckdb_bind_uint8", "UTINYINT", [](S& s) { s.BindUTinyInt(1, 1); }},
        {"duckdb_bind_int16", "SMALLINT", [](S& s) { s.BindSmallInt(1, 1); }},
        {"duckdb_bind_uint16", "USMALLINT", [](S& s) { s.BindUSmallInt(1, 1); }},
        {"duckdb_bind_int32", "INTEGER", [](S& s) { s.BindInteger(1, 1); }},
        {"duckdb_bind_uint32", "UINTEGER", [](S& s) { s.BindUInteger(1, 1); }},
        {"duckdb_bind_int64", "BIGINT", [](S& s) { s.BindBigInt(1, 1); }},
        {"duckdb_bind_uint64", "UBIGINT", [](S& s) { s.BindUBigInt(1, 1); }},
        {"duckdb_bind_hugeint", "HUGEINT", [](S& s) { s.BindHugeInt(1, 1, 0); }},
        {"duckdb_bind_uhugeint", "UHUGEINT", [](S& s) { s.BindUHugeInt(1, 1, 0); }},
        {"duckdb_bind_decimal", "DECIMAL", [](S& s) { s.BindDecimal(1, 4, 2, 1, 0); }},
        {"duckdb_bind_float", "FLOAT", [](S& s) { s.BindFloat(1, 1); }},
        {"duckdb_bind_double", "DOUBLE", [](S& s) { s.BindDouble(1, 1); }},
        {"duckdb_bind_date", "DATE", [](S& s) { s.BindDate(1, 2024, 1, 1); }},
        {"duckdb_bind_time", "TIME", [](S& s) { s.BindTime(1, 1); }},
        {"duckdb_bind_value", "TIME_NS", [](S& s) { s.BindTimeNs(1, 1); }},
        {"duckdb_bind_value", "TIME_TZ", [](S& s) { s.BindTimeTz(1, 1, 1); }},
        {"duckdb_bind_timestamp", "TIMESTAMP", [](S& s) { s.BindTimestamp(1, 1); }},
        {"duckdb_bind_timestamp_tz", "TIMESTAMP_TZ", [](S& s) { s.BindTimestampTz(1, 1); }},
        {"duckdb_bind_value", "TIMESTAMP_S", [](S& s) { s.BindTimestampS(1, 1); }},
        {"duckdb_bind_value", "TIMESTAMP_MS", [](S& s) { s.BindTimestampMs(1, 1); }},
        {"duckdb_bind_value", "TIMESTAMP_NS", [](S& s) { s.BindTimestampNs(1, 1); }},
        {"duckdb_bind_interval", "INTERVAL", [](S& s) { s.BindInterval(1, 1, 1, 1); }},
        {"duckdb_bind_varchar_length", "VARCHAR", [](S& s) { s.BindVarchar(1, Text("a")); }},
        {"duckdb_bind_blob", "BLOB", [](S& s) { s.BindBlob(1, "a", 1); }},
        {"duckdb_bind_value", "BIT", [](S& s) { s.BindBit(1, "\0a", 2); }},
        {"duckdb_bind_value", "BIGNUM", [](S& s) { s.BindBignum(1, "a", 1, 0); }},
        {"duckdb_bind_value", "UUID", [](S& s) { s.BindUuid(1, 1, 1); }},
        // The same for a value that DuckDB cannot create.
        {"duckdb_create_uuid", "UUID", [](S& s) { s.BindUuid(1, 1, 1); }},
    };
    auto statement = Prepared("SELECT $1");
    for (const Item& item : items) {
        FailCall(item.call, 1);
        EXPECT_EQ(Catch([&] { item.bind(*statement); }),
                  MemoryError(std::string("Failed to bind ") + item.type_word + " statement parameter"));
    }
}

TEST_F(FaultsTest, AHostValueThatIsNotBoundIsReported) {
    const Thrown failure = MemoryError("Failed to bind statement parameter");
    auto statement = Prepared("SELECT $1");
    for (const char* call : {"duckdb_bind_value", "duckdb_create_int32"}) {
        FailCall(call, 1);
        EXPECT_EQ(Catch([&] { statement->BindValue(1, Long(1)); }), failure) << call;
        FailCall(call, 1);
        EXPECT_EQ(Catch([&] { statement->put_Parameters(Row({Long(1)})); }), failure) << call;
        FailCall(call, 1);
        EXPECT_EQ(Catch([&] { Execute("SELECT $1", Row({Long(1)})); }), failure) << call;
    }
    FailCall("duckdb_create_varchar_length", 1);
    EXPECT_EQ(Catch([&] { statement->BindValue(1, Str("text")); }), failure);
    FailCall("duckdb_create_null_value", 1);
    EXPECT_EQ(Catch([&] { statement->BindValue(1, nullptr); }), failure);
    for (const char* call :
         {"duckdb_create_list_value", "duckdb_create_logical_type", "duckdb_create_int32"}) {
        FailCall(call, 1);
        EXPECT_EQ(Catch([&] { statement->BindValue(1, Array(8, {Long(1)})); }), failure) << call;
    }
}

TEST_F(FaultsTest, AnArrayThatRepeatsALongTextIsRefusedAfterAFewCopies) {
    constexpr std::size_t kLength = 1'000'000;
    // The text itself, and 8 MiB of copies.
    constexpr uint64_t kMostCopies = 1 + 8 * 1024 * 1024 / kLength;
    const Value array = Array(20, std::vector<Value>(100'000, Str(std::string(kLength, 'x'))));
    auto statement = Prepared("SELECT $1");
    duckdb_faults::Reset();
    EXPECT_EQ(Catch([&] { statement->BindValue(1, array); }),
              MemoryError("Failed to bind statement parameter"));
    EXPECT_LE(duckdb_faults::CountCalls("duckdb_create_varchar_length"), kMostCopies);
}

TEST_F(FaultsTest, AnEnvelopeThatDuckDBCannotTurnIntoAValueIsReported) {
    auto statement = Prepared("SELECT $1");
    const auto bind = [&](const char* type_word) {
        return Catch([&] {
            statement->BindValue(1, Json(std::string(R"({"duckdb_value":true,"value":"1","value_type":")") +
                                         type_word + "\"}"));
        });
    };
    for (const char* call : {"duckdb_create_varchar_length", "duckdb_create_logical_type"}) {
        FailCall(call, 1);
        EXPECT_EQ(bind("INT8"), DuckDBError("value", "Cannot parse INT8 typed value: 1")) << call;
        FailCall(call, 1);
        EXPECT_EQ(bind("JSON"), DuckDBError("value", "Malformed JSON value: 1")) << call;
    }
    FailCall("duckdb_create_varchar_length", 1);
    EXPECT_EQ(bind("VARCHAR"), DuckDBError("value", "Cannot parse VARCHAR typed value: 1"));
    FailCall("duckdb_create_decimal_type", 1);
    EXPECT_EQ(bind("DECIMAL"), DuckDBError("value", "Cannot parse DECIMAL typed value: 1"));
    FailCall("duckdb_create_null_value", 1);
    EXPECT_EQ(bind("VARIANT_NULL"), MemoryError("Failed to bind statement parameter"));
}

TEST_F(FaultsTest, ScriptFailuresWithoutATextHaveTheFixedOne) {
    const auto with = [](const char* call) { FailCall(call, 1); };
    with("duckdb_prepare");
    EXPECT_EQ(Catch([&] { Execute("SELECT $1", Row({Long(1)})); }),
              MemoryError("Failed to prepare statement"));
    with("duckdb_execute_pending");
    EXPECT_EQ(Catch([&] { Execute("SELECT $1", Row({Long(1)})); }),
              MemoryError("Failed to execute prepared statement"));
    with("duckdb_extract_statements");
    EXPECT_EQ(Catch([&] { Execute("SELECT 1"); }), MemoryError("Failed to extract statements"));
    with("duckdb_prepare_extracted_statement");
    EXPECT_EQ(Catch([&] { Execute("SELECT 1"); }), MemoryError("Failed to prepare extracted statement"));
    with("duckdb_execute_pending");
    EXPECT_EQ(Catch([&] { Execute("SELECT 1"); }), MemoryError("Failed to execute statement"));
    EXPECT_EQ(duckdb_faults::CountLiveHandles(), 0);
}

TEST_F(FaultsTest, AfterAFailedExecutionAScriptIsRolledBackOnceAndNothingMoreIsPrepared) {
    const Thrown thrown = Catch([&] { Execute("SELECT 1; SELECT CAST('x' AS INTEGER); SELECT 3"); });
    EXPECT_NE(thrown.message.find("Could not convert"), std::string::npos);
    EXPECT_EQ(duckdb_faults::get_Log("duckdb_query"), std::vector<std::string>{"duckdb_query ROLLBACK"});
    EXPECT_EQ(duckdb_faults::CountCalls("duckdb_prepare_extracted_statement"), 2u);
    EXPECT_EQ(duckdb_faults::CountLiveHandles(), 0);
}

TEST_F(FaultsTest, AFailedPrepareOfAScriptSendsNoRollback) {
    EXPECT_EQ(Catch([&] { Execute("SELECT 1; SELECT * FROM nowhere; SELECT 3"); }).exception, "xDuckDBError");
    EXPECT_EQ(duckdb_faults::CountCalls("duckdb_query"), 0u);
    EXPECT_EQ(duckdb_faults::CountCalls("duckdb_prepare_extracted_statement"), 2u);
    EXPECT_EQ(duckdb_faults::CountLiveHandles(), 0);
}

TEST_F(FaultsTest, AnEmptyRowSetCallsNothing) {
    auto statement = Prepared("SELECT $1");
    statement->put_ParameterRows(Rows({}));
    duckdb_faults::Reset();
    statement->Execute();
    EXPECT_EQ(duckdb_faults::get_Log(), std::vector<std::string>{});
}

TEST_F(FaultsTest, SqlExecuteDropsTheRowsOfAStatementBeforeTheNextOneRuns) {
    duckdb_faults::Reset();
    database_->SqlExecute(Text("SELECT 1; SELECT 2; SELECT 3"), nullptr);
    std::vector<std::string> calls = duckdb_faults::get_Log();
    std::erase_if(calls, [](const std::string& call) {
        return call != "duckdb_execute_pending" && call != "duckdb_destroy_result";
    });
    const std::vector<std::string> one = {"duckdb_execute_pending", "duckdb_destroy_result"};
    EXPECT_EQ(calls, (std::vector<std::string>{one[0], one[1], one[0], one[1], one[0], one[1]}));
}

TEST_F(FaultsTest, ATypedBindIsOneCallToDuckDB) {
    auto statement = Prepared("SELECT $1");
    duckdb_faults::Reset();
    statement->BindInteger(1, 1);
    EXPECT_EQ(duckdb_faults::get_Log(), std::vector<std::string>{"duckdb_bind_int32"});
}

TEST_F(FaultsTest, ATypedBindOfABoundParameterCallsNothing) {
    auto statement = Prepared("SELECT $1");
    statement->BindInteger(1, 1);
    duckdb_faults::Reset();
    statement->BindInteger(1, 2);
    statement->BindVarchar(1, Text("a"));
    EXPECT_EQ(duckdb_faults::get_Log(), std::vector<std::string>{});
    statement->ClearBindings();
    statement->BindInteger(1, 3);
    EXPECT_EQ(duckdb_faults::get_Log("duckdb_bind"), std::vector<std::string>{"duckdb_bind_int32"});
}

namespace {

/** Some of everything that statements and scripts do; each error is ignored. */
void RunScenario(DuckDBDatabase& database) {
    const auto attempt = [](const std::function<void()>& step) { Catch(step); };
    attempt([&] { database.SqlExecute(Text("BEGIN; INSERT INTO seen VALUES ('a', 'b'); COMMIT"), nullptr); });
    attempt([&] { database.SqlExecute(Text("SELECT 1; SELECT CAST('x' AS INTEGER)"), nullptr); });
    attempt([&] {
        database.SqlSelect(Text("SELECT $1, $2"), 1, Row({Long(1), Array(8, {Long(1), nullptr})}));
    });
    attempt([&] { database.SqlSelect(Text("SELECT 1; SELECT 2"), 1, nullptr); });
    attempt([&] { database.SqlQuery(Text("SELECT 1; SELECT 2"), 2, nullptr)->NextResult(); });
    auto statement = database.CreateStatement(Text("SELECT $1, $2; INSERT INTO seen VALUES ($1, $2)"));
    attempt([&] { statement->put_Parameters(Row({Str("a"), Bytes("b")})); });
    attempt([&] { statement->ExecuteNext(); });
    attempt([&] {
        // Nothing is prepared, and no cursor created, after an extraction that found nothing.
        if (auto cursor = statement->OpenCursor(2)) {
            cursor->NextRecord();
        }
    });
    attempt([&] {
        statement->BindValue(1, Json(R"({"duckdb_variant":true,"variant_type":"DECIMAL","value":"1.5"})"));
    });
    attempt([&] {
        statement->BindValue(1, Json(R"({"duckdb_variant":true,"variant_type":"ARRAY","value":[1]})"));
    });
    attempt([&] { statement->BindUuid(2, 1, 2); });
    attempt([&] { statement->ExecuteToJSON(); });
    attempt([&] { statement->PrepareNext(); });
    attempt([&] {
        statement->put_ParameterRows(Rows({Row({Str("a"), Str("b")}), Row({Str("c"), nullptr})}));
    });
    attempt([&] { statement->Execute(); });
    attempt([&] { statement->ExecuteToQueryResult(1); });
    attempt([&] { statement->TryExecuteAll(); });
}

/** The calls whose failure is not itself a leak. */
constexpr const char* kFailingCalls[] = {
    "duckdb_query",
    "duckdb_extract_statements",
    "duckdb_prepare",
    "duckdb_prepare_extracted_statement",
    "duckdb_pending_prepared_managed",
    "duckdb_execute_pending",
    "duckdb_scan_result_chunk",
    "duckdb_column_logical_type",
    "duckdb_bind_value",
    "duckdb_clear_bindings",
    "duckdb_create_logical_type",
    "duckdb_create_decimal_type",
    "duckdb_create_varchar_length",
    "duckdb_create_int32",
    "duckdb_create_null_value",
    "duckdb_create_list_value",
    "duckdb_create_blob",
    "duckdb_create_uuid",
};

}  // namespace

TEST_F(FaultsTest, EverythingIsDestroyedOnceWhenAnyCallFails) {
    RunScenario(*database_);
    std::vector<std::pair<std::string, uint64_t>> counts;
    for (const char* call : kFailingCalls) {
        counts.emplace_back(call, duckdb_faults::CountCalls(call));
        EXPECT_GT(counts.back().second, 0u) << call;
    }
    EXPECT_EQ(duckdb_faults::CountLiveHandles(), 0);
    for (const auto& [call, count] : counts) {
        for (uint64_t n = 1; n <= count; ++n) {
            duckdb_faults::Reset();
            FailCall(call, n);
            RunScenario(*database_);
            EXPECT_EQ(duckdb_faults::CountLiveHandles(), 0) << "call " << n << " of " << call;
            Direct("BEGIN TRANSACTION");
            Direct("ROLLBACK");
        }
    }
}

}  // namespace mduckdb::test
