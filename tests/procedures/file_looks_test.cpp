// A call of a procedure opens and reads its files as often as the bare query does.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>

#include "limited_calls.h"
#include "support/expected_by_version.h"

namespace {

/** Looks of the whole process at files whose names end in .parquet. */
std::atomic<int> gOpens{0};
std::atomic<int> gReads{0};

bool IsParquet(const std::string& path) {
    return path.ends_with(".parquet");
}

bool IsParquet(int descriptor) {
    char path[4096];
    const ssize_t length =
        readlink(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), path, sizeof path);
    return length > 0 && IsParquet(std::string(path, static_cast<std::size_t>(length)));
}

template <class Function>
Function* GetNext(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// DuckDB's library calls these functions of the program instead of the system's.
extern "C" __attribute__((visibility("default"))) int open(const char* path, int flags, ...) {
    static auto* const next = GetNext<int(const char*, int, ...)>("open");
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    gOpens += IsParquet(std::string(path)) ? 1 : 0;
    return next(path, flags, mode);
}

extern "C" __attribute__((visibility("default"))) ssize_t pread(int descriptor, void* buffer, size_t size,
                                                                off_t offset) {
    static auto* const next = GetNext<ssize_t(int, void*, size_t, off_t)>("pread");
    gReads += IsParquet(descriptor) ? 1 : 0;
    return next(descriptor, buffer, size, offset);
}

namespace mduckdb::test {
namespace {

struct Looks {
    int opens;
    int reads;

    friend bool operator==(const Looks&, const Looks&) = default;
    friend void PrintTo(const Looks& looks, std::ostream* out) {
        *out << looks.opens << " opens, " << looks.reads << " reads";
    }
};

template <class Act>
Looks CountLooks(Act act) {
    gOpens = gReads = 0;
    act();
    return {gOpens, gReads};
}

/** Both sides have one thread and the module's settings, so that the reads do not depend on chance. */
class FileLooksTest : public LimitedCalls {
  protected:
    FileLooksTest() {
        DuckDBProcedureLimits limits;
        limits.threads = 1;
        Put(limits);
        for (const std::string name : {"a", "b", "c"}) {
            RunAlone(nullptr, "COPY (SELECT i, 'text ' || i AS t, hash(i) AS h FROM range(50000) r(i)) TO '" +
                                  (folder_ / (name + ".parquet")) +
                                  "' (FORMAT parquet, ROW_GROUP_SIZE 10000)");
        }
        Configure();
    }
    ~FileLooksTest() override {
        duckdb_disconnect(&connection_);
        duckdb_close(&database_);
    }
    /** The looks of DuckDB alone; at the second query, since the first may set up something. */
    Looks CountBare(const std::string& sql) {
        const auto run = [&] {
            ResultHolder result;
            EXPECT_EQ(DuckDBSuccess, duckdb_query(connection_, sql.c_str(), result.Receive()))
                << duckdb_result_error(result.get());
        };
        run();
        return CountLooks(run);
    }
    /** The same for a call that is read to the end. */
    template <class Procedure>
    Looks CountCall(const std::vector<std::string>& texts) {
        std::vector<FakeValue*> arguments;
        for (const std::string& text : texts) {
            arguments.push_back(host_.Text(text));
        }
        const auto run = [&] {
            EXPECT_EQ("", ReportOf<Procedure>(arguments));
            while (host_.has_cursor && NextRow()) {
                host_.Cell(0);
            }
            host_.CloseCursor();
        };
        run();
        return CountLooks(run);
    }

  private:
    /** As the engines of procedures: what was read once is not kept. */
    void Configure() {
        duckdb_config config = nullptr;
        ASSERT_EQ(DuckDBSuccess, duckdb_create_config(&config));
        duckdb_set_config(config, "threads", "1");
        duckdb_set_config(config, "enable_external_file_cache", "false");
        ASSERT_EQ(DuckDBSuccess, duckdb_open_ext(nullptr, &database_, config, nullptr));
        duckdb_destroy_config(&config);
        ASSERT_EQ(DuckDBSuccess, duckdb_connect(database_, &connection_));
        for (const std::string& statement : get_EngineSettingStatements()) {
            ASSERT_EQ(DuckDBSuccess, duckdb_query(connection_, statement.c_str(), nullptr)) << statement;
        }
    }

    duckdb_database database_ = nullptr;
    duckdb_connection connection_ = nullptr;
};

void ExpectLooksOf(const Looks& bare, const Looks& call, const std::string& files) {
    const int further = get_ExpectedByVersion().further_looks;
    EXPECT_GE(call.opens, bare.opens) << files;
    EXPECT_LE(call.opens, bare.opens + further) << files;
    EXPECT_GE(call.reads, bare.reads) << files;
    EXPECT_LE(call.reads, bare.reads + further) << files;
}

TEST_F(FileLooksTest, AreThoseOfTheBareQuery) {
    for (const std::string name : {"a.parquet", "*.parquet"}) {
        const std::string file = folder_ / name;
        const std::string source = " FROM read_parquet('" + file + "')";
        const Looks count = CountBare("SELECT count(*) AS count" + source);
        EXPECT_GT(count.opens, 0) << "the program's functions are not called";
        EXPECT_GT(count.reads, 0);
        ExpectLooksOf(count, CountCall<ParquetCount>({file}), name);
        ExpectLooksOf(CountBare("SELECT count(*)" + source + " WHERE i > 25000"),
                      CountCall<ParquetCount>({file, "i > 25000"}), name);
        ExpectLooksOf(CountBare("SELECT *" + source), CountCall<FetchParquet>({file}), name);
        ExpectLooksOf(CountBare("SELECT i, t" + source + " WHERE h > 0 LIMIT 3"),
                      CountCall<FetchParquet>({file, "i, t", "h > 0", "3"}), name);
        EXPECT_EQ(CountBare("SELECT *" + source + " LIMIT 0"), CountCall<ParquetSchema>({file})) << name;
        EXPECT_EQ(CountBare("SELECT * FROM parquet_metadata('" + file + "')"),
                  CountCall<ParquetMetadata>({file}))
            << name;
    }
}

}  // namespace
}  // namespace mduckdb::test
