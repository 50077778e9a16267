#include "values/variant_envelope.h"

#include <string>

#include "values/json_escape.h"

namespace mduckdb {

nbx::smart_ptr<nbx::I_Value> MakeVariantEnvelope(std::string_view type_name, std::string_view value_text) {
    std::string envelope = R"({"duckdb_variant":true,"variant_type":")";
    envelope += JsonEscape(type_name);
    envelope += R"(","value":")";
    envelope += JsonEscape(value_text);
    envelope += "\"}";
    const std::string_view content = envelope;
    return nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueJSON(false, &content, nullptr));
}

}  // namespace mduckdb
