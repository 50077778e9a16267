#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <map>
#include <thread>

#include "nbx/hooks.h"
#include "nbx/mrsql/duckdb_appender.h"
#include "nbx/mrsql/duckdb_arrow.h"
#include "nbx/mrsql/duckdb_budget.h"
#include "nbx/mrsql/duckdb_census.h"
#include "nbx/mrsql/duckdb_deadlines.h"
#include "nbx/mrsql/duckdb_error_facts.h"
#include "nbx/mrsql/duckdb_progress.h"
#include "nbx/mrsql/duckdb_streaming.h"
#include "nbx/mrsql/registry.h"
#include "support/fake_host.h"
#include "support/temp_folder.h"
#include "support/test_host.h"

// The further interfaces of the built module, which is loaded and found through its two exports alone.

namespace {

using namespace std::chrono_literals;
using mduckdb::test::FakeHost;
using Line = nbx::mrsql::DuckDBCensusLine;

const std::string kEndless = "(SELECT count(*) FROM range(100000000) a, range(100000) b) > 0";

std::map<std::string, mirona_procedure_handler>& Handlers() {
    static std::map<std::string, mirona_procedure_handler> handlers;
    return handlers;
}

/** The module's root object. It stays loaded: the process may hold objects of it to its end. */
nbx::mrsql::I_DuckDBExtension& LoadBuiltModule() {
    static const nbx::smart_ptr<nbx::mrsql::I_DuckDBExtension> extension = [] {
        void* const module = dlopen(BUILT_MODULE, RTLD_NOW | RTLD_LOCAL);
        if (module == nullptr) {
            throw std::runtime_error(dlerror());
        }
        static FakeHost host;
        static mirona_extension_api api = host.get_Api();
        api.register_procedure = [](mirona_host, const mirona_procedure_def* def) {
            Handlers()[def->name] = def->handler;
            return std::uint32_t{0};
        };
        const auto bind = reinterpret_cast<decltype(&mirona_extension_bind_api)>(
            dlsym(module, "mirona_extension_bind_api"));
        const auto init =
            reinterpret_cast<decltype(&mirona_extension_init)>(dlsym(module, "mirona_extension_init"));
        bind(&api);
        init(host.get_Call());
        return nbx::mrsql::GetDuckDBExtension();
    }();
    return *extension;
}

template <class Interface, class Object>
Interface& Find(Object& object, uint32_t identifier) {
    return *static_cast<Interface*>(object.QueryInterface(identifier));
}

class Lines final : public nbx::mrsql::I_DuckDBCensusReader {
  public:
    void Add(const Line& line) override { all.push_back(line); }
    std::vector<Line> all;
};

nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> Create(const std::string& path) {
    auto database = LoadBuiltModule().CreateDatabase(Location(path));
    database->Create();
    return database;
}

TEST(FurtherInterfaces, OfTheBuiltModuleListWhatIsOpenAndCutACall) {
    auto& census = Find<nbx::mrsql::I_DuckDBCensus>(LoadBuiltModule(), nbx::mrsql::kDuckDBCensusInterfaceId);
    const TempFolder folder;
    const auto database = Create(folder / "a.db");
    Execute(*database, "COPY (SELECT 1 AS i) TO '" + (folder / "a.parquet") + "' (FORMAT PARQUET)");
    FakeHost host;
    std::thread caller([&] {
        mirona_value arguments[] = {host.Text(folder / "a.parquet"), host.Null(), host.Text(kEndless)};
        host.argument_count = 3;
        EXPECT_EQ(Handlers().at("fetch_parquet")(host.get_Call(), arguments), nullptr);
    });
    uint64_t number = 0;
    for (int i = 0; i < 10000 && number == 0; ++i) {
        Lines lines;
        census.List(lines);
        for (const Line& line : lines.all) {
            number = line.kind == Line::kCall && line.parent != 0 ? line.number : number;
        }
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_TRUE(census.CutCall(number));
    caller.join();
    EXPECT_EQ(host.reports, std::vector<std::string>{"fetch_parquet was cut by the host."});
    Lines lines;
    census.List(lines);
    ASSERT_EQ(lines.all.size(), 2u);
    EXPECT_EQ(U(lines.all[0].name), folder / "a.db");
    EXPECT_EQ(lines.all[1].kind, Line::kDatabase);
}

TEST(FurtherInterfaces, OfTheBuiltModuleLimitTheTimeOfAStatement) {
    const auto database = Create(":memory:");
    auto& deadlines = Find<nbx::mrsql::I_DuckDBDeadlines>(*database, nbx::mrsql::kDuckDBDeadlinesInterfaceId);
    deadlines.put_TimeLimit(50);
    EXPECT_EQ(Thrown([&] { Execute(*database, "SELECT " + kEndless); }),
              "xDuckDBError 72501 [:memory:] [The time limit of 50 ms is over: the statement was cut]");
    deadlines.put_TimeLimit(0);
    EXPECT_EQ(QueryText(*database, "SELECT 42"), "42");
}

TEST(FurtherInterfaces, OfTheBuiltModuleTellTheProgressOfAStatement) {
    const auto database = Create(":memory:");
    Execute(*database, "CREATE TABLE t AS SELECT range AS i FROM range(2000000)");
    auto& progress = Find<nbx::mrsql::I_DuckDBProgress>(*database, nbx::mrsql::kDuckDBProgressInterfaceId);
    progress.put_IsTracked(true);
    nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return true; };
    double share = -1;
    std::thread watcher([&] {
        for (int i = 0; i < 60'000 && share <= 0; ++i) {
            std::this_thread::sleep_for(1ms);
            share = progress.get_Progress().share;
        }
        database->Interrupt();
    });
    Thrown([&] { Execute(*database, "SELECT sum(length(sha256(repeat(i::VARCHAR, 20)))) FROM t"); });
    watcher.join();
    EXPECT_GT(share, 0);
    EXPECT_LT(share, 1);
}

TEST(FurtherInterfaces, OfTheBuiltModuleStreamRows) {
    const auto database = Create(":memory:");
    auto& streaming = Find<nbx::mrsql::I_DuckDBStreaming>(*database, nbx::mrsql::kDuckDBStreamingInterfaceId);
    const auto cursor = streaming.OpenStream(S("SELECT i FROM range(1000000000000) r(i)"), nullptr);
    for (int64_t i = 0; i < 10'000; ++i) {
        ASSERT_TRUE(cursor->NextRecord());
        ASSERT_EQ(cursor->get_Value(0)->get_LLong(), i);
    }
    database->Close();
    EXPECT_EQ(Thrown([&] { cursor->NextRecord(); }),
              "xDuckDBError 72501 [unknown] [DuckDBCursor is invalid]");
}

TEST(FurtherInterfaces, OfTheBuiltModuleStateTheFactsOfAnError) {
    const auto database = Create(":memory:");
    try {
        Execute(*database, "SELECT name, nam FROM (SELECT 1 AS name)");
        FAIL();
    } catch (const nbx::mrsql::xDuckDBError& error) {
        EXPECT_EQ(error.get_Code(), 0x72501u);
        const auto* facts = nbx::mrsql::FindDuckDBErrorFacts(error);
        ASSERT_NE(facts, nullptr);
        EXPECT_EQ(facts->get_Kind(), nbx::mrsql::DuckDBErrorKind::binder);
        EXPECT_EQ(U(facts->get_KindName()), "Binder");
        EXPECT_EQ(U(facts->get_Subtype()), "COLUMN_NOT_FOUND");
        EXPECT_EQ(facts->get_Position(), 13);
        EXPECT_EQ(U(facts->get_Detail("candidates")), "name");
        EXPECT_TRUE(facts->get_Detail("nothing").isEmpty());
    }
}

TEST(FurtherInterfaces, OfTheBuiltModuleAppendRowsAndColumns) {
    const auto database = Create(":memory:");
    Execute(*database, "CREATE TABLE t (i INTEGER, s VARCHAR DEFAULT 'none')");
    const nbx::String column("i");
    nbx::mrsql::DuckDBAppenderOptions options;
    options.table = nbx::String("t");
    options.columns = &column;
    options.column_count = 1;
    const auto appender =
        Find<nbx::mrsql::I_DuckDBAppenders>(*database, nbx::mrsql::kDuckDBAppendersInterfaceId)
            .CreateAppender(options);
    const auto row = nbx::MakeObject<nbx::ValueRow>();
    const int32_t one = 1;
    row->Append(nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueLong(true, &one, nullptr)));
    appender->AppendRow(row);
    const int32_t numbers[] = {2, 3};
    const nbx::mrsql::DuckDBColumnArray array{4, numbers};
    appender->AppendColumns(&array, 1, 2);
    row->put_Item(0, nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueString(true, nullptr, nullptr)));
    EXPECT_EQ(Thrown([&] { appender->AppendRow(row); }),
              "xDuckDBError 72501 [:memory:] [Row 4, column \"i\": Could not convert string '' to INT32]");
    appender->Close();
    EXPECT_EQ(QueryText(*database, "SELECT string_agg(i || s) FROM t"), "1none,2none,3none");
}

TEST(FurtherInterfaces, OfTheBuiltModuleExportAnArrowStream) {
    const auto database = Create(":memory:");
    const auto cursor = database->SqlSelect(S("FROM range(5000)"), nbx::mrsql::kServerCursor, nullptr);
    ASSERT_TRUE(cursor->NextRecord());
    ArrowArrayStream stream{};
    Find<nbx::mrsql::I_DuckDBArrow>(*cursor, nbx::mrsql::kDuckDBArrowInterfaceId).ExportStream(stream);
    int64_t rows = 0;
    for (ArrowArray array{}; stream.get_next(&stream, &array) == 0 && array.release != nullptr;) {
        rows += array.length;
        array.release(&array);
    }
    EXPECT_EQ(rows, 4999);
    database->Close();
    ArrowArray array{};
    EXPECT_EQ(stream.get_next(&stream, &array), EIO);
    EXPECT_STREQ(stream.get_last_error(&stream), "The cursor of this Arrow stream was closed");
    stream.release(&stream);
}

TEST(FurtherInterfaces, OfTheBuiltModuleDivideABudget) {
    auto& budget = Find<nbx::mrsql::I_DuckDBBudget>(LoadBuiltModule(), nbx::mrsql::kDuckDBBudgetInterfaceId);
    budget.put_Budget(500, 4);
    const auto first = Create(":memory:");
    const TempFolder folder;
    const auto second = Create(folder / "a.db");
    EXPECT_EQ(QueryText(*first, "SELECT current_setting('threads')"), "2");
    EXPECT_EQ(QueryText(*second, "SELECT current_setting('threads')"), "2");
    EXPECT_EQ(budget.get_Figures().engines, 2u);
    EXPECT_EQ(budget.get_Figures().memory_limit, 500'000'000u);
    budget.put_Budget(0, 0);
}

}  // namespace
