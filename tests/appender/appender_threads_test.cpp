#include <atomic>
#include <thread>

#include "appender_fixture.h"
#include "nbx/hooks.h"

namespace mduckdb::test {
namespace {

TEST_F(AppenderTest, IsSharedByThreads) {
    Direct("CREATE TABLE t (thread INTEGER, i INTEGER)");
    const Appender appender = Open("t");
    const auto append = [&](int32_t number) {
        for (int32_t i = 0; i < 5000; ++i) {
            appender->AppendRow(Row({Long(number), Long(i)}));
            if (i % 1000 == 999) {
                appender->Flush();
            }
        }
    };
    std::thread other(append, 1);
    append(2);
    other.join();
    appender->Close();
    EXPECT_EQ(Direct("SELECT thread, count(*), count(DISTINCT i) FROM t GROUP BY ALL ORDER BY ALL"),
              (Table{{"1", "5000", "5000"}, {"2", "5000", "5000"}}));
}

TEST_F(AppenderTest, NeedsNoEngineLockForItsRows) {
    Direct("CREATE TABLE t (i INTEGER)");
    const Appender appender = Open("t");
    const EngineLockScope held;
    std::thread other([&] {
        appender->AppendRow(Row({Long(1)}));
        appender->Commit();
    });
    other.join();
    EXPECT_EQ(Scalar("SELECT count(*) FROM t"), "1");
}

/** Calls while other threads interrupt. */
class InterruptedAppenderTest : public AppenderTest {
  protected:
    InterruptedAppenderTest() {
        nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
    }
    ~InterruptedAppenderTest() override { nbx::mrsql::gpIsLocalSqlCall_PTR = nullptr; }
};

TEST_F(InterruptedAppenderTest, KnowsWhatIsStoredWheneverAnInterruptComes) {
    Direct("CREATE TABLE t (i INTEGER)");
    std::atomic<bool> is_done{false};
    std::thread other([&] {
        while (!is_done.load()) {
            database_->Interrupt();
        }
    });
    const Appender appender = Open("t");
    for (int32_t i = 0; i < 500; ++i) {
        appender->AppendRow(Row({Long(i)}));
        const Thrown thrown = Catch([&] { appender->Commit(); });
        EXPECT_TRUE(thrown.exception.empty() || thrown.exception == "xInterruptError") << thrown;
    }
    is_done.store(true);
    other.join();
    EXPECT_EQ(Scalar("SELECT count(*) FROM t"), std::to_string(appender->get_StoredRowCount()));
    EXPECT_EQ(appender->get_PendingRowCount(), 0u);
}

TEST_F(InterruptedAppenderTest, EndsAtAnyMomentWithoutHarm) {
    for (int round = 0; round < 30; ++round) {
        Direct("CREATE OR REPLACE TABLE t (i INTEGER)");
        std::vector<std::thread> threads;
        for (int i = 0; i < 2; ++i) {
            threads.emplace_back([&, appender = Open("t"), is_flushing = i == 0] {
                Thrown thrown;
                while (thrown.exception.empty()) {
                    thrown = Catch([&] {
                        appender->AppendRow(Row({Long(1)}));
                        if (is_flushing) {
                            appender->Flush();
                        }
                    });
                }
                EXPECT_EQ(thrown, kAppenderIsInvalid);
                Catch([&] { appender->Close(); });
            });
        }
        threads.emplace_back([&] {
            while (true) {
                const Thrown thrown = Catch([&] { Open("t")->AppendRow(Row({Long(1)})); });
                if (!thrown.exception.empty()) {
                    EXPECT_TRUE(thrown == kAppenderIsInvalid ||
                                thrown == MemoryError("DuckDBDatabase is not open"))
                        << thrown;
                    break;
                }
            }
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(round % 10));
        database_->Close();
        for (std::thread& thread : threads) {
            thread.join();
        }
        database_->Create();
    }
}

}  // namespace
}  // namespace mduckdb::test
