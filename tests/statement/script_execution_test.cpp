#include <random>
#include <regex>
#include <thread>

#include "nbx/hooks.h"
#include "nbx/mrsql/duckdb_cursor.h"
#include "nbx/mrsql/duckdb_query_result.h"
#include "statement_fixture.h"
#include "support/expected_by_version.h"

namespace mduckdb::test {

class ScriptTest : public StatementTest {
  protected:
    int64_t Execute(std::string_view sql, smart_ptr<ValueRow> parameters = nullptr) {
        return database_->SqlExecute(Text(sql), std::move(parameters));
    }
    smart_ptr<I_DuckDBCursor> Select(std::string_view sql, smart_ptr<ValueRow> parameters = nullptr) {
        return database_->SqlSelect(Text(sql), nbx::mrsql::kClientCursor, std::move(parameters));
    }
    smart_ptr<I_DuckDBQueryResult> Query(std::string_view sql, smart_ptr<ValueRow> parameters = nullptr) {
        return database_->SqlQuery(Text(sql), nbx::mrsql::kClientCursor, std::move(parameters));
    }
};

TEST_F(ScriptTest, SqlExecuteReturnsTheSumOfTheChangedRows) {
    Execute("CREATE TABLE t AS SELECT range AS a FROM range(10)");
    EXPECT_EQ(Execute("UPDATE t SET a = a + 100 WHERE a < 3; SELECT 1; UPDATE t SET a = 0 WHERE a >= 100"),
              6);
    EXPECT_EQ(Execute("SELECT * FROM t"), 0);
    EXPECT_EQ(Execute("DELETE FROM t"), 10);
}

TEST_F(ScriptTest, SqlSelectReturnsACursorOfTheRequestedKind) {
    auto client = database_->SqlSelect(Text("SELECT 1 UNION ALL SELECT 2"), 1, nullptr);
    EXPECT_EQ(client->get_RecordCount(), 2u);
    for (const uint32_t location : {0u, 2u, 9u}) {
        auto server = database_->SqlSelect(Text("SELECT 1"), location, nullptr);
        EXPECT_TRUE(server->NextRecord());
        EXPECT_EQ(Catch([&] { server->get_RecordCount(); }).exception, "xDuckDBError");
    }
}

TEST_F(ScriptTest, SqlSelectRequiresExactlyOneSetOfRows) {
    EXPECT_EQ(Catch([&] { Select("SELECT 1; SELECT 2"); }),
              MemoryError("Query doesn't return a single result"));
    EXPECT_EQ(Catch([&] { Select("INSERT INTO seen VALUES ('a', 'b')"); }),
              MemoryError("Query doesn't return a result"));
    EXPECT_EQ(Catch([&] { Select("CREATE TABLE t (a INTEGER)"); }),
              MemoryError("Query doesn't return a result"));
    // They have run nevertheless.
    EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), "1");
    EXPECT_EQ(Select("INSERT INTO seen VALUES ('c', 'd') RETURNING type")->get_RecordCount(), 1u);
}

TEST_F(ScriptTest, SqlQueryReturnsTheOutcomesInTheOrderOfTheStatements) {
    auto first = Query("INSERT INTO seen VALUES ('a', 'b'); SELECT 7; CREATE TABLE t (a INTEGER)");
    EXPECT_EQ(first->get_Flags(), uint32_t{nbx::mrsql::kHasRowsChanged});
    EXPECT_EQ(first->get_RowsChanged(), 1);
    auto second = first->NextResult();
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->get_Flags(), uint32_t{nbx::mrsql::kHasCursor});
    EXPECT_TRUE(second->get_Cursor()->FirstRecord());
    EXPECT_EQ(second->get_Cursor()->get_Value(0)->get_LLong(), 7);
    auto third = second->NextResult();
    ASSERT_NE(third, nullptr);
    EXPECT_EQ(third->get_Flags(), 0u);
    EXPECT_EQ(third->NextResult(), nullptr);
}

TEST_F(ScriptTest, AScriptWithoutStatementsIsAnError) {
    for (const char* sql : {"", "  \n", "-- a comment", "/* a comment */", ";;"}) {
        EXPECT_EQ(Catch([&] { Execute(sql); }), MemoryError("Failed to extract statements")) << sql;
        EXPECT_EQ(Catch([&] { Query(sql); }), MemoryError("Failed to extract statements")) << sql;
        EXPECT_EQ(Catch([&] { Select(sql); }), MemoryError("Failed to extract statements")) << sql;
    }
}

TEST_F(ScriptTest, ASyntaxErrorIsReportedWithDuckDBsTextAndNothingRuns) {
    const Thrown thrown = Catch([&] { Execute("INSERT INTO seen VALUES ('a', 'b'); SELEC 1"); });
    EXPECT_EQ(thrown, MemoryError(thrown.message));
    EXPECT_NE(thrown.message.find("exception_message"), std::string::npos) << thrown.message;
    EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), "0");
}

TEST_F(ScriptTest, AFailedExecutionRollsTheOpenTransactionBack) {
    const Thrown thrown = Catch([&] {
        Execute(
            "BEGIN; INSERT INTO seen VALUES ('a', 'b'); SELECT CAST('x' AS INTEGER); "
            "INSERT INTO seen VALUES ('c', 'd')");
    });
    EXPECT_EQ(thrown, MemoryError(thrown.message));
    EXPECT_NE(thrown.message.find("Could not convert"), std::string::npos) << thrown.message;
    EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), "0");
    // No transaction is left open: a new one can begin.
    Execute("BEGIN; COMMIT");
}

TEST_F(ScriptTest, AFailedExecutionWithoutATransactionKeepsWhatWasDoneBefore) {
    EXPECT_EQ(
        Catch([&] { Execute("INSERT INTO seen VALUES ('a', 'b'); SELECT CAST('x' AS INTEGER)"); }).exception,
        "xDuckDBError");
    EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), "1");
}

TEST_F(ScriptTest, TheStatementAfterAFailedOneIsNotEvenPrepared) {
    // The third one would fail to be prepared, with another text.
    const Thrown thrown =
        Catch([&] { Execute("SELECT 1; SELECT CAST('x' AS INTEGER); SELECT * FROM nowhere"); });
    EXPECT_NE(thrown.message.find("Could not convert"), std::string::npos) << thrown.message;
}

TEST_F(ScriptTest, AFailedPrepareSendsNoRollback) {
    const Thrown thrown =
        Catch([&] { Execute("BEGIN; INSERT INTO seen VALUES ('a', 'b'); SELECT * FROM nowhere"); });
    EXPECT_EQ(thrown, MemoryError(thrown.message));
    EXPECT_NE(thrown.message.find("nowhere"), std::string::npos) << thrown.message;
    Execute("COMMIT");
    EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), "1");
}

TEST_F(ScriptTest, ParametersAreBoundInTheirOrder) {
    EXPECT_EQ(Execute("INSERT INTO seen VALUES ($1, $2)", Row({Str("one"), Long(2)})), 1);
    EXPECT_EQ(Direct("SELECT * FROM seen"), (Table{{"one", "2"}}));
    EXPECT_EQ(Select("SELECT $1 + $2", Row({Long(1), Long(2)}))->get_RecordCount(), 1u);
    EXPECT_EQ(Query("SELECT $1", Row({Long(1)}))->get_Flags(), uint32_t{nbx::mrsql::kHasCursor});
}

TEST_F(ScriptTest, TheReferenceToTheParametersIsReleased) {
    auto row = Row({Long(1)});
    Execute("SELECT $1", row);
    EXPECT_EQ(row->get_RefsCount(), 1u);
    Catch([&] { Execute("SELECT $1, $2", row); });
    EXPECT_EQ(row->get_RefsCount(), 1u);
}

TEST_F(ScriptTest, WithParametersTheTextIsOneStatement) {
    const Thrown thrown = Catch([&] { Execute("SELECT $1; SELECT 2", Row({Long(1)})); });
    EXPECT_EQ(thrown, MemoryError(thrown.message));
    EXPECT_NE(thrown.message.find("Cannot prepare multiple statements"), std::string::npos) << thrown.message;
    // No parameters, no single statement.
    EXPECT_EQ(Execute("SELECT 1; SELECT 2", Row({})), 0);
}

TEST_F(ScriptTest, UnsuitableParametersAreErrors) {
    EXPECT_EQ(
        Catch([&] { Execute("SELECT 1", Row({Long(1)})); }),
        MemoryError(
            "Invalid Input Error: Can not bind to parameter number 1, statement only has 0 parameter(s)"));
    EXPECT_NE(
        Catch([&] { Execute("SELECT $1, $2", Row({Long(1)})); }).message.find("Values were not provided"),
        std::string::npos);
    EXPECT_EQ(Catch([&] { Execute("SELECT $1", Row({Array(8, {Str("x")})})); }),
              MemoryError("Failed to bind statement parameter"));
    EXPECT_EQ(
        Catch([&] { Execute("SELECT $1", Row({Json(R"({"duckdb_value":false})")})); }),
        DuckDBError("value", "Malformed DuckDB envelope: missing 'duckdb_value' or 'duckdb_variant' marker"));
}

TEST_F(ScriptTest, AFailureWithParametersSendsNoRollback) {
    Execute("BEGIN; INSERT INTO seen VALUES ('a', 'b')");
    // DuckDB itself ends the transaction for errors of some kinds; a failed prepare is not one of them.
    EXPECT_EQ(Catch([&] { Execute("SELECT * FROM nowhere WHERE a = $1", Row({Long(1)})); }).exception,
              "xDuckDBError");
    Execute("COMMIT");
    EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), "1");
}

TEST_F(ScriptTest, AClosedDatabaseIsNotOpen) {
    database_->Close();
    const Thrown not_open = MemoryError("DuckDBDatabase is not open");
    EXPECT_EQ(Catch([&] { Execute("SELECT 1"); }), not_open);
    EXPECT_EQ(Catch([&] { Query("SELECT 1"); }), not_open);
    EXPECT_EQ(Catch([&] { Select("SELECT 1"); }), not_open);
    EXPECT_EQ(Catch([&] { Execute("SELECT $1", Row({Long(1)})); }), not_open);
    EXPECT_EQ(Catch([&] { Make("SELECT 1"); }), not_open);
}

TEST_F(ScriptTest, AnInterruptStopsALongStatementAndIsReportedOnce) {
    bool (*const old_hook)() = nbx::mrsql::gpIsLocalSqlCall_PTR;
    nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
    for (const bool has_parameters : {false, true}) {
        std::atomic<bool> is_done{false};
        std::thread interrupter([&] {
            while (!is_done) {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                database_->Interrupt();
            }
        });
        const Thrown thrown = Catch([&] {
            has_parameters
                ? Execute(
                      "SELECT sum(a.range * b.range) FROM range(1000000) a, range(1000000) b "
                      "WHERE a.range <> $1",
                      Row({Long(1)}))
                : Execute("SELECT 1; SELECT sum(a.range * b.range) FROM range(1000000) a, range(1000000) b");
        });
        is_done = true;
        interrupter.join();
        EXPECT_EQ(thrown, (Thrown{"xInterruptError", 0x57501, "", ""}));
        EXPECT_EQ(Catch([&] { Execute("SELECT * FROM nowhere"); }).exception, "xDuckDBError");
    }
    nbx::mrsql::gpIsLocalSqlCall_PTR = old_hook;
}

TEST_F(ScriptTest, AFailureOfAnyStatementKeepsTheOnesBeforeIt) {
    constexpr int kStatements = 12;
    for (const bool in_transaction : {false, true}) {
        for (int failing = 0; failing < kStatements; ++failing) {
            Direct("DELETE FROM seen");
            std::string script = in_transaction ? "BEGIN;" : "";
            for (int i = 0; i < kStatements; ++i) {
                script += i == failing ? "SELECT CAST('fails' AS INTEGER);"
                                       : "INSERT INTO seen VALUES ('x', " + std::to_string(i) + ");";
            }
            const Thrown thrown = Catch([&] { Execute(script); });
            EXPECT_EQ(thrown, MemoryError(thrown.message));
            EXPECT_NE(thrown.message.find("fails"), std::string::npos) << thrown.message;
            EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), in_transaction ? "0" : std::to_string(failing));
        }
    }
}

// Random scripts, each run through the module and, on a second database, through DuckDB's C API alone.

namespace {

class Reference {
  public:
    Reference() {
        duckdb_open(nullptr, &engine_);
        duckdb_connect(engine_, &connection_);
        RunDirectly(connection_, "SET errors_as_json = true");
        for (const std::string& statement : get_EngineSettingStatements()) {
            RunDirectly(connection_, statement);
        }
    }
    Reference(const Reference&) = delete;
    Reference& operator=(const Reference&) = delete;
    ~Reference() {
        duckdb_disconnect(&connection_);
        duckdb_close(&engine_);
    }
    duckdb_connection get_Connection() const { return connection_; }

    /** The changed rows, or the error; after a failed execution everything open is rolled back. */
    std::pair<int64_t, std::string> Run(const std::vector<std::string>& statements) {
        int64_t changed = 0;
        for (const std::string& sql : statements) {
            PreparedHolder prepared;
            if (duckdb_prepare(connection_, sql.c_str(), prepared.Receive()) != DuckDBSuccess) {
                return {0, duckdb_prepare_error(prepared.get())};
            }
            ResultHolder result;
            if (duckdb_execute_prepared(prepared.get(), result.Receive()) != DuckDBSuccess) {
                const std::string error = duckdb_result_error(result.get());
                ResultHolder rollback;
                duckdb_query(connection_, "ROLLBACK", rollback.Receive());
                return {0, error};
            }
            if (duckdb_result_return_type(*result) == DUCKDB_RESULT_TYPE_CHANGED_ROWS) {
                changed += static_cast<int64_t>(duckdb_rows_changed(result.get()));
            }
        }
        return {changed, ""};
    }

  private:
    duckdb_database engine_ = nullptr;
    duckdb_connection connection_ = nullptr;
};

std::string RandomStatement(std::mt19937& random) {
    const std::string number = std::to_string(random() % 1000);
    switch (random() % 40) {
        case 0:
            return "BEGIN";
        case 1:
            return "COMMIT";
        case 2:
            return "ROLLBACK";
        case 3:
            return "SELECT CAST('bad" + number + "' AS INTEGER)";
        case 4:
            return "SELECT * FROM nowhere" + number;
        case 5:
            return "DELETE FROM t WHERE a = " + number;
        case 6:
        case 7:
            return "UPDATE t SET b = b + 1 WHERE a < " + number;
        case 8:
            return "SELECT a, b FROM t ORDER BY a";
        default:
            return "INSERT INTO t VALUES (" + number + ", 0)";
    }
}

/** An error's message without the positions in the SQL text, which differ between a script and a
    statement. */
std::string WithoutPosition(const std::string& message) {
    static const std::regex kPosition(R"re(,"(position|location)":"[^"]*")re");
    return std::regex_replace(message, kPosition, "");
}

}  // namespace

TEST_F(ScriptTest, RandomScriptsDoWhatDuckDBDoes) {
    const uint32_t seed = std::random_device{}();
    RecordProperty("seed", static_cast<int>(seed));
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Reference reference;
    // A key makes some of the inserts fail.
    const std::string table = "CREATE TABLE t (a INTEGER PRIMARY KEY, b INTEGER)";
    RunDirectly(reference.get_Connection(), table);
    Direct(table);
    // DuckDB's hints name existing tables, so both databases have the same ones.
    Direct("DROP TABLE seen");
    int failed = 0;
    for (int round = 0; round < 200; ++round) {
        std::vector<std::string> statements(1 + random() % 20);
        std::string script;
        for (std::string& sql : statements) {
            sql = RandomStatement(random);
            script += sql + ";";
        }
        const auto [expected_changes, expected_error] = reference.Run(statements);
        int64_t changes = 0;
        const Thrown thrown = Catch([&] { changes = Execute(script); });
        EXPECT_EQ(WithoutPosition(thrown.message), WithoutPosition(expected_error)) << script;
        EXPECT_EQ(changes, expected_changes) << script;
        EXPECT_EQ(Direct("SELECT a, b FROM t ORDER BY a"),
                  RunDirectly(reference.get_Connection(), "SELECT a, b FROM t ORDER BY a"))
            << script;
        failed += expected_error.empty() ? 0 : 1;
    }
    // The generator creates both kinds.
    EXPECT_GT(failed, 10);
    EXPECT_LT(failed, 190);
}

TEST_F(ScriptTest, RandomScriptsStatementByStatementDoWhatDuckDBDoes) {
    const uint32_t seed = std::random_device{}();
    RecordProperty("seed", static_cast<int>(seed));
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int round = 0; round < 50; ++round) {
        std::vector<std::string> statements(1 + random() % 20);
        std::string script;
        for (std::string& sql : statements) {
            sql = random() % 8 == 0 ? "SELECT CAST('bad' AS INTEGER)" : "INSERT INTO seen VALUES ('a', 'b')";
            script += sql + ";";
        }
        Direct("DELETE FROM seen");
        uint32_t good = 0;
        while (good < statements.size() && statements[good][0] == 'I') {
            ++good;
        }
        const auto outcome = Make(script)->TryExecuteAll();
        EXPECT_EQ(outcome.statements_executed, good) << script;
        EXPECT_EQ(outcome.error_code, good == statements.size() ? 0u : 0x72501u) << script;
        EXPECT_EQ(Scalar("SELECT count(*) FROM seen"), std::to_string(good)) << script;
    }
}

TEST_F(ScriptTest, TextWithANulCharacterIsRejectedWholeAndRunsNothing) {
    Execute("CREATE TABLE t AS SELECT 1 AS a");
    EXPECT_EQ(Catch([&] { Execute(std::string_view("DELETE FROM t\0 WHERE a = 2", 26)); }),
              MemoryError("SQL text must not contain NUL characters"));
    EXPECT_EQ(Execute("DELETE FROM t"), 1);
}

}  // namespace mduckdb::test
