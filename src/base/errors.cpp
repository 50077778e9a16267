#include "base/errors.h"

#include "base/text.h"
#include "nbx/json.h"

namespace mduckdb {

std::string TextOr(const char* duckdb_text, const char* fixed_text) {
    return duckdb_text != nullptr && *duckdb_text != '\0' ? duckdb_text : fixed_text;
}

void ThrowDuckDBError(const nbx::String& path, std::string_view message) {
    throw nbx::mrsql::xDuckDBError(kDuckDBErrorCode, path.c_str(), FromUtf8(message).c_str());
}

void ThrowDetachedError(std::string_view message) {
    throw nbx::mrsql::xDuckDBError(kDuckDBErrorCode, u"unknown", FromUtf8(message).c_str());
}

void ThrowValueError(const char* name, const std::string& message) {
    throw nbx::mrsql::xDuckDBError(kDuckDBErrorCode, name, message.c_str());
}

DuckDBErrorInfo ReadDuckDBError(const char* duckdb_text) {
    DuckDBErrorInfo info;
    if (duckdb_text == nullptr || *duckdb_text == '\0') {
        return info;
    }
    const nbx::Json json(duckdb_text);
    if (!json.isValid()) {
        info.message = FromUtf8(duckdb_text);
        return info;
    }
    info.message = json.get_JsonValue("exception_message");
    info.type = json.get_JsonValue("exception_type");
    const nbx::String position = json.get_JsonValue("position");
    if (!position.isEmpty()) {
        info.position = position.parseLLong();
    }
    return info;
}

}  // namespace mduckdb
