#include "extension/census.h"

#include <algorithm>

#include "engines/engine_files.h"
#include "engines/idle_engines.h"

namespace mduckdb {

namespace {

/** An idle engine is held by the list of idle engines alone. */
void MarkIdleEngines(std::vector<CensusLine>& lines) {
    std::vector<uint64_t> idle;
    IdleEngines::List(idle);
    for (CensusLine& line : lines) {
        if (std::find(idle.begin(), idle.end(), line.number) != idle.end()) {
            line.users = 0;
            line.flags |= CensusLine::kWaitsToBeClosed;
        }
    }
}

}  // namespace

std::vector<CensusLine> TakeCensus() {
    std::vector<CensusLine> lines;
    EngineFiles::Get().List(lines);
    EngineFiles::Nameless().List(lines);
    MarkIdleEngines(lines);
    const auto engines_end = static_cast<std::ptrdiff_t>(lines.size());
    CensusEntry::List(lines);
    std::stable_partition(lines.begin() + engines_end, lines.end(),
                          [](const CensusLine& line) { return line.kind == CensusLine::kDatabase; });
    return lines;
}

}  // namespace mduckdb
