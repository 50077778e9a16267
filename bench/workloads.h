#pragma once

#include <string>
#include <vector>

#include "measure.h"

namespace bench {

struct Column {
    std::string name;
    std::string type;
};

/** Rows to deliver, and their files. */
struct Workload {
    std::string name;
    std::vector<Column> columns;
    /** A database file whose table `table` has the rows, and a Parquet file of them. */
    std::string database;
    /** A copy for bare calls: the module refuses a file that other code in this process has open. */
    std::string bare_database;
    std::string table;
    std::string parquet;
    /** The query, on the database, that the cursors deliver. */
    std::string sql;
};

/** W1 mixed numbers and text, W2 sixteen columns of orders, W2-parquet the same from the Parquet file, W3
    text, W4 nested columns and a VARIANT. Creates the files on first use; they are the same every time. */
Workload GetWorkload(const std::string& name, const Options& options);

/** The query of W1 over `rows` rows. It reads no table. */
std::string GetMixedQuery(uint64_t rows);
/** The same without the text: five columns of numbers. */
std::string GetNumberQuery(uint64_t rows);

/** Name and type of each column, in the form of CREATE TABLE. */
std::string GetColumnList(const Workload& workload);

/** A Parquet file of one BIGINT column and ten million rows. */
std::string GetTallParquet(const Options& options);

}  // namespace bench
