#include <filesystem>
#include <utility>

#include "each_allocation.h"
#include "engines/engine_files.h"
#include "engines/idle_engines.h"
#include "nbx/mrsql/registry.h"
#include "procedures/handlers.h"
#include "procedures/procedures.h"
#include "support/fake_host.h"
#include "support/sample_values.h"
#include "support/temp_folder.h"
#include "support/test_host.h"

namespace mduckdb::test {
namespace {

using mduckdb::test::FakeHost;
using mduckdb::test::FakeValue;
namespace fs = std::filesystem;

/** A call of the table that does the host's part without failures: the host has memory of its own. */
template <auto kCall>
struct Shielded;
template <class Result, class... Arguments, Result (*mirona_extension_api::*kCall)(Arguments...)>
struct Shielded<kCall> {
    static inline Result (*original)(Arguments...) = nullptr;
    static Result Run(Arguments... arguments) {
        const allocation_faults::Pause pause;
        return original(arguments...);
    }
    static void Put(mirona_extension_api& api) {
        original = api.*kCall;
        api.*kCall = &Run;
    }
};

std::vector<std::string> table_cells;

/** The cells of a table are kept as texts. */
uint32_t KeepTable(mirona_call, uint64_t columns, uint64_t rows, const char* const* /*names*/,
                   const mirona_value* values, mirona_cursor* out) {
    table_cells.clear();
    for (uint64_t i = 0; i < columns * rows; ++i) {
        table_cells.push_back(static_cast<FakeValue*>(values[i])->text);
    }
    *out = &table_cells;
    return 0;
}

mirona_extension_api ShieldedTable(const FakeHost& host) {
    using Api = mirona_extension_api;
    Api api = host.get_Api();
    api.create_table_cursor = &KeepTable;
    Shielded<&Api::register_procedure>::Put(api);
    Shielded<&Api::report_error>::Put(api);
    Shielded<&Api::create_table_cursor>::Put(api);
    Shielded<&Api::create_cursor>::Put(api);
    Shielded<&Api::make_blob_value>::Put(api);
    Shielded<&Api::make_bool_value>::Put(api);
    Shielded<&Api::make_date_value>::Put(api);
    Shielded<&Api::make_datetime_value>::Put(api);
    Shielded<&Api::make_double_value>::Put(api);
    Shielded<&Api::make_int_value>::Put(api);
    Shielded<&Api::make_text_value>::Put(api);
    Shielded<&Api::make_time_value>::Put(api);
    Shielded<&Api::make_uint_value>::Put(api);
    Shielded<&Api::value_text>::Put(api);
    return api;
}

/** What the host was told in the last call is thrown, so that a report is judged as an exception is. */
void ThrowReport(FakeHost& host) {
    const std::string report = Quietly([&] { return host.reports.empty() ? "" : host.reports.back(); });
    Quietly([&] { host.reports.clear(); });
    if (!report.empty()) {
        const allocation_faults::Pause pause;
        throw std::runtime_error(report);
    }
}

class ProceduresOutOfMemory : public ::testing::Test {
  protected:
    ProceduresOutOfMemory() {
        const auto database = test_host_.Created(folder_ / "a.db");
        Execute(*database,
                "CREATE TABLE t AS SELECT range AS i, 'a text that is not short ' || range AS s, "
                "range / 3 AS d, range::DECIMAL(20, 2) AS m, DATE '2024-01-01' AS y, [range] AS l "
                "FROM range(5000)");
        Execute(*database, "COPY t TO '" + Parquet() + "' (FORMAT parquet)");
        BindApi(&api_);
    }
    ~ProceduresOutOfMemory() override { BindApi(&host_.get_Api()); }
    std::string Parquet() const { return folder_ / "a.parquet"; }

    /** The rows that the cursor of the last call gives, with its errors as exceptions; first by steps, then
        some by their numbers. */
    std::string ReadCursor() {
        std::string text;
        const mirona_cursor_def& cursor = host_.cursor;
        const auto add = [&] {
            for (uint32_t i = 0; i < cursor.column_count; ++i) {
                const mirona_value cell = cursor.get_value(&host_, cursor.state, static_cast<int32_t>(i));
                ThrowReport(host_);
                Quietly(
                    [&] { text += (cell != nullptr ? static_cast<FakeValue*>(cell)->text : "NULL") + "|"; });
            }
        };
        for (uint64_t row = 0; cursor.next_row(cursor.state) == MIRONA_ROW_OK; ++row) {
            if (row % 500 == 0) {
                add();
            }
        }
        ThrowReport(host_);
        for (const int64_t row : {4999, 0, 2500}) {
            cursor.go_to_row(cursor.state, row);
            ThrowReport(host_);
            add();
        }
        return text;
    }
    template <class Procedure>
    void ExpectWhole(std::vector<FakeValue*> arguments, uint64_t samples) {
        std::vector<mirona_value> handles(arguments.begin(), arguments.end());
        host_.argument_count = static_cast<uint32_t>(handles.size());
        Operation operation;
        operation.act = [this, &handles] {
            const mirona_cursor cursor = HandleCall<Procedure>(host_.get_Call(), handles.data());
            ThrowReport(host_);
            return cursor == &table_cells ? Quietly([] { return Joined(table_cells); }) : ReadCursor();
        };
        operation.prepare = [this] {
            host_.CloseCursor();
            // Each call opens its engine.
            IdleEngines::CloseAll();
        };
        operation.look = [this] {
            host_.CloseCursor();
            return std::to_string(EngineFiles::Get().get_EngineCount());
        };
        operation.samples = samples;
        EXPECT_GT(FailEach(operation), 0U);
    }
    static std::string Joined(const std::vector<std::string>& texts) {
        std::string joined;
        for (const std::string& text : texts) {
            joined += text + "|";
        }
        return joined;
    }

    TempFolder folder_;
    TestHost test_host_;
    FakeHost host_;
    mirona_extension_api api_ = ShieldedTable(host_);
};

constexpr uint64_t kSampledAllocations = 12;

TEST_F(ProceduresOutOfMemory, FetchParquetGivesEveryRowOrReports) {
    ExpectWhole<FetchParquet>({host_.Text(Parquet()), host_.Array({host_.Text("i"), host_.Text("s")}),
                               host_.Text("i % 2 = 0 OR s LIKE 'a text%'"), host_.Int(5000)},
                              kSampledAllocations);
    ExpectWhole<FetchParquet>({host_.Text(Parquet())}, kSampledAllocations);
}

TEST_F(ProceduresOutOfMemory, FetchDuckDBGivesEveryRowOrReports) {
    ExpectWhole<FetchDuckDB>({host_.Text(folder_ / "a.db"), host_.Text("main.\"t\""), host_.Text("5000")},
                             kSampledAllocations);
    // Through the engine of a database object.
    const auto writer = test_host_.Opened(folder_ / "a.db");
    ExpectWhole<FetchDuckDB>({host_.Text(folder_ / "a.db"), host_.Text("a.main.t")}, kSampledAllocations);
}

TEST_F(ProceduresOutOfMemory, TheOthersGiveEveryRowOrReport) {
    ExpectWhole<ParquetCount>({host_.Text(Parquet()), host_.Text("i > 10")}, kSampledAllocations);
    ExpectWhole<ParquetMetadata>({host_.Text(Parquet())}, kSampledAllocations);
    ExpectWhole<ParquetSchema>({host_.Text(Parquet())}, kSampledAllocations);
}

TEST_F(ProceduresOutOfMemory, AStartThatFailsIsReportedToTheHost) {
    nbx::mrsql::SetDuckDBExtension(nullptr);
    Operation operation;
    operation.act = [this] {
        mirona_extension_init(&host_);
        ThrowReport(host_);
        return Quietly([this] { return Joined(host_.registered); });
    };
    operation.prepare = [this] { host_.registered.clear(); };
    operation.errors = {"std: Unexpected DuckDB error"};
    EXPECT_GT(FailEach(operation), 0U);
    // A host that refuses all has five texts.
    host_.register_status = 1;
    operation.act = [this] {
        mirona_extension_init(&host_);
        const std::string reports = Quietly([this] { return Joined(host_.reports); });
        Quietly([this] { host_.reports.clear(); });
        if (reports.find("Unexpected") != reports.npos) {
            const allocation_faults::Pause pause;
            throw std::runtime_error("Unexpected DuckDB error");
        }
        return reports;
    };
    EXPECT_GT(FailEach(operation), 0U);
}

}  // namespace
}  // namespace mduckdb::test
