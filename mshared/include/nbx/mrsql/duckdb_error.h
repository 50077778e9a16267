#pragma once

#include <cstdint>

#include "nbx/json.h"
#include "nbx/string.h"

namespace nbx::mrsql {

/** The parts of an error text of DuckDB. */
struct DuckDBErrorInfo {
    /** A text that is not JSON is the message as a whole. */
    String message;
    /** For example "Catalog"; empty for a text that is not JSON. */
    String type;
    /** Byte offset in the SQL text; -1 when DuckDB reports none. */
    int64_t position = -1;
};

/** Reads an error text of DuckDB, NUL-terminated UTF-8 or null: a JSON object from the connections of a
    database, plain text from DuckDB's C API itself. */
inline DuckDBErrorInfo ReadDuckDBError(const char* text) {
    DuckDBErrorInfo info;
    if (text == nullptr || *text == '\0') {
        return info;
    }
    const Json json(text);
    if (!json.isValid()) {
        info.message = FromUtf8(text);
        return info;
    }
    info.message = json.get_JsonValue("exception_message");
    info.type = json.get_JsonValue("exception_type");
    const String position = json.get_JsonValue("position");
    if (!position.isEmpty()) {
        info.position = position.parseLLong();
    }
    return info;
}

}  // namespace nbx::mrsql
