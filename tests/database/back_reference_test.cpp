// A child's way back to its database while other threads release or close that database.

#include <chrono>
#include <thread>

#include "base/engine_lock.h"
#include "database_test_base.h"
#include "nbx/mrsql/registry.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using nbx::mrsql::kClientCursor;
using nbx::mrsql::kServerCursor;

class BackReference : public DatabaseTest {
  protected:
    /** Drops the last reference on another thread while this one holds the engine lock, so that the
        destructor waits for it, and returns whether the child keeps returning the dying database. */
    template <class Child>
    void ExpectNoDyingDatabase(Database database, Child child) {
        std::thread other;
        bool is_gone = false;
        {
            const mduckdb::EngineLockScope lock;
            other = std::thread([last = std::move(database)]() mutable { last.reset(); });
            const auto deadline = Clock::now() + 5s;
            while (!is_gone && Clock::now() < deadline) {
                is_gone = child->get_Database() == nullptr;
                std::this_thread::sleep_for(1ms);
            }
        }
        other.join();
        EXPECT_TRUE(is_gone);
        EXPECT_FALSE(child->get_Database());
    }
};

TEST_F(BackReference, OfAStatementIsNullOnceTheLastReferenceToItsDatabaseIsGone) {
    auto database = host.Opened(":memory:");
    auto statement = database->CreateStatement(S("SELECT 1"));
    ExpectNoDyingDatabase(std::move(database), std::move(statement));
}

TEST_F(BackReference, OfAServerCursorIsNullOnceTheLastReferenceToItsDatabaseIsGone) {
    auto database = host.Opened(":memory:");
    auto cursor = database->SqlSelect(S("SELECT 1"), kServerCursor, nullptr);
    ExpectNoDyingDatabase(std::move(database), std::move(cursor));
}

TEST_F(BackReference, OfAClientCursorIsNullOnceTheLastReferenceToItsDatabaseIsGone) {
    auto database = host.Opened(":memory:");
    auto cursor = database->SqlSelect(S("SELECT 1"), kClientCursor, nullptr);
    ExpectNoDyingDatabase(std::move(database), std::move(cursor));
}

TEST_F(BackReference, TakenOnOneThreadKeepsTheDatabaseThatAnotherThreadReleases) {
    for (int round = 0; round < 40; ++round) {
        auto database = host.Opened(":memory:");
        const auto statement = database->CreateStatement(S("SELECT 1"));
        std::thread other([last = std::move(database)]() mutable { last.reset(); });
        while (const auto taken = statement->get_Database()) {
            EXPECT_TRUE(taken->get_IsOpen());
        }
        other.join();
    }
}

TEST_F(BackReference, CountsEveryReferenceThatAChildReturns) {
    const auto database = host.Opened(":memory:");
    const auto statement = database->CreateStatement(S("SELECT 1"));
    const auto cursor = database->SqlSelect(S("SELECT 1"), kServerCursor, nullptr);
    const auto from_statement = statement->get_Database();
    const auto from_cursor = cursor->get_Database();
    EXPECT_EQ(from_statement.get(), database.get());
    EXPECT_EQ(from_cursor.get(), database.get());
    EXPECT_EQ(database->get_RefsCount(), 3u);
}

TEST_F(BackReference, IsNullForAChildThatItsDatabaseHasClosed) {
    const auto database = host.Opened(":memory:");
    const auto statement = database->CreateStatement(S("SELECT 1"));
    const auto cursor = database->SqlSelect(S("SELECT 1"), kServerCursor, nullptr);
    database->Close();
    EXPECT_FALSE(statement->get_Database());
    EXPECT_FALSE(cursor->get_Database());
}

TEST_F(BackReference, DatabaseAndExtensionAnswerTheirOwnIdentifiersAndNoOther) {
    const auto database = host.Opened(":memory:");
    const auto extension = nbx::mrsql::GetDuckDBExtension();
    EXPECT_EQ(database->QueryInterface(nbx::mrsql::kDuckDBDatabaseInterfaceId), database.get());
    EXPECT_EQ(extension->QueryInterface(nbx::mrsql::kDuckDBExtensionInterfaceId), extension.get());
    EXPECT_EQ(database->QueryInterface(nbx::mrsql::kDuckDBExtensionInterfaceId), nullptr);
    EXPECT_EQ(extension->QueryInterface(nbx::mrsql::kDuckDBDatabaseInterfaceId), nullptr);
    EXPECT_EQ(database->QueryInterface(0), nullptr);
}

}  // namespace
