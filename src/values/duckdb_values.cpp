#include "values/duckdb_values.h"

#include "base/errors.h"
#include "duckdb_internals/plain_functions.h"
#include "nbx/exception.h"

namespace mduckdb {

ValueHolder CastTo(const ValueHolder& value, const LogicalTypeHolder& type, std::string& error) {
    ValueHolder result;
    TextHolder text;
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
