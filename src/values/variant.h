#pragma once

#include <duckdb.h>

#include <cstdint>
#include <string_view>

#include "base/holders.h"
#include "base/host_values.h"

namespace mduckdb {

/* The value inside a VARIANT becomes the host value of its kind. Kinds that the host does not have travel in
   an envelope, a JSON object that names the kind and holds DuckDB's text. A parameter may be such an envelope
   too, and an envelope with the mark of a typed value can state any DuckDB type. */

/** Kinds of value inside a VARIANT that are known here: the codes from 0 up to this number. */
constexpr uint32_t kVariantTypeCount = 34;

/** The name of a kind, as envelopes write it; "UNKNOWN" for a code that is not known. */
std::string_view VariantTypeName(uint32_t code) noexcept;

/** The host value of a VARIANT. A null handle and NULL become a null Boolean; a VARIANT of a kind that is not
    known becomes text as a whole. */
HostValue ConvertVariant(duckdb_value variant);

/** The host value of the value inside a VARIANT. `variant_type` is needed because the value itself does not
    show it for Booleans. The caller keeps the value, which may be changed in place. */
HostValue ConvertVariantValue(duckdb_value child, uint32_t variant_type);

/** A host JSON value, never null, that carries a value for which the host has no kind: the name of its
    kind inside a VARIANT and DuckDB's text of it, both UTF-8. */
HostValue MakeVariantEnvelope(std::string_view type_name, std::string_view value_text);

/** Whether the value is a JSON object by which the host states the DuckDB type of a parameter. */
bool IsValueEnvelope(const nbx::I_JSONValue& json);

/** Throws `xDuckDBError` for JSON text with a marker that the host cannot parse: it would be bound as its own
    text, and nobody would notice. */
void RefuseUnreadableEnvelope(nbx::I_Value& value, const nbx::I_JSONValue& json);

/** The value that the envelope describes. Throws `xDuckDBError` for a malformed envelope, an unknown type
    word, and a text that its type does not allow. Never returns an empty holder. */
ValueHolder ReadValueEnvelope(const nbx::I_JSONValue& json);

}  // namespace mduckdb
