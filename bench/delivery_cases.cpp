#include <memory>
#include <random>

#include "baselines.h"
#include "groups.h"
#include "module_under_test.h"
#include "workloads.h"

namespace bench {
namespace {

using nbx::mrsql::I_DuckDBCursor;
using nbx::mrsql::I_DuckDBDatabase;
using nbx::mrsql::kClientCursor;
using nbx::mrsql::kServerCursor;

/** What the cases of one workload share: made by the group's preparation. */
struct Fixture {
    std::string sql;
    nbx::String text;
    std::unique_ptr<BareDuckDB> bare;
    nbx::smart_ptr<I_DuckDBDatabase> database;
    std::vector<nbx::I_Value*> kept;
    nbx::smart_ptr<I_DuckDBCursor> cursor;
};

uint64_t ReadThroughServerCursor(Fixture& fixture) {
    const nbx::smart_ptr<I_DuckDBCursor> cursor =
        fixture.database->SqlSelect(fixture.text, kServerCursor, nullptr);
    const uint32_t columns = cursor->get_ColumnCount();
    uint64_t cells = 0;
    while (cursor->NextRecord()) {
        for (uint32_t column = 0; column < columns; ++column) {
            Consume(cursor->get_Value(column)->get_TypeCode());
        }
        cells += columns;
    }
    return cells;
}

uint64_t BuildClientCursor(Fixture& fixture) {
    fixture.cursor = fixture.database->SqlSelect(fixture.text, kClientCursor, nullptr);
    return uint64_t{fixture.cursor->get_RecordCount()} * fixture.cursor->get_ColumnCount();
}

bool HasVectorReading(const std::string& workload) {
    return workload != "W4";
}

Group MakeDeliveryGroup(const std::string& workload, const Options& options) {
    const auto fixture = std::make_shared<Fixture>();
    Group group{workload, "cell", nullptr, {}};
    group.prepare = [fixture, workload, &options] {
        const Data& data = PrepareData(options);
        fixture->sql = GetWorkload(workload, options).sql;
        fixture->text = nbx::String(fixture->sql.c_str());
        fixture->bare = std::make_unique<BareDuckDB>(data.database);
        fixture->database = OpenDatabase(data.database);
    };
    const auto release = [fixture] { ReleaseAll(fixture->kept); };
    group.cases = {
        {"drain", [fixture] { return Drain(fixture->bare->get(), fixture->sql); }, nullptr},
        {"value loop", [fixture] { return ValueLoop(fixture->bare->get(), fixture->sql); }, nullptr},
        {"value loop, kept",
         [fixture] { return ValueLoopKept(fixture->bare->get(), fixture->sql, fixture->kept); }, release},
        {"server cursor", [fixture] { return ReadThroughServerCursor(*fixture); }, nullptr},
        {"client cursor", [fixture] { return BuildClientCursor(*fixture); },
         [fixture] { fixture->cursor.reset(); }},
    };
    if (HasVectorReading(workload)) {
        group.cases.push_back(
            {"vectors", [fixture] { return VectorLoop(fixture->bare->get(), fixture->sql); }, nullptr});
        group.cases.push_back(
            {"vectors, kept",
             [fixture] { return VectorLoopKept(fixture->bare->get(), fixture->sql, fixture->kept); },
             release});
    }
    return group;
}

constexpr uint64_t kRandomReads = 1'000'000;

/** Random places, the same in every run. */
const std::vector<uint32_t>& GetRandomNumbers() {
    static const std::vector<uint32_t> numbers = [] {
        std::mt19937 random(20260101);
        std::vector<uint32_t> made(kRandomReads);
        for (uint32_t& number : made) {
            number = static_cast<uint32_t>(random());
        }
        return made;
    }();
    return numbers;
}

uint64_t ReadFlatArray(const std::vector<nbx::I_Value*>& values) {
    for (const uint32_t number : GetRandomNumbers()) {
        Consume(values[number % values.size()]->get_TypeCode());
    }
    return kRandomReads;
}

uint64_t ReadClientCursor(I_DuckDBCursor& cursor) {
    const uint32_t columns = cursor.get_ColumnCount();
    const uint32_t cells = cursor.get_RecordCount() * columns;
    for (const uint32_t number : GetRandomNumbers()) {
        const uint32_t cell = number % cells;
        cursor.put_CurrentRecord(cell / columns + 1);
        Consume(cursor.get_Value(cell % columns)->get_TypeCode());
    }
    return kRandomReads;
}

Group MakeRandomReadGroup(const Options& options) {
    const auto fixture = std::make_shared<Fixture>();
    return {"random-cell",
            "read",
            [fixture, &options] {
                fixture->sql = GetWorkload("W1", options).sql;
                fixture->text = nbx::String(fixture->sql.c_str());
                fixture->bare = std::make_unique<BareDuckDB>("");
                fixture->database = OpenDatabase(":memory:");
                VectorLoopKept(fixture->bare->get(), fixture->sql, fixture->kept);
                BuildClientCursor(*fixture);
            },
            {{"flat array", [fixture] { return ReadFlatArray(fixture->kept); }, nullptr},
             {"client cursor", [fixture] { return ReadClientCursor(*fixture->cursor); }, nullptr}}};
}

}  // namespace

std::vector<Group> GetDeliveryGroups(const Options& options) {
    std::vector<Group> groups;
    for (const char* workload : {"W1", "numbers", "W2", "W2-parquet", "W3", "W4"}) {
        groups.push_back(MakeDeliveryGroup(workload, options));
    }
    groups.push_back(MakeRandomReadGroup(options));
    return groups;
}

}  // namespace bench
