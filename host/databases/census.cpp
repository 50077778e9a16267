#include "databases/census.h"

#include <stdexcept>
#include <vector>

#include "databases/databases.h"
#include "mirona/extension_api.h"
#include "nbx/mrsql/duckdb_census.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

using Line = nbx::mrsql::DuckDBCensusLine;

class LineList final : public nbx::mrsql::I_DuckDBCensusReader {
  public:
    void Add(const Line& line) override { lines.push_back(line); }
    std::vector<Line> lines;
};

const char* NameOf(Line::Kind kind) {
    constexpr const char* kNames[] = {"",       "engine",       "database", "statement",
                                      "cursor", "query result", "backup",   "call"};
    return kind < std::size(kNames) ? kNames[kind] : "";
}

std::string DescribeState(const Line& line) {
    std::string text;
    const auto add = [&text](bool is_so, const char* word) {
        if (is_so) {
            text += (text.empty() ? "" : ", ") + std::string(word);
        }
    };
    add((line.flags & Line::kIsRunning) != 0, "running");
    add((line.flags & Line::kIsInTransaction) != 0, "in transaction");
    add((line.flags & Line::kIsReadOnly) != 0, "read-only");
    add((line.flags & Line::kWaitsToBeClosed) != 0, "waits to be closed");
    add((line.flags & Line::kIsUnusable) != 0, "unusable");
    add((line.flags & Line::kIsForeign) != 0, "of another DuckDB");
    add(line.lock == Line::kSharedLock, "shared lock");
    add(line.lock == Line::kExclusiveLock, "exclusive lock");
    return text;
}

Datum NumberOrNull(int64_t number) {
    return number < 0 ? Datum{} : Datum{number};
}

Row MakeRow(const Line& line) {
    const bool is_engine = line.kind == Line::kEngine;
    return {{std::string(NameOf(line.kind))},
            {line.number},
            line.parent == 0 ? Datum{} : Datum{line.parent},
            line.name.isEmpty() ? Datum{} : Datum{ToUtf8(line.name)},
            {DescribeState(line)},
            is_engine ? Datum{uint64_t{line.users}} : Datum{},
            NumberOrNull(line.rows),
            NumberOrNull(line.bytes),
            line.memory_limit == 0 ? Datum{} : Datum{line.memory_limit},
            line.threads == 0 ? Datum{} : Datum{uint64_t{line.threads}},
            {static_cast<double>(line.age_ms) / 1000}};
}

}  // namespace

void PrintCensus(Printer& printer) {
    auto* const census = static_cast<nbx::mrsql::I_DuckDBCensus*>(
        GetExtension()->QueryInterface(nbx::mrsql::kDuckDBCensusInterfaceId));
    if (census == nullptr) {
        throw std::runtime_error("The module does not list what is open.");
    }
    LineList list;
    census->List(list);
    printer.Begin({{"kind", 0, MIRONA_TYPE_TEXT},
                   {"number", 0, MIRONA_TYPE_UINT64},
                   {"of", 0, MIRONA_TYPE_UINT64},
                   {"name", 0, MIRONA_TYPE_TEXT},
                   {"state", 0, MIRONA_TYPE_TEXT},
                   {"users", 0, MIRONA_TYPE_UINT64},
                   {"rows", 0, MIRONA_TYPE_INT64},
                   {"bytes", 0, MIRONA_TYPE_INT64},
                   {"memory_limit", 0, MIRONA_TYPE_UINT64},
                   {"threads", 0, MIRONA_TYPE_UINT64},
                   {"seconds", 0, MIRONA_TYPE_DOUBLE}});
    for (const Line& line : list.lines) {
        printer.Add(MakeRow(line));
    }
    printer.End();
}

}  // namespace mduckdb_host
