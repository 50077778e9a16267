#include <algorithm>
#include <filesystem>
#include <latch>
#include <memory>
#include <random>
#include <thread>

#include "groups.h"
#include "module_under_test.h"
#include "nbx/value_pool.h"

namespace bench {
namespace {

using nbx::mrsql::I_DuckDBDatabase;
using nbx::mrsql::I_DuckDBStatement;
using Children = std::vector<nbx::smart_ptr<I_DuckDBStatement>>;

constexpr uint64_t kFew = 100;
constexpr uint64_t kMany = 100'000;

/** Database objects of one engine, and their children. */
struct Family {
    std::vector<nbx::smart_ptr<I_DuckDBDatabase>> parents;
    Children children;

    void Make(const std::string& path, uint64_t parent_count, uint64_t child_count) {
        std::filesystem::remove(path);
        for (uint64_t i = 0; i < parent_count; ++i) {
            parents.push_back(MakeDatabase(path));
            i == 0 ? parents.back()->Create() : parents.back()->Open();
        }
        for (uint64_t i = 0; i < child_count; ++i) {
            children.push_back(MakeChild(i));
        }
    }
    nbx::smart_ptr<I_DuckDBStatement> MakeChild(uint64_t place) const {
        static const nbx::String sql("SELECT 1");
        return parents[place % parents.size()]->CreateStatement(sql);
    }
    /** Releases one child after another, in no order, each followed by a new one. */
    uint64_t ReleaseSome(uint64_t count) {
        std::minstd_rand random(1);
        for (uint64_t i = 0; i < count; ++i) {
            const uint64_t place = random() % children.size();
            children[place].reset();
            children[place] = MakeChild(place);
        }
        return count;
    }
};

struct Families {
    Family few;
    Family many;
};

/** Both sides have the same number of children in all, since most of the time is that of memory that is not
    in the processor's caches. */
Group MakeReleaseGroup(const Options& options) {
    const auto families = std::make_shared<Families>();
    const uint64_t count = Scaled(200'000, options);
    const uint64_t many = std::max(kFew, Scaled(kMany, options));
    Group group{"release", "child", nullptr, {}};
    group.prepare = [=, &options] {
        const std::string path = options.folder + "/release";
        families->few.Make(path + "-few.duckdb", many / kFew, many);
        families->many.Make(path + "-many.duckdb", 1, many);
    };
    group.cases = {{"among 100", [=] { return families->few.ReleaseSome(count); }, nullptr},
                   {"among 100,000", [=] { return families->many.ReleaseSome(count); }, nullptr}};
    return group;
}

std::string MakeScript(uint64_t statements) {
    std::string script;
    for (uint64_t i = 0; i < statements; ++i) {
        script += "SELECT " + std::to_string(i) + ";";
    }
    return script;
}

/** Runs the script and walks through its results, reading the cell of each. */
uint64_t RunScript(I_DuckDBDatabase& database, const nbx::String& script) {
    uint64_t count = 0;
    for (auto result = database.SqlQuery(script, nbx::mrsql::kServerCursor, nullptr); result;
         result = result->NextResult()) {
        const auto cursor = result->get_Cursor();
        if (!cursor->NextRecord() || cursor->get_Value(0)->get_LLong() != static_cast<int64_t>(count)) {
            Die("script-selects: another result than expected");
        }
        ++count;
    }
    return count;
}

/** Statements that a run of each case has in all: a run that is ten times as long meets more slow spells of
   the machine, and its minimum would not compare. */
constexpr uint64_t kStatementsInRun = 100'000;

Group MakeScriptGroup(const Options& options) {
    const auto database = std::make_shared<nbx::smart_ptr<I_DuckDBDatabase>>();
    Group group{"script-selects", "statement", nullptr, {}};
    group.prepare = [=] { *database = OpenDatabase(":memory:"); };
    const auto add = [&](const char* name, uint64_t statements) {
        const nbx::String script(MakeScript(Scaled(statements, options)).c_str());
        const uint64_t repeats = std::max<uint64_t>(1, kStatementsInRun / statements);
        group.cases.push_back({name,
                               [=] {
                                   uint64_t count = 0;
                                   for (uint64_t i = 0; i < repeats; ++i) {
                                       count += RunScript(**database, script);
                                   }
                                   return count;
                               },
                               nullptr});
    };
    add("1,000 statements", 1'000);
    add("10,000 statements", 10'000);
    add("100,000 statements", kMany);
    return group;
}

constexpr std::size_t kThreads = 16;
constexpr double kMiB = 1024 * 1024;

/** Makes values and lets living threads release them in any order; prints what the values have taken and what
    is still mapped afterwards. */
uint64_t ReleaseInThreads(uint64_t count) {
    const auto before = static_cast<double>(nbx::GetPoolMappedBytes());
    std::vector<nbx::smart_ptr<nbx::I_Value>> values;
    values.reserve(count);
    for (uint64_t i = 0; i < count; ++i) {
        values.push_back(nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueLLong(false, &i, nullptr)));
    }
    const auto full = static_cast<double>(nbx::GetPoolMappedBytes());
    std::shuffle(values.begin(), values.end(), std::minstd_rand(1));
    std::latch all_released(kThreads);
    std::latch may_end(1);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (std::size_t i = t; i < values.size(); i += kThreads) {
                values[i].reset();
            }
            all_released.count_down();
            may_end.wait();
        });
    }
    all_released.wait();
    const auto left = static_cast<double>(nbx::GetPoolMappedBytes());
    may_end.count_down();
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::printf(R"({"group":"value-threads","case":"mapped","full_mib":%.1f,"left_mib":%.1f})"
                "\n",
                (full - before) / kMiB, (left - before) / kMiB);
    return count;
}

Group MakeValueThreadsGroup(const Options& options) {
    const uint64_t count = Scaled(10'000'000, options);
    return {"value-threads",
            "value",
            nullptr,
            {{"16 threads", [=] { return ReleaseInThreads(count); }, nullptr}}};
}

}  // namespace

std::vector<Group> GetManyGroups(const Options& options) {
    return {MakeReleaseGroup(options), MakeScriptGroup(options), MakeValueThreadsGroup(options)};
}

}  // namespace bench
