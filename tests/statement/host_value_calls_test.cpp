// Host values whose methods throw, or call the module while it reads them.
#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <thread>

#include "nbx/hooks.h"
#include "nbx/mrsql/duckdb_appender.h"
#include "nbx/mrsql/duckdb_streaming.h"
#include "statement_fixture.h"
#include "support/environment.h"
#include "support/hosts_own_value.h"
#include "support/test_host.h"

namespace mduckdb::test {

namespace {

/** What happens at one of the module's calls of a host value, counted from 1. */
struct Plan {
    uint64_t call = 0;
    std::function<void()> act;
    uint64_t calls = 0;
};
Plan gPlan;

void Meet() {
    if (++gPlan.calls == gPlan.call) {
        const std::function<void()> act = std::exchange(gPlan.act, nullptr);
        act();
    }
}

class PlannedValue final : public HostsOwnValue {
  public:
    using HostsOwnValue::HostsOwnValue;

  private:
    void BeforeCall() const override { Meet(); }
};

Value Own(Value inner) {
    return nbx::MakeObject<PlannedValue>(std::move(inner));
}

smart_ptr<ValueRow> OwnRow() {
    return Row({Own(Long(7)), Own(Str("text")), Own(Double(0.5))});
}

/** Runs in another thread what would wait forever if a lock were taken twice or in the wrong order. It takes
   seconds, and in an emulator on a busy machine minutes. */
void WithoutWaitingForEver(const std::function<void()>& run) {
    const auto limit = std::chrono::minutes(1) * NumberFromEnvironment("MDUCKDB_SLOWNESS_OF_TESTS", 1);
    auto done = std::async(std::launch::async, run);
    if (done.wait_for(limit) != std::future_status::ready) {
        ADD_FAILURE() << "a call waits for a lock that is not released";
        std::quick_exit(1);
    }
    done.get();
}

const std::string kInsert = "INSERT INTO t VALUES ($1, $2, $3)";

class HostValueCallsTest : public StatementTest {
  protected:
    HostValueCallsTest() { Direct("CREATE TABLE t (i INTEGER, s VARCHAR, d DOUBLE)"); }
    ~HostValueCallsTest() override { gPlan = {}; }

    struct Entry {
        const char* name;
        std::function<void()> run;
    };
    /** Each stores one row. */
    std::vector<Entry> Entries() {
        return {
            {"SqlExecute", [this] { database_->SqlExecute(Text(kInsert), OwnRow()); }},
            {"SqlQuery", [this] { database_->SqlQuery(Text(kInsert), nbx::mrsql::kServerCursor, OwnRow()); }},
            {"Execute",
             [this] {
                 statement_ = Prepared(kInsert);
                 statement_->put_Parameters(OwnRow());
                 statement_->Execute();
             }},
            {"Execute of rows",
             [this] {
                 statement_ = Prepared(kInsert);
                 statement_->put_ParameterRows(Rows({OwnRow()}));
                 statement_->Execute();
             }},
            {"BindValue",
             [this] {
                 statement_ = Prepared(kInsert);
                 const auto row = OwnRow();
                 for (uint32_t i = 0; i < 3; ++i) {
                     statement_->BindValue(i + 1, row->get_Item(i));
                 }
                 statement_->Execute();
             }},
            {"AppendRow",
             [this] {
                 appender_ = CreateAppender();
                 appender_->AppendRow(OwnRow());
                 appender_->Close();
             }},
            {"OpenStream",
             [this] {
                 const auto stream = OpenStream();
                 ASSERT_TRUE(stream->NextRecord());
                 const auto read = Row({stream->get_Value(0), stream->get_Value(1), stream->get_Value(2)});
                 database_->SqlExecute(Text(kInsert), read);
             }},
        };
    }

    /** Runs `check` for each entry with `act` at each call of a value in turn. */
    void ForEachCall(const std::function<void()>& act, const std::function<void(const Entry&)>& check) {
        for (const Entry& entry : Entries()) {
            gPlan = {};
            entry.run();
            const uint64_t calls = gPlan.calls;
            EXPECT_GE(calls, 6U) << entry.name;
            for (uint64_t call = 1; call <= calls; ++call) {
                SCOPED_TRACE(std::string(entry.name) + ", call " + std::to_string(call) + " of a value");
                Reset();
                gPlan = {call, act, 0};
                check(entry);
                EXPECT_FALSE(gPlan.act) << "nothing happened";
                gPlan = {};
            }
            Reset();
        }
    }

    smart_ptr<nbx::mrsql::I_DuckDBAppender> CreateAppender() {
        nbx::mrsql::DuckDBAppenderOptions options;
        options.table = Text("t");
        return static_cast<nbx::mrsql::I_DuckDBAppenders*>(
                   database_->QueryInterface(nbx::mrsql::kDuckDBAppendersInterfaceId))
            ->CreateAppender(options);
    }
    smart_ptr<I_DuckDBCursor> OpenStream() {
        return static_cast<nbx::mrsql::I_DuckDBStreaming*>(
                   database_->QueryInterface(nbx::mrsql::kDuckDBStreamingInterfaceId))
            ->OpenStream(Text("SELECT $1, $2, $3"), OwnRow());
    }

    /** Runs `read`, in which the first call of a value runs SQL while another thread closes the database,
       which has begun as soon as `has_begun` tells. */
    void ExpectAnErrorBesideAClose(const std::function<void()>& read,
                                   const std::function<bool()>& has_begun) {
        WithoutWaitingForEver([&] {
            std::future<void> closing;
            const auto act = [&] {
                closing = std::async(std::launch::async, [this] { database_->Close(); });
                while (!has_begun()) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
                for (int i = 0; i < 100; ++i) {
                    database_->SqlExecute(Text("SELECT 1"), nullptr);
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
            };
            gPlan = {1, act, 0};
            EXPECT_NE("", Catch(read).exception);
            ASSERT_TRUE(closing.valid()) << "no value was read";
            closing.get();
            EXPECT_FALSE(database_->get_IsOpen());
        });
    }

    void Reset() {
        statement_.reset();
        appender_.reset();
        if (!database_->get_IsOpen()) {
            database_->Open();
            Direct("CREATE TABLE t (i INTEGER, s VARCHAR, d DOUBLE)");
        }
        Direct("DELETE FROM t");
    }

    smart_ptr<I_DuckDBStatement> statement_;
    smart_ptr<nbx::mrsql::I_DuckDBAppender> appender_;
};

const std::string kStored = "7|text|0.5";

TEST_F(HostValueCallsTest, StoreTheRowOfTheHostsOwnClasses) {
    for (const Entry& entry : Entries()) {
        entry.run();
        EXPECT_EQ(kStored, Scalar("SELECT i || '|' || s || '|' || d FROM t")) << entry.name;
        Reset();
    }
}

TEST_F(HostValueCallsTest, ThatThrowStoreNothingAndTheNextCallWorks) {
    ForEachCall([] { throw nbx::xException(0x1234, "the host's own"); },
                [this](const Entry& entry) {
                    EXPECT_NE("", Catch(entry.run).exception);
                    appender_.reset();
                    EXPECT_EQ("0", Scalar("SELECT count(*) FROM t"));
                    entry.run();
                    EXPECT_EQ("1", Scalar("SELECT count(*) FROM t"));
                });
}

TEST_F(HostValueCallsTest, ThatExecuteOnTheSameDatabaseChangeNoRow) {
    ForEachCall([this] { database_->SqlExecute(Text("CREATE OR REPLACE TABLE other AS SELECT 1"), nullptr); },
                [this](const Entry& entry) {
                    EXPECT_EQ("", Catch(entry.run).message);
                    EXPECT_EQ(kStored, Scalar("SELECT i || '|' || s || '|' || d FROM t"));
                });
}

TEST_F(HostValueCallsTest, ThatCloseTheDatabaseEndTheCallWithAnError) {
    WithoutWaitingForEver([this] {
        ForEachCall([this] { database_->Close(); },
                    [](const Entry& entry) { EXPECT_NE("", Catch(entry.run).exception); });
    });
}

// A database that closes takes the engine lock before it releases its results, and then its cursors and
// statements.

TEST_F(HostValueCallsTest, OfPutParametersMayWaitForTheEngineLockOfAClose) {
    statement_ = Prepared(kInsert);
    const auto result = database_->SqlQuery(Text("SELECT 1"), nbx::mrsql::kServerCursor, nullptr);
    ExpectAnErrorBesideAClose([&] { statement_->put_Parameters(OwnRow()); },
                              [&] { return !result->get_Cursor(); });
}

TEST_F(HostValueCallsTest, OfOpenStreamMayWaitForTheEngineLockOfAClose) {
    const auto result = database_->SqlQuery(Text("SELECT 1"), nbx::mrsql::kServerCursor, nullptr);
    ExpectAnErrorBesideAClose([&] { OpenStream(); }, [&] { return !result->get_Cursor(); });
}

TEST_F(HostValueCallsTest, OfAppendRowMayWaitForTheEngineLockOfAClose) {
    appender_ = CreateAppender();
    appender_->AppendRow(Row({Long(1), Str("x"), Double(2)}));
    ExpectAnErrorBesideAClose(
        [&] {
            appender_->AppendRows(Rows({OwnRow(), OwnRow()}));
        },
        [&] { return !appender_->get_Database(); });
    EXPECT_EQ(0U, appender_->get_PendingRowCount());
    EXPECT_EQ("DuckDBAppender is invalid", Catch([&] { appender_->Close(); }).message);
}

TEST_F(HostValueCallsTest, ThatCallTheSameStatementOrAppenderEndTheCallWithAnError) {
    ForEachCall(
        [this] {
            const auto other = Row({Long(1), Str("x"), Double(2)});
            if (statement_) {
                statement_->put_Parameters(other);
            } else if (appender_) {
                appender_->AppendRow(other);
            }
        },
        [this](const Entry& entry) {
            const Thrown thrown = Catch(entry.run);
            EXPECT_EQ(statement_ || appender_,
                      thrown.message.find("is reading the value that calls it") != std::string::npos)
                << thrown;
            appender_.reset();
            EXPECT_EQ(thrown.message.empty() ? "1" : "0", Scalar("SELECT count(*) FROM t"));
        });
}

TEST_F(HostValueCallsTest, ThatInterruptEndTheScriptWhicheverStatementReadsThem) {
    bool (*const old_hook)() = nbx::mrsql::gpIsLocalSqlCall_PTR;
    nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
    const std::string script = kInsert + ";" + kInsert;
    const auto execute_all = [&] {
        statement_ = Make(script);
        statement_->put_Parameters(OwnRow());
        gPlan.calls = 0;  // from here on they are read by the statements
        statement_->ExecuteAll();
    };
    const auto try_execute_all = [&] {
        statement_ = Make(script);
        statement_->put_Parameters(OwnRow());
        gPlan.calls = 0;
        const auto outcome = statement_->TryExecuteAll();
        EXPECT_LT(outcome.statements_executed, 2U);
        EXPECT_NE(outcome.error_code, 0U);
    };
    gPlan = {};
    execute_all();
    const uint64_t calls = gPlan.calls;
    ASSERT_GE(calls, 12U);
    for (uint64_t call = 1; call <= calls; ++call) {
        SCOPED_TRACE("call " + std::to_string(call) + " of a value");
        const auto interrupt = [this] { database_->Interrupt(); };
        Reset();
        gPlan = {call, interrupt, 0};
        EXPECT_EQ(Catch(execute_all).exception, "xInterruptError");
        EXPECT_LT(std::stoi(Scalar("SELECT count(*) FROM t")), 2);
        Reset();
        gPlan = {call, interrupt, 0};
        try_execute_all();
        EXPECT_LT(std::stoi(Scalar("SELECT count(*) FROM t")), 2);
        EXPECT_FALSE(gPlan.act) << "nothing happened";
    }
    nbx::mrsql::gpIsLocalSqlCall_PTR = old_hook;
}

TEST_F(HostValueCallsTest, ThatDetachTheStatementEndTheCallWithAnError) {
    ForEachCall(
        [this] {
            if (statement_) {
                statement_->Detach();
            }
        },
        [this](const Entry& entry) {
            const Thrown thrown = Catch(entry.run);
            EXPECT_EQ(statement_ ? "DuckDBDatabase is invalid" : "", thrown.message);
        });
}

}  // namespace
}  // namespace mduckdb::test
