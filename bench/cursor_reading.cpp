#include "cursor_reading.h"

#include "measure.h"

namespace bench {

uint64_t ReadThroughServerCursor(nbx::mrsql::I_DuckDBDatabase& database, const nbx::String& sql) {
    return ReadServerCursor(
        database, sql, [](const nbx::smart_ptr<nbx::I_Value>& value) { Consume(value->get_TypeCode()); });
}

}  // namespace bench
