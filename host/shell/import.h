#pragma once

#include <string>

namespace mduckdb_host {

/** The statement that reads a file into a table: it appends to an existing table, and creates one that does
   not exist. The name ends of the file say what it is: Parquet, JSON, or else CSV. */
std::string MakeImportStatement(const std::string& file, const std::string& table, bool exists);

/** A table's name as SQL: `schema.table` are two names unless they are quoted. */
std::string QuoteTableName(const std::string& name);

}  // namespace mduckdb_host
