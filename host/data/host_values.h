#pragma once

#include "data/datum.h"
#include "nbx/value.h"

namespace mduckdb_host {

/** Reads a host value of any kind; a null pointer is a null. */
Datum ToDatum(const nbx::smart_ptr<nbx::I_Value>& value);

/** The host value for a parameter: integers become 64-bit ones, JSON objects become JSON values (so that an
    envelope can name a DuckDB type), lists become arrays of the kind that all their items have, or else of
    texts. */
nbx::smart_ptr<nbx::I_Value> ToHostValue(const Datum& datum);

/** A list as one set of parameters. */
nbx::smart_ptr<nbx::ValueRow> ToParameters(const std::vector<Datum>& data);

/** The host type of the values that a cursor returns for a column of this DuckDB type. */
uint32_t get_HostTypeOfColumn(uint32_t duckdb_type) noexcept;

/** The double that is written with the same digits as the single-precision number. */
double WidenByDigits(float number);

}  // namespace mduckdb_host
