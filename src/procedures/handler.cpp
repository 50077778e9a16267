#include "procedures/handler.h"

#include <cstring>
#include <exception>

#include "procedures/procedures.h"

namespace mduckdb {

mirona_cursor RunGuarded(mirona_call call, const mirona_value* values, ProcedureBody body,
                         const char* unexpected_text) noexcept {
    try {
        return body(call, Arguments(call, values));
    } catch (const std::exception& error) {
        GetApi().report_error(call, error.what(), std::strlen(error.what()));
    } catch (...) {
        GetApi().report_error(call, unexpected_text, std::strlen(unexpected_text));
    }
    return nullptr;
}

}  // namespace mduckdb
