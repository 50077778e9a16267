#include "envelope.h"

#include <nlohmann/json.hpp>

#include "measure.h"
#include "stock_value.h"

namespace bench {
namespace {

duckdb_value ReadValue(const std::string& type, const std::string& text) {
    if (type == "INT64") {
        return CastStockText(text, DUCKDB_TYPE_BIGINT);
    }
    if (type == "DOUBLE") {
        return CastStockText(text, DUCKDB_TYPE_DOUBLE);
    }
    if (type == "VARCHAR") {
        return duckdb_create_varchar_length(text.data(), text.size());
    }
    if (type == "ARRAY") {
        return JsonToStockVariant(text);
    }
    Die("no reading of " + type);
}

}  // namespace

void BindEnvelope(duckdb_prepared_statement prepared, idx_t index, const std::string& json) {
    const nlohmann::json envelope = nlohmann::json::parse(json);
    if (!envelope.at("duckdb_variant").get<bool>()) {
        Die("no envelope");
    }
    duckdb_value value = ReadValue(envelope.at("variant_type").get_ref<const std::string&>(),
                                   envelope.at("value").get_ref<const std::string&>());
    duckdb_bind_value(prepared, index, value);
    duckdb_destroy_value(&value);
}

}  // namespace bench
