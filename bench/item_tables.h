#pragma once

#include <memory>
#include <string>

#include "bare_duckdb.h"
#include "module_under_test.h"
#include "nbx/value.h"
#include "workloads.h"

namespace bench {

/** A table `items` with a workload's columns, in memory, bare and in the module. */
struct ItemTables {
    std::unique_ptr<BareDuckDB> bare;
    nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> database;
    std::string create;
    /** A row, with a parameter for each column. */
    std::string insert;

    void Open(const Workload& workload);
    /** Recreates the tables. */
    void Clear() const;
    /** Terminates the program unless both have the same rows. */
    void RequireSame(const std::string& what) const;
};

/** The query of a workload's first rows, on its table. */
std::string GetFirstRowsQuery(const Workload& workload, uint64_t count);

/** The workload's first rows, as a client cursor returns them. */
nbx::smart_ptr<nbx::ValueRows> TakeHostRows(const Workload& workload, uint64_t count);

/** Inserts the rows as rows of parameters of one statement, in one transaction; returns their number. */
uint64_t InsertAsParameters(const ItemTables& tables, const nbx::smart_ptr<nbx::ValueRows>& rows);

}  // namespace bench
