#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "backup/sql_worker.h"

namespace mduckdb {

/** One entry of the catalog: (view, main.v, sql, CREATE VIEW ...). Each object has one fact with an empty
    aspect, which says that it exists. */
struct CatalogFact {
    std::string kind;
    std::string name;
    std::string aspect;
    std::string value;

    auto Key() const { return std::tie(kind, name, aspect); }
    friend bool operator==(const CatalogFact&, const CatalogFact&) = default;
};

/** The content of one table. Two tables with the same rows in any order have the same hash. */
struct TableFacts {
    /** Quoted for SQL: "schema"."table". */
    std::string name;
    uint64_t rows = 0;
    std::string hash;
};

/** Everything that two equal databases have in common. Both lists are ordered by name. */
struct DatabaseFacts {
    std::vector<CatalogFact> catalog;
    std::vector<TableFacts> tables;
};

/** Sets the worker up so that it shows the values of every database in the same way. Changes only settings of
    its connection. */
void PrepareForFacts(SqlWorker& worker);
/** Reads the catalog of the worker's current database. Throws `BackupError`. */
std::vector<CatalogFact> ReadCatalog(SqlWorker& worker);
/** Reads every row of the current database, in the worker's transaction. A table that cannot be
    read is a `BackupError` that names it. */
std::vector<TableFacts> ReadTables(SqlWorker& worker);
DatabaseFacts ReadFacts(SqlWorker& worker);

}  // namespace mduckdb
