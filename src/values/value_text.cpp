#include "values/value_text.h"

#include "base/holders.h"
#include "duckdb_internals/plain_functions.h"

namespace mduckdb {
namespace {

/** DuckDB's text, in DuckDB's memory. */
struct EngineText {
    explicit EngineText(duckdb_value value) { text.Reset(duckdb_get_varchar_length(value, &length)); }
    std::string_view get_View() const noexcept {
        return text ? std::string_view(text.get(), length) : std::string_view();
    }

    TextHolder text;
    idx_t length = 0;
};

}  // namespace

std::string DuckDBValueToText(duckdb_value value) {
    return std::string(EngineText(value).get_View());
}

nbx::smart_ptr<nbx::I_Value> MakeStringValue(std::string_view text) {
    return nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueString(false, &text, nullptr));
}

nbx::smart_ptr<nbx::I_Value> MakeTextOfValue(duckdb_value value) {
    const EngineText text(value);
    return MakeStringValue(text.get_View());
}

}  // namespace mduckdb
