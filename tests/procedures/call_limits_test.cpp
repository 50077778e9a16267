// A call of a procedure keeps to the memory, the time and the space that the host allows.
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <memory>
#include <thread>

#include "limited_calls.h"
#include "support/peak_memory.h"

namespace mduckdb::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Clock = std::chrono::steady_clock;

/** As `MemoryBound`, with fewer rows by default; more than the limit in any case. */
struct Bound : MemoryBound {
    Bound() { rows = is_full ? rows : 6'000'000; }
    std::int64_t texts = is_full ? 1'000'000 : 300'000;
};

/** Of all threads of this process: other programs do not lengthen it. */
double ProcessorMilliseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return 1e3 * static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e6;
}

class CallLimitsTest : public LimitedCalls {
  protected:
    /** A Parquet file of numbers i, i * 3 and i / 2. */
    std::string MakeNumbers(std::int64_t rows) {
        const std::string file = folder_ / "numbers.parquet";
        RunAlone(nullptr, "SET memory_limit = '200MB'; SET temp_directory = '" + (folder_ / "tmp") +
                              "'; COPY (SELECT i, i * 3 AS t, i::DOUBLE / 2 AS d FROM range(" +
                              std::to_string(rows) + ") r(i)) TO '" + file + "' (FORMAT parquet)");
        return file;
    }
    void ExpectRow(std::int64_t row) {
        ASSERT_EQ(std::to_string(row), host_.Cell(0));
        ASSERT_EQ(std::to_string(row * 3), host_.Cell(1));
        ASSERT_EQ(std::to_string(static_cast<double>(row) / 2), host_.Cell(2));
    }
    /** Reads all rows forward, then some at random, and looks at every value or at many. */
    void ExpectRows(std::int64_t rows) {
        ASSERT_EQ(static_cast<std::uint64_t>(rows), host_.cursor.row_count(host_.cursor.state));
        std::int64_t row = 0;
        for (; NextRow(); ++row) {
            if (row % 1021 == 0) {
                ExpectRow(row);
            }
        }
        EXPECT_EQ(rows, row);
        std::uint64_t place = 88172645463325252;
        for (int i = 0; i < 2000; ++i) {
            place ^= place << 13;
            place ^= place >> 7;
            place ^= place << 17;
            const auto target = static_cast<std::int64_t>(place % static_cast<std::uint64_t>(rows));
            ASSERT_TRUE(GoToRow(target)) << target << ::testing::PrintToString(host_.reports);
            ExpectRow(target);
        }
        EXPECT_TRUE(host_.reports.empty());
    }
    std::string FetchSlowly() {
        return ReportOf<ParquetCount>(
            {host_.Text(one_), host_.Text("(SELECT count(*) FROM range(100000000000) r(x)) > 0")});
    }

    std::string one_ = [this] {
        RunAlone(nullptr, "COPY (SELECT 1 AS i) TO '" + (folder_ / "one.parquet") + "' (FORMAT parquet)");
        return folder_ / "one.parquet";
    }();
};

TEST_F(CallLimitsTest, AreThoseThatWereSetLast) {
    DuckDBProcedureLimits limits = limits_->get_Limits();
    EXPECT_EQ(0u, limits.memory_mb + limits.threads + limits.time_ms + limits.temp_directory_mb);
    EXPECT_FALSE(limits.temp_directory || limits.allowed_directories);
    limits.memory_mb = 100;
    limits.threads = 5000;
    limits.time_ms = 3;
    limits.temp_directory_mb = 4;
    limits.temp_directory = LocationOf(spill_.get_Path().string());
    limits.allowed_directories = nbx::MakeObject<nbx::ArrayOfSmartPtrs<nbx::smart_ptr<nbx::I_Location>>>();
    limits.allowed_directories->Append(LocationOf(folder_ / "."));
    Put(limits);
    limits = limits_->get_Limits();
    EXPECT_EQ(100u, limits.memory_mb);
    EXPECT_EQ(1024u, limits.threads);
    EXPECT_EQ(3u, limits.time_ms);
    EXPECT_EQ(4u, limits.temp_directory_mb);
    EXPECT_EQ(spill_.get_Path().string(), U(limits.temp_directory->get_PathText()));
    ASSERT_EQ(1u, limits.allowed_directories->get_Count());
    EXPECT_EQ(folder_.get_Path().string(), U(limits.allowed_directories->get_Item(0)->get_PathText()));
}

TEST_F(CallLimitsTest, StayAsTheyWereWhenAFolderCannotBeUsed) {
    LimitTime(123);
    DuckDBProcedureLimits limits;
    limits.temp_directory = LocationOf(folder_ / "missing");
    EXPECT_EQ("xDuckDBError 72501 [" + (folder_ / "missing") + "] [The folder does not exist]",
              Thrown([&] { Put(limits); }));
    limits.temp_directory = LocationOf("/proc");
    EXPECT_THAT(Thrown([&] { Put(limits); }), HasSubstr("[Cannot create a folder for temporary files: "));
    limits.temp_directory = nullptr;
    limits.allowed_directories = nbx::MakeObject<nbx::ArrayOfSmartPtrs<nbx::smart_ptr<nbx::I_Location>>>();
    limits.allowed_directories->Append(LocationOf(one_));
    EXPECT_EQ("xDuckDBError 72501 [" + one_ + "] [The folder does not exist]", Thrown([&] { Put(limits); }));
    limits.allowed_directories->put_Item(0, nullptr);
    EXPECT_EQ("xDuckDBError 72501 [unknown] [A folder of the limits is null]", Thrown([&] { Put(limits); }));
    EXPECT_EQ(123u, limits_->get_Limits().time_ms);
}

TEST_F(CallLimitsTest, AreTheSettingsOfTheCallsEngine) {
    DuckDBProcedureLimits limits;
    limits.memory_mb = 96;
    limits.threads = 3;
    limits.temp_directory_mb = 5;
    limits.temp_directory = LocationOf(spill_.get_Path().string());
    Put(limits);
    const std::string database = folder_ / "a.db";
    const std::string settings =
        "SELECT current_setting('memory_limit') || ' ' || current_setting('threads') || ' ' || "
        "current_setting('max_temp_directory_size') || ' ' || current_setting('temp_directory') AS s";
    RunAlone(database.c_str(), "CREATE VIEW v AS " + settings);
    const std::string expected = "91.5 MiB 3 4.7 MiB " + spill_.get_Path().string() + "/mduckdb-";
    ASSERT_EQ("", ReportOf<FetchDuckDB>({host_.Text(database), host_.Text("v")}));
    ASSERT_TRUE(NextRow());
    EXPECT_EQ(0u, host_.Cell(0).find(expected)) << host_.Cell(0);
    ASSERT_EQ("", ReportOf<ParquetCount>(
                      {host_.Text(one_), host_.Text("starts_with((" + settings + "), '" + expected + "')")}));
    ASSERT_TRUE(NextRow());
    EXPECT_EQ("1", host_.Cell(0));
}

TEST_F(CallLimitsTest, HoldTheRowsOfFetchParquetWithinTheMemory) {
#ifdef MDUCKDB_TEST_IS_SANITIZED
    GTEST_SKIP() << "A sanitizer's own memory hides what is measured here";
#endif
    const Bound bound;
    const std::string file = MakeNumbers(bound.rows);
    LimitMemory(static_cast<std::uint32_t>(bound.limit_mb));
    const PeakMemory peak;
    ASSERT_EQ("", ReportOf<FetchParquet>({host_.Text(file)}));
    ExpectRows(bound.rows);
    EXPECT_LE(peak.get_Bytes(), bound.peak_bytes);
    RecordProperty("peak_bytes", std::to_string(peak.get_Bytes()));
}

TEST_F(CallLimitsTest, HoldTheRowsOfFetchDuckDBWithinTheMemory) {
#ifdef MDUCKDB_TEST_IS_SANITIZED
    GTEST_SKIP() << "A sanitizer's own memory hides what is measured here";
#endif
    const Bound bound;
    const std::string file = folder_ / "numbers.db";
    RunAlone(
        file.c_str(),
        "SET memory_limit = '200MB'; CREATE TABLE numbers AS SELECT i, i * 3 AS t, i::DOUBLE / 2 AS d FROM "
        "range(" +
            std::to_string(bound.rows) + ") r(i)");
    LimitMemory(static_cast<std::uint32_t>(bound.limit_mb));
    const PeakMemory peak;
    ASSERT_EQ("", ReportOf<FetchDuckDB>({host_.Text(file), host_.Text("numbers")}));
    ExpectRows(bound.rows);
    EXPECT_LE(peak.get_Bytes(), bound.peak_bytes);
    RecordProperty("peak_bytes", std::to_string(peak.get_Bytes()));
}

TEST_F(CallLimitsTest, HoldASmallFileOfManyLongTextsWithinTheMemory) {
#ifdef MDUCKDB_TEST_IS_SANITIZED
    GTEST_SKIP() << "A sanitizer's own memory hides what is measured here";
#endif
    const Bound bound;
    const std::string file = folder_ / "texts.parquet";
    // The texts are stored once, in a dictionary of nearly 200 KB; the rows repeat them.
    constexpr std::int64_t kTexts = 200;
    RunAlone(nullptr,
             "COPY (SELECT repeat(chr(97 + (k % 26)::INTEGER), 900 + (k % 100)::INTEGER) AS t FROM (SELECT "
             "i // 100 % " +
                 std::to_string(kTexts) + " AS k FROM range(" + std::to_string(bound.texts) +
                 ") r(i))) TO '" + file +
                 "' (FORMAT parquet, ROW_GROUP_SIZE 1000000, DICTIONARY_SIZE_LIMIT 100000, "
                 "STRING_DICTIONARY_PAGE_SIZE_LIMIT 100000000, COMPRESSION uncompressed)");
    EXPECT_GT(std::filesystem::file_size(file), 190'000u);
    EXPECT_LT(std::filesystem::file_size(file), 250'000u);
    LimitMemory(80);
    const PeakMemory peak;
    ASSERT_EQ("", ReportOf<FetchParquet>({host_.Text(file)}));
    ASSERT_EQ(static_cast<std::uint64_t>(bound.texts), host_.cursor.row_count(host_.cursor.state));
    for (std::int64_t row = 0; row < bound.texts; row += 29'991) {
        ASSERT_TRUE(GoToRow(row));
        const std::int64_t number = row / 100 % kTexts;
        ASSERT_EQ(
            std::string(static_cast<std::size_t>(900 + number % 100), static_cast<char>('a' + number % 26)),
            host_.Cell(0));
    }
    EXPECT_LE(peak.get_Bytes(), 200'000'000);
    RecordProperty("peak_bytes", std::to_string(peak.get_Bytes()));
    RecordProperty("file_bytes", std::to_string(std::filesystem::file_size(file)));
}

TEST_F(CallLimitsTest, LetNoCallReadOrDeleteWhatAnotherHasSpilled) {
    const std::string file = MakeNumbers(2'000'000);
    LimitMemory(24);
    FakeHost third;
    FakeHost other;  // calls go through its table from now on; all are alike
    ASSERT_NE(nullptr,
              other.Call<FetchParquet>({other.Text(file), other.Text("i"), other.Text("i % 2 = 1")}));
    ASSERT_EQ("", ReportOf<FetchParquet>({host_.Text(file)}));
    ASSERT_NE(nullptr, third.Call<FetchParquet>({third.Text(file)}));
    third.CloseCursor();
    ExpectRows(2'000'000);
    for (std::int64_t row = 0; row < 1'000'000; ++row) {
        ASSERT_EQ(MIRONA_ROW_OK, other.cursor.next_row(other.cursor.state));
        if (row % 997 == 0) {
            ASSERT_EQ(std::to_string(row * 2 + 1), other.Cell(0));
        }
    }
}

TEST_F(CallLimitsTest, SpillIntoAFolderOfThisUserAloneWhichIsRemoved) {
    const auto entries = [this] {
        return std::distance(std::filesystem::directory_iterator(spill_.get_Path()), {});
    };
    const std::string file = MakeNumbers(2'000'000);
    LimitMemory(24);
    ASSERT_EQ(1, entries());
    const auto made = std::filesystem::directory_iterator(spill_.get_Path())->path();
    EXPECT_EQ(std::filesystem::perms::owner_all, std::filesystem::status(made).permissions());
    ASSERT_EQ("", ReportOf<FetchParquet>({host_.Text(file)}));
    EXPECT_FALSE(std::filesystem::is_empty(made));
    host_.CloseCursor();
    EXPECT_TRUE(std::filesystem::is_empty(made));
    ASSERT_EQ("", ReportOf<FetchParquet>({host_.Text(file)}));
    Put({});
    EXPECT_EQ(1, entries());
    ExpectRows(2'000'000);
    host_.CloseCursor();
    EXPECT_EQ(0, entries());
}

TEST_F(CallLimitsTest, AnEndOfTheTemporaryDirectoryIsTheCallsError) {
    const std::string file = MakeNumbers(3'000'000);
    DuckDBProcedureLimits limits;
    limits.memory_mb = 24;
    limits.threads = 2;
    limits.temp_directory_mb = 2;
    limits.temp_directory = LocationOf(spill_.get_Path().string());
    Put(limits);
    EXPECT_THAT(ReportOf<FetchParquet>({host_.Text(file)}), HasSubstr("max_temp_directory_size"));
    EXPECT_THAT(ReportOf<FetchParquet>({host_.Text(file)}), HasSubstr("max_temp_directory_size"));
    EXPECT_EQ("", ReportOf<ParquetCount>({host_.Text(file)}));
    EXPECT_EQ("", ReportOf<FetchParquet>({host_.Text(one_)}));
}

/** While it lives, no file of this process can grow: an emptied one that DuckDB writes to again would have
   zeros in place of the rows. */
class NoFileGrows {
  public:
    NoFileGrows() : signal_(std::signal(SIGXFSZ, SIG_IGN)) {
        EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &limit_), 0);
        const rlimit none{0, limit_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
    }
    ~NoFileGrows() {
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit_), 0);
        std::signal(SIGXFSZ, signal_);
    }
    NoFileGrows(const NoFileGrows&) = delete;
    NoFileGrows& operator=(const NoFileGrows&) = delete;

  private:
    rlimit limit_{};
    void (*signal_)(int);
};

TEST_F(CallLimitsTest, ASpilledFileThatIsGoneIsAnErrorAtTheRow) {
    const std::string file = MakeNumbers(2'000'000);
    LimitMemory(24);
    ASSERT_EQ("", ReportOf<FetchParquet>({host_.Text(file)}));
    for (const auto& entry : std::filesystem::recursive_directory_iterator(spill_.get_Path())) {
        if (entry.is_regular_file()) {
            std::filesystem::resize_file(entry.path(), 0);
        }
    }
    std::int64_t row = 0;
    {
        const NoFileGrows none;
        for (; NextRow(); ++row) {
            if (row % 97 == 0) {
                ExpectRow(row);
            }
        }
    }
    EXPECT_LT(row, 2'000'000);
    ASSERT_FALSE(host_.reports.empty());
    EXPECT_THAT(host_.reports[0], HasSubstr("IO Error"));
    host_.CloseCursor();
    EXPECT_EQ("", ReportOf<FetchParquet>({host_.Text(file)}));
}

TEST_F(CallLimitsTest, CutACallThatRunsTooLong) {
    LimitTime(50);
    EXPECT_EQ("parquet_count exceeded its time limit of 50 milliseconds.", FetchSlowly());
    LimitTime(1000);
    EXPECT_EQ("parquet_count exceeded its time limit of 1 second.", FetchSlowly());
    EXPECT_EQ("fetch_parquet exceeded its time limit of 1 second.",
              ReportOf<FetchParquet>({host_.Text(one_), host_.Null(),
                                      host_.Text("(SELECT count(*) FROM range(100000000000) r(x)) > 0")}));
    const std::string database = folder_ / "a.db";
    RunAlone(database.c_str(), "CREATE VIEW slow AS SELECT count(*) FROM range(100000000000) r(x)");
    EXPECT_EQ("fetch_duckdb exceeded its time limit of 1 second.",
              ReportOf<FetchDuckDB>({host_.Text(database), host_.Text("slow")}));
    // What is fast enough works, and DuckDB's own errors stay.
    LimitTime(60'000);
    EXPECT_EQ("", ReportOf<ParquetCount>({host_.Text(one_)}));
    EXPECT_EQ("", ReportOf<ParquetSchema>({host_.Text(one_)}));
    EXPECT_EQ("", ReportOf<ParquetMetadata>({host_.Text(one_)}));
    EXPECT_THAT(ReportOf<ParquetCount>({host_.Text(folder_ / "missing")}), HasSubstr("No files found"));
}

TEST_F(CallLimitsTest, CutACallThatSleeps) {
    LimitTime(50);
    const auto start = Clock::now();
    EXPECT_EQ("parquet_count exceeded its time limit of 50 milliseconds.",
              ReportOf<ParquetCount>({host_.Text(one_), host_.Text("sleep_ms(20000) IS NULL")}));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
}

TEST_F(CallLimitsTest, CutACallBetweenTwoRows) {
    const std::string file = MakeNumbers(5000);
    LimitTime(1500);
    ASSERT_EQ("", ReportOf<FetchParquet>({host_.Text(file)}));
    ASSERT_TRUE(NextRow());
    ASSERT_TRUE(GoToRow(4000));
    std::this_thread::sleep_for(std::chrono::milliseconds(1550));
    EXPECT_FALSE(NextRow());
    EXPECT_FALSE(GoToRow(4000));
    EXPECT_THAT(host_.reports, ElementsAre("fetch_parquet exceeded its time limit of 1500 milliseconds."));
    ExpectRow(4000);
}

TEST_F(CallLimitsTest, CutCallsSoonAfterTheirTime) {
    const auto calls = std::getenv("MDUCKDB_TEST_BOUND") != nullptr ? 200 : 40;
    constexpr int kLimit = 60;
    DuckDBProcedureLimits limits;
    limits.time_ms = kLimit;
    limits.threads = 1;
    Put(limits);
    std::vector<double> computed;
    for (int i = 0; i < calls; ++i) {
        const auto start = Clock::now();
        const double used = ProcessorMilliseconds();
        ASSERT_EQ("parquet_count exceeded its time limit of 60 milliseconds.", FetchSlowly());
        computed.push_back(ProcessorMilliseconds() - used);
        EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(kLimit));
    }
    std::sort(computed.begin(), computed.end());
    const auto at = [&](double part) { return computed[static_cast<std::size_t>(part * calls)]; };
    std::cout << calls << " calls with a limit of " << kLimit << " ms computed for " << at(0.5)
              << " ms (median), 99% of them for at most " << at(0.99) << " ms\n";
    EXPECT_LE(at(0.99), kLimit + 250);
    Put({});
    EXPECT_EQ("", ReportOf<ParquetCount>({host_.Text(one_)}));
}

}  // namespace
}  // namespace mduckdb::test
