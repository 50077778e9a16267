#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "data/datum.h"
#include "print/printer.h"
#include "table/function_table.h"

namespace mduckdb_host {

/** A procedure that reported an error; `what()` is its text. */
class xProcedureError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/** The procedure, checked to take this number of arguments. Throws `xUsageError`. */
const Procedure& FindProcedure(const ProcedureRegistry& registry, std::string_view name,
                               std::size_t argument_count);

/** Calls a procedure and prints its rows. Asks `is_stopped` before the first row and
    after each, and leaves out the rest when it says so. Throws
    `xUsageError` and `xProcedureError`. */
void PrintProcedure(const ProcedureRegistry& registry, std::string_view name, std::vector<Datum> arguments,
                    Printer& printer, const std::function<bool()>& is_stopped = nullptr);

/** Calls a procedure that gives one number, as `parquet_count`. */
int64_t CallForNumber(const ProcedureRegistry& registry, std::string_view name, std::vector<Datum> arguments);

}  // namespace mduckdb_host
