#include "base/errors.h"

#include "base/text.h"

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

}  // namespace mduckdb
