#pragma once

#include <string>
#include <vector>

#include "backup/facts.h"

namespace mduckdb {

/** How the two sides of a comparison are called in its lines. */
struct ComparedNames {
    const char* original;
    const char* copy;
};

/** One line for each difference, which names what differs; empty for equal databases.

    `is_original_live`: the original was in use. Its sequences do not belong to transactions, so that those
    of the copy may be behind. */
std::vector<std::string> CompareCatalogs(const std::vector<CatalogFact>& original,
                                         const std::vector<CatalogFact>& copy, const ComparedNames& names,
                                         bool is_original_live);
/** The same for the rows of the tables. */
std::vector<std::string> CompareTables(const std::vector<TableFacts>& original,
                                       const std::vector<TableFacts>& copy, const ComparedNames& names);
/** Both, for databases that nobody changes. */
std::vector<std::string> CompareFacts(const DatabaseFacts& original, const DatabaseFacts& copy,
                                      const ComparedNames& names);

}  // namespace mduckdb
