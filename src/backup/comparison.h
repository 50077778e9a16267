#pragma once

#include <string>
#include <vector>

#include "backup/facts.h"

namespace mduckdb {

/** What the lines of a comparison call its two sides. */
struct ComparedNames {
    const char* original;
    const char* copy;
};

/** One line for each difference, which names what differs; empty for equal databases.

    `is_original_live`: the original was in use. Sequences are not part of transactions, so those of the copy
    may be behind. */
std::vector<std::string> CompareCatalogs(const std::vector<CatalogFact>& original,
                                         const std::vector<CatalogFact>& copy, const ComparedNames& names,
                                         bool is_original_live);
/** The same for the rows of the tables. */
std::vector<std::string> CompareTables(const std::vector<TableFacts>& original,
                                       const std::vector<TableFacts>& copy, const ComparedNames& names);
/** Compares both, for databases that nobody changes. */
std::vector<std::string> CompareFacts(const DatabaseFacts& original, const DatabaseFacts& copy,
                                      const ComparedNames& names);

}  // namespace mduckdb
