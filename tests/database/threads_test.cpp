#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>
#include <vector>

#include "engines/engine_files.h"
#include "handle_balance.h"
#include "nbx/hooks.h"
#include "support/environment.h"
#include "support/temp_folder.h"
#include "support/test_host.h"

// Databases used by many threads at once. For ThreadSanitizer; without it, for crashes, deadlocks and wrong
// results.

namespace {

using namespace std::chrono_literals;
using Database = nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase>;

std::chrono::seconds Duration() {
    return std::chrono::seconds(NumberFromEnvironment("MDUCKDB_TEST_SECONDS", 3));
}

/** Host exceptions are expected, since another thread closes, interrupts or drops at any moment; other
    exceptions are not. */
void Try(const std::function<void()>& action) {
    const std::string thrown = Thrown(action);
    EXPECT_NE(thrown.find("std: "), 0u) << thrown;
    EXPECT_NE(thrown, "unknown");
}

void ExpectNoHandleLeft() {
    EXPECT_GT(handle_balance::CountOpened(), 0);
    EXPECT_EQ(handle_balance::CountEngines(), 0);
    EXPECT_EQ(handle_balance::CountConnections(), 0);
}

TEST(DatabaseThreads, EightThreadsOnSharedAndOwnObjects) {
    const TempFolder folder;
    TestHost host;
    nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
    host.Created(folder / "a.db");
    const Database shared = host.Database(folder / "a.db");
    const Database memory = host.Database(":memory:");
    const auto end = std::chrono::steady_clock::now() + Duration();
    std::atomic<long> answers = 0;
    const auto work = [&](unsigned number) {
        for (unsigned i = number; std::chrono::steady_clock::now() < end; ++i) {
            const Database& database = i % 2 == 0 ? shared : memory;
            switch ((i * 7 + number) % 8) {
                case 0:
                    Try([&] { database->Open(); });
                    break;
                case 1:
                    Try([&] { database->Close(); });
                    break;
                case 2:
                    Try([&] { database->Interrupt(); });
                    break;
                case 3: {
                    const Database own = host.Database(folder / "a.db");
                    Try([&] {
                        own->Open();
                        EXPECT_GT(own->get_ConnectionCount(), 0u);
                        EXPECT_EQ(QueryText(*own, "SELECT 42"), "42");
                        ++answers;
                    });
                    break;
                }
                case 4:
                    Try([&] {
                        const auto cursor =
                            database->SqlSelect(S("SELECT range FROM range(5000)"), 2, nullptr);
                        while (cursor->NextRecord()) {
                            ++answers;
                        }
                    });
                    break;
                case 5:
                    Try([&] {
                        const auto statement = database->CreateStatement(S("SELECT 1"));
                        statement->ExecuteAll();
                    });
                    break;
                case 6:
                    Try([&] { host->IsDuckDBFile(Location(folder / "a.db")); });
                    Try([&] { EXPECT_FALSE(host->IsDatabaseOpen(S(folder / "other.db"))); });
                    break;
                default:
                    database->get_IsOpen();
                    database->get_IsReadOnly();
                    database->get_Exists();
                    break;
            }
        }
    };
    std::vector<std::thread> threads;
    for (unsigned number = 0; number < 8; ++number) {
        threads.emplace_back(work, number);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GT(answers.load(), 0);
    shared->Close();
    memory->Close();
    EXPECT_EQ(shared->get_ConnectionCount(), 0u);
    EXPECT_EQ(mduckdb::EngineFiles::Get().get_EngineCount(), 0u);
    EXPECT_FALSE(mduckdb::EngineFiles::Get().IsInUse(folder / "a.db"));
    ExpectNoHandleLeft();
}

TEST(DatabaseThreads, CursorsDieWhileTheirDatabaseCloses) {
    TestHost host;
    const Database database = host.Database(":memory:");
    const auto end = std::chrono::steady_clock::now() + Duration() / 3;
    std::atomic<long> made{0};
    // On a busy machine, the first cursor may come late.
    const auto is_over = [&made, end] {
        const auto now = std::chrono::steady_clock::now();
        return now >= end && (made > 0 || now >= end + std::chrono::minutes(1));
    };
    std::thread closer([&] {
        while (!is_over()) {
            const long before = made;
            Try([&] { database->Open(); });
            // The engine lock is not fair: without this, the thread would take it again and again.
            while (made == before && !is_over()) {
                std::this_thread::yield();
            }
            Try([&] { database->Close(); });
        }
    });
    while (!is_over()) {
        Try([&] {
            const auto cursor = database->SqlSelect(S("SELECT 1"), 2, nullptr);
            ++made;  // from here on the database closes while the cursor is destroyed
        });
    }
    closer.join();
    EXPECT_GT(made, 0);
    ExpectNoHandleLeft();
}

TEST(DatabaseThreads, ExportsRunWhileOthersCloseAndInterrupt) {
    const TempFolder folder;
    TestHost host;
    nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
    const Database database = host.Created(folder / "a.db");
    Execute(*database, "CREATE TABLE t AS SELECT range AS i FROM range(20000)");
    std::filesystem::create_directory(folder / "backups");
    const auto end = std::chrono::steady_clock::now() + Duration() / 2;
    std::vector<std::thread> threads;
    for (int number = 0; number < 2; ++number) {
        threads.emplace_back([&] {
            while (std::chrono::steady_clock::now() < end) {
                Try([&] { database->Backup(Location(folder / "backups")); });
            }
        });
    }
    threads.emplace_back([&] {
        while (std::chrono::steady_clock::now() < end) {
            Try([&] { database->Close(); });
            Try([&] { database->Open(); });
        }
    });
    threads.emplace_back([&] {
        while (std::chrono::steady_clock::now() < end) {
            database->Interrupt();
            std::this_thread::sleep_for(20ms);
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    database->Close();
    EXPECT_FALSE(database->get_IsOpen());
    ExpectNoHandleLeft();
}

}  // namespace
