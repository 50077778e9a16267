#include <memory>
#include <random>

#include "bare_duckdb.h"
#include "baselines.h"
#include "cursor_reading.h"
#include "groups.h"
#include "workloads.h"

namespace bench {
namespace {

using nbx::mrsql::I_DuckDBCursor;
using nbx::mrsql::I_DuckDBDatabase;
using nbx::mrsql::kClientCursor;

/** Shared by the cases of one workload; created by the group's preparation. */
struct Fixture {
    std::string sql;
    nbx::String text;
    std::unique_ptr<BareDuckDB> bare;
    nbx::smart_ptr<I_DuckDBDatabase> database;
    KeptValues kept;
    nbx::smart_ptr<I_DuckDBCursor> cursor;
};

uint64_t BuildClientCursor(Fixture& fixture) {
    fixture.cursor = fixture.database->SqlSelect(fixture.text, kClientCursor, nullptr);
    return uint64_t{fixture.cursor->get_RecordCount()} * fixture.cursor->get_ColumnCount();
}

bool HasVectorReading(const std::string& workload) {
    return workload != "W4";
}

void CheckValues(const std::string& workload, Fixture& fixture) {
    KeptValues expected;
    ValueLoopKept(fixture.bare->get(), fixture.sql, expected);
    KeptValues actual;
    const auto keep = [&actual](const nbx::smart_ptr<nbx::I_Value>& value) {
        actual.KeepReference(value.get());
    };
    ReadServerCursor(*fixture.database, fixture.text, keep);
    RequireSame(workload + ", server cursor", expected, actual);
    actual.Release();
    BuildClientCursor(fixture);
    while (fixture.cursor->NextRecord()) {
        for (uint32_t column = 0; column < fixture.cursor->get_ColumnCount(); ++column) {
            keep(fixture.cursor->get_Value(column));
        }
    }
    RequireSame(workload + ", client cursor", expected, actual);
    if (HasVectorReading(workload)) {
        actual.Release();
        VectorLoopKept(fixture.bare->get(), fixture.sql, actual);
        RequireSame(workload + ", vectors", expected, actual);
    }
}

Group MakeDeliveryGroup(const std::string& name, const Options& options) {
    const auto fixture = std::make_shared<Fixture>();
    Group group{name, "cell", nullptr, {}};
    group.prepare = [fixture, name, &options] {
        const Workload workload = GetWorkload(name, options);
        fixture->sql = workload.sql;
        fixture->text = nbx::String(workload.sql.c_str());
        fixture->bare = std::make_unique<BareDuckDB>(workload.bare_database);
        fixture->database = OpenDatabase(workload.database);
    };
    const auto release = [fixture] { fixture->kept.Release(); };
    group.cases = {
        {"drain", [fixture] { return Drain(fixture->bare->get(), fixture->sql); }, nullptr},
        {"value loop", [fixture] { return ValueLoop(fixture->bare->get(), fixture->sql); }, nullptr},
        {"value loop, kept",
         [fixture] { return ValueLoopKept(fixture->bare->get(), fixture->sql, fixture->kept); }, release},
        {"server cursor", [fixture] { return ReadThroughServerCursor(*fixture->database, fixture->text); },
         nullptr},
        {"client cursor", [fixture] { return BuildClientCursor(*fixture); },
         [fixture] { fixture->cursor.reset(); }},
    };
    if (HasVectorReading(name)) {
        group.cases.push_back(
            {"vectors", [fixture] { return VectorLoop(fixture->bare->get(), fixture->sql); }, nullptr});
        group.cases.push_back(
            {"vectors, kept",
             [fixture] { return VectorLoopKept(fixture->bare->get(), fixture->sql, fixture->kept); },
             release});
    }
    group.check = [fixture, name] { CheckValues(name, *fixture); };
    return group;
}

struct Place {
    uint32_t cell;
    uint32_t record;
    uint32_t column;
};

struct RandomReads {
    Fixture fixture;
    std::vector<Place> places;
};

/** Positions of a cursor's cells, the same in every run. */
std::vector<Place> ChoosePlaces(I_DuckDBCursor& cursor) {
    constexpr std::size_t kReads = 1'000'000;
    const uint32_t columns = cursor.get_ColumnCount();
    const uint32_t cells = cursor.get_RecordCount() * columns;
    std::mt19937 random(20260101);
    std::vector<Place> places(kReads);
    for (Place& place : places) {
        place.cell = static_cast<uint32_t>(random()) % cells;
        place.record = place.cell / columns + 1;
        place.column = place.cell % columns;
    }
    return places;
}

uint64_t ReadFlatArray(const RandomReads& reads) {
    const std::vector<nbx::I_Value*>& values = reads.fixture.kept.get();
    for (const Place& place : reads.places) {
        Consume(values[place.cell]->get_TypeCode());
    }
    return reads.places.size();
}

/** The least work that can separate a host from the values of such an array: one virtual call, which returns
    a reference that the host owns. */
class CellSource {
  public:
    virtual ~CellSource() = default;
    virtual nbx::smart_ptr<nbx::I_Value> get_Value(uint32_t cell) = 0;
};

class FlatArraySource final : public CellSource {
  public:
    explicit FlatArraySource(const std::vector<nbx::I_Value*>& values) : values_(values) {}
    nbx::smart_ptr<nbx::I_Value> get_Value(uint32_t cell) override {
        return nbx::smart_ptr<nbx::I_Value>(values_[cell]);
    }

  private:
    const std::vector<nbx::I_Value*>& values_;
};

uint64_t ReadCellSource(const RandomReads& reads) {
    FlatArraySource array(reads.fixture.kept.get());
    CellSource* source = &array;
    // Hide the class from the compiler.
    asm volatile("" : "+r"(source));
    for (const Place& place : reads.places) {
        Consume(source->get_Value(place.cell)->get_TypeCode());
    }
    return reads.places.size();
}

uint64_t ReadClientCursor(const RandomReads& reads) {
    I_DuckDBCursor& cursor = *reads.fixture.cursor;
    for (const Place& place : reads.places) {
        cursor.put_CurrentRecord(place.record);
        Consume(cursor.get_Value(place.column)->get_TypeCode());
    }
    return reads.places.size();
}

void CheckPlaces(const std::string& workload, const RandomReads& reads) {
    KeptValues expected;
    KeptValues actual;
    I_DuckDBCursor& cursor = *reads.fixture.cursor;
    for (const Place& place : reads.places) {
        expected.KeepReference(reads.fixture.kept.get()[place.cell]);
        cursor.put_CurrentRecord(place.record);
        actual.KeepReference(cursor.get_Value(place.column).get());
    }
    RequireSame(workload + ", random cells", expected, actual);
}

Group MakeRandomReadGroup(const std::string& name, const Options& options) {
    const auto reads = std::make_shared<RandomReads>();
    Group group{"random-" + name, "read", nullptr, {}};
    group.prepare = [reads, name, &options] {
        const Workload workload = GetWorkload(name, options);
        Fixture& fixture = reads->fixture;
        fixture.text = nbx::String(workload.sql.c_str());
        fixture.bare = std::make_unique<BareDuckDB>(workload.bare_database);
        fixture.database = OpenDatabase(workload.database);
        VectorLoopKept(fixture.bare->get(), workload.sql, fixture.kept);
        BuildClientCursor(fixture);
        reads->places = ChoosePlaces(*fixture.cursor);
    };
    group.cases = {{"flat array", [reads] { return ReadFlatArray(*reads); }, nullptr},
                   {"flat array, virtual call", [reads] { return ReadCellSource(*reads); }, nullptr},
                   {"client cursor", [reads] { return ReadClientCursor(*reads); }, nullptr}};
    group.check = [reads, name] { CheckPlaces(name, *reads); };
    return group;
}

}  // namespace

std::vector<Group> GetDeliveryGroups(const Options& options) {
    std::vector<Group> groups;
    for (const char* workload : {"W1", "W2", "W2-parquet", "W3", "W4"}) {
        groups.push_back(MakeDeliveryGroup(workload, options));
    }
    return groups;
}

std::vector<Group> GetRandomReadGroups(const Options& options) {
    std::vector<Group> groups;
    for (const char* workload : {"W1", "W2", "W3"}) {
        groups.push_back(MakeRandomReadGroup(workload, options));
    }
    return groups;
}

}  // namespace bench
