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

/** A procedure reported an error; `what()` is its text. */
class xProcedureError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/** The procedure, if it accepts this number of arguments. Throws `xUsageError` if not. */
const Procedure& FindProcedure(const ProcedureRegistry& registry, std::string_view name,
                               std::size_t argument_count);

/** Calls a procedure and prints its rows. Calls `is_stopped` before the first row and after each one, and
    stops when it returns true. Throws `xUsageError` and `xProcedureError`. */
void PrintProcedure(const ProcedureRegistry& registry, std::string_view name, std::vector<Datum> arguments,
                    Printer& printer, const std::function<bool()>& is_stopped = nullptr);

/** Calls a procedure that returns one number, such as `parquet_count`. */
int64_t CallForNumber(const ProcedureRegistry& registry, std::string_view name, std::vector<Datum> arguments);

}  // namespace mduckdb_host
