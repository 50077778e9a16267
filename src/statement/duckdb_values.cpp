#include "statement/duckdb_values.h"

#include "database/errors.h"
#include "duckdb_plain/plain_functions.h"
#include "nbx/exception.h"

namespace mduckdb {

duckdb_plain::ValueHolder CastTo(const duckdb_plain::ValueHolder& value,
                                 const duckdb_plain::LogicalTypeHolder& type, std::string& error) {
    duckdb_plain::ValueHolder result;
    duckdb_plain::TextHolder text;
    if (duckdb_cast_value(value.get(), type.get(), result.Receive(), text.Receive()) != DuckDBSuccess) {
        error = TextOr(text.get(), "");
        result.Reset();
    }
    return result;
}

void ThrowValueError(const char* name, const std::string& message) {
    throw nbx::mrsql::xDuckDBError(kDuckDBErrorCode, name, message.c_str());
}

}  // namespace mduckdb
