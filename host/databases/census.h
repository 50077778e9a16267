#pragma once

#include "print/printer.h"

namespace mduckdb_host {

/** Prints what the module has open, one row each. Throws `std::runtime_error` when the module does not offer
    the list. */
void PrintCensus(Printer& printer);

}  // namespace mduckdb_host
