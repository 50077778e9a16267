#pragma once

#include "data/datum.h"
#include "nbx/value.h"

namespace mduckdb_host {

/** A host value as a datum, whatever its kind; a null pointer is a null. */
Datum ToDatum(const nbx::smart_ptr<nbx::I_Value>& value);

/** A datum as a parameter: whole numbers become 64-bit ones, JSON objects JSON values (so that the envelope
    that states a DuckDB type works), lists arrays of the kind that all their items have, or of texts. */
nbx::smart_ptr<nbx::I_Value> ToHostValue(const Datum& datum);

/** A list as one set of parameters. */
nbx::smart_ptr<nbx::ValueRow> ToParameters(const std::vector<Datum>& data);

/** The host type of the values that a cursor gives for a column of this DuckDB type. */
uint32_t get_HostTypeOfColumn(uint32_t duckdb_type) noexcept;

/** A single-precision number as the double that is written with the same digits. */
double WidenByDigits(float number);

}  // namespace mduckdb_host
