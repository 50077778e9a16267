#include "soak/day.h"

#include <duckdb.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

#include "nbx/hooks.h"
#include "nbx/mrsql/duckdb_appender.h"
#include "nbx/mrsql/duckdb_snapshot.h"
#include "procedures/handlers.h"

using mduckdb::test::FakeHost;
using nbx::mrsql::I_DuckDBDatabase;
using nbx::mrsql::kClientCursor;
using nbx::mrsql::kServerCursor;

namespace {

constexpr const char* kEmptyTables =
    "CREATE OR REPLACE TABLE t AS SELECT range AS i, 'text ' || range AS s FROM range(2000); "
    "CREATE OR REPLACE TABLE new (i BIGINT, s VARCHAR)";
/** A backup is the work of many statements, as on a day. */
constexpr uint64_t kRoundsOfOneBackup = 8;

}  // namespace

Day::Day(uint64_t seed) : random_(seed), file_(folder_ / "day.db"), parquet_(folder_ / "day.parquet") {
    nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
    const auto database = host_.Created(file_);
    Execute(*database, std::string(kEmptyTables) + "; COPY t TO '" + parquet_ + "'");
    database->Close();
}

void Day::WorkOneRound() {
    {
        const Database database = host_.Opened(file_);
        const Database other = host_.Opened(file_);
        std::vector<std::function<void()>> work = {
            [&] { Store(*database); },
            [&] { StoreByAppender(*other); },
            [&] { AbandonCursor(*database, kClientCursor); },
            [&] { AbandonCursor(*other, kServerCursor); },
            [&] { FailOnPurpose(*database); },
            [&] { InterruptQuery(*other); },
            [&] { CallProcedures(); },
        };
        if (++rounds_ % kRoundsOfOneBackup == 0) {
            work.emplace_back([&] { BackUpAndRestore(*database); });
        }
        std::shuffle(work.begin(), work.end(), random_);
        for (const auto& operation : work) {
            operation();
            ++operations_;
        }
        // What was stored is not what grows.
        Execute(*database, "DELETE FROM new; CHECKPOINT");
        other->Close();
    }
    procedures_.CloseCursor();
}

void Day::Store(I_DuckDBDatabase& database) {
    const auto statement = database.CreateStatement(S("INSERT INTO new VALUES ($1, $2)"));
    statement->PrepareNext();
    for (int32_t i = 0; i < 20; ++i) {
        statement->BindBigInt(1, i);
        statement->BindVarchar(2, S("stored"));
        statement->Execute();
    }
    Execute(database, "BEGIN; DELETE FROM new; ROLLBACK");
}

void Day::StoreByAppender(I_DuckDBDatabase& database) {
    nbx::mrsql::DuckDBAppenderOptions options;
    options.table = S("new");
    auto& appenders = *static_cast<nbx::mrsql::I_DuckDBAppenders*>(
        database.QueryInterface(nbx::mrsql::kDuckDBAppendersInterfaceId));
    const auto appender = appenders.CreateAppender(options);
    std::array<int64_t, 500> numbers{};
    std::array<nbx::mrsql::DuckDBBytes, 500> texts{};
    texts.fill({"appended", 8});
    const nbx::mrsql::DuckDBColumnArray columns[] = {{DUCKDB_TYPE_BIGINT, numbers.data()},
                                                     {DUCKDB_TYPE_VARCHAR, texts.data()}};
    appender->AppendColumns(columns, 2, numbers.size());
    if (random_() % 2 == 0) {
        appender->Close();
    }
}

void Day::AbandonCursor(I_DuckDBDatabase& database, uint32_t location) {
    const auto cursor = database.SqlSelect(S("SELECT i, s, [i, NULL], {'a': i} FROM t"), location, nullptr);
    for (uint64_t rows = random_() % 1000; rows > 0 && cursor->NextRecord(); --rows) {
        for (uint32_t column = 0; column < cursor->get_ColumnCount(); ++column) {
            cursor->get_Value(column)->get_Text();
        }
    }
}

void Day::FailOnPurpose(I_DuckDBDatabase& database) {
    for (const char* sql :
         {"SELECT * FROM missing", "SELEC", "INSERT INTO t VALUES (1)", "SELECT error('no')"}) {
        EXPECT_NE(Thrown([&] { Execute(database, sql); }), "none") << sql;
    }
}

void Day::InterruptQuery(I_DuckDBDatabase& database) {
    std::atomic<bool> is_over{false};
    std::thread interrupter([&] {
        while (!is_over) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            database.Interrupt();
        }
    });
    Thrown([&] {
        QueryText(database,
                  "SELECT count(*) FROM range(100000000) a, range(1000) b WHERE a.range % 7 = b.range");
    });
    is_over = true;
    interrupter.join();
}

void Day::CallProcedures() {
    // The host keeps each value that it makes.
    if (rounds_ % 50 == 0) {
        procedures_.Forget();
    }
    procedures_.reports.clear();
    procedures_.Call<mduckdb::FetchParquet>({procedures_.Text(parquet_), procedures_.Text("i, s")});
    for (uint64_t rows = random_() % 1000; rows > 0 && procedures_.has_cursor; --rows) {
        procedures_.cursor.next_row(procedures_.cursor.state);
    }
    procedures_.Call<mduckdb::FetchDuckDB>({procedures_.Text(file_), procedures_.Text("t")});
    procedures_.Call<mduckdb::ParquetCount>({procedures_.Text(parquet_)});
    EXPECT_EQ(procedures_.Call<mduckdb::ParquetSchema>({procedures_.Text("missing.parquet")}), nullptr);
}

void Day::BackUpAndRestore(I_DuckDBDatabase& database) {
    const std::filesystem::path exports = folder_ / "exports";
    std::filesystem::create_directory(exports);
    database.Backup(Location(exports.string()));
    const std::string made = std::filesystem::directory_iterator(exports)->path().string();
    host_->RestoreDatabase(Location(folder_ / "restored.db"), Location(made));
    std::filesystem::remove_all(exports);
    const std::string shot = folder_ / "shot.db";
    static_cast<nbx::mrsql::I_DuckDBSnapshot*>(
        database.QueryInterface(nbx::mrsql::kDuckDBSnapshotInterfaceId))
        ->Snapshot(Location(shot));
    std::filesystem::remove(shot);
    std::filesystem::remove(shot + ".manifest.json");
    host_.Opened(folder_ / "restored.db")->Drop();
}
