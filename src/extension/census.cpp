#include "extension/census.h"

#include <algorithm>

#include "engines/engine_files.h"

namespace mduckdb {

std::vector<CensusLine> TakeCensus() {
    std::vector<CensusLine> lines;
    EngineFiles::Get().List(lines);
    EngineFiles::Nameless().List(lines);
    const auto engines_end = static_cast<std::ptrdiff_t>(lines.size());
    CensusEntry::List(lines);
    std::stable_partition(lines.begin() + engines_end, lines.end(),
                          [](const CensusLine& line) { return line.kind == CensusLine::kDatabase; });
    return lines;
}

}  // namespace mduckdb
