#include "values/value_envelope.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "base/text.h"
#include "values/duckdb_values.h"

namespace mduckdb {

namespace {

constexpr const char* kTypedMarker = "duckdb_value";
constexpr const char* kVariantMarker = "duckdb_variant";
constexpr const char* kValueName = "value";
constexpr const char* kVariantName = "variant";

/** How a text becomes a value of a type word. */
using Reading = ValueHolder (*)(std::string_view type_word, const std::string& text, duckdb_type type);

[[noreturn]] void ThrowReadFailure(const std::string& duckdb_text, const std::string& fixed_text) {
    ThrowValueError(kValueName, duckdb_text.empty() ? fixed_text : duckdb_text);
}

ValueHolder CastText(std::string_view type_word, const std::string& text, const LogicalTypeHolder& type) {
    std::string error;
    ValueHolder value = CastTo(MakeTextValue(text), type, error);
    if (!value) {
        ThrowReadFailure(error, "Cannot parse " + std::string(type_word) + " typed value: " + text);
    }
    return value;
}

ValueHolder ReadByCast(std::string_view type_word, const std::string& text, duckdb_type type) {
    return CastText(type_word, text, MakeType(type));
}

ValueHolder ReadNull(std::string_view, const std::string&, duckdb_type) {
    return ValueHolder(duckdb_create_null_value());
}

ValueHolder ReadTrue(std::string_view, const std::string&, duckdb_type) {
    return ValueHolder(duckdb_create_bool(true));
}

ValueHolder ReadFalse(std::string_view, const std::string&, duckdb_type) {
    return ValueHolder(duckdb_create_bool(false));
}

ValueHolder ReadText(std::string_view type_word, const std::string& text, duckdb_type) {
    ValueHolder value = MakeTextValue(text);
    if (!value) {
        ThrowReadFailure("", "Cannot parse " + std::string(type_word) + " typed value: " + text);
    }
    return value;
}

/** The text itself tells width and scale. */
ValueHolder ReadDecimal(std::string_view type_word, const std::string& text, duckdb_type) {
    constexpr std::size_t kMaxWidth = 38;
    const std::size_t point = text.find('.');
    const std::size_t scale = point == std::string::npos ? 0 : text.size() - point - 1;
    const auto digits = std::count_if(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    const auto width = std::max(static_cast<std::size_t>(digits), std::size_t{1});
    if (width > kMaxWidth || scale > width) {
        // There is no such type.
        ThrowReadFailure("", "Cannot parse " + std::string(type_word) + " typed value: " + text);
    }
    return CastText(type_word, text,
                    LogicalTypeHolder(duckdb_create_decimal_type(static_cast<uint8_t>(width),
                                                                 static_cast<uint8_t>(scale))));
}

/** JSON text as VARIANT; its type is VARCHAR with an alias, by which DuckDB's cast knows it. */
ValueHolder ReadJson(std::string_view type_word, const std::string& text, duckdb_type) {
    const LogicalTypeHolder json_type = MakeType(DUCKDB_TYPE_VARCHAR);
    if (json_type) {
        duckdb_logical_type_set_alias(json_type.get(), "JSON");
    }
    std::string error;
    const ValueHolder json = CastTo(MakeTextValue(text), json_type, error);
    ValueHolder value;
    if (json) {
        value = CastTo(json, MakeType(DUCKDB_TYPE_VARIANT), error);
    }
    if (!value) {
        ThrowReadFailure(error, "Malformed " + std::string(type_word) + " value: " + text);
    }
    return value;
}

struct TypeWord {
    std::string_view word;
    Reading read;
    duckdb_type type;
};

constexpr TypeWord kTypeWords[] = {
    {"VARIANT_NULL", ReadNull, DUCKDB_TYPE_INVALID},
    {"BOOL", ReadByCast, DUCKDB_TYPE_BOOLEAN},
    {"BOOLEAN", ReadByCast, DUCKDB_TYPE_BOOLEAN},
    {"BOOL_TRUE", ReadTrue, DUCKDB_TYPE_INVALID},
    {"BOOL_FALSE", ReadFalse, DUCKDB_TYPE_INVALID},
    {"INT8", ReadByCast, DUCKDB_TYPE_TINYINT},
    {"INT16", ReadByCast, DUCKDB_TYPE_SMALLINT},
    {"INT32", ReadByCast, DUCKDB_TYPE_INTEGER},
    {"INT64", ReadByCast, DUCKDB_TYPE_BIGINT},
    {"INT128", ReadByCast, DUCKDB_TYPE_HUGEINT},
    {"UINT8", ReadByCast, DUCKDB_TYPE_UTINYINT},
    {"UINT16", ReadByCast, DUCKDB_TYPE_USMALLINT},
    {"UINT32", ReadByCast, DUCKDB_TYPE_UINTEGER},
    {"UINT64", ReadByCast, DUCKDB_TYPE_UBIGINT},
    {"UINT128", ReadByCast, DUCKDB_TYPE_UHUGEINT},
    {"FLOAT", ReadByCast, DUCKDB_TYPE_FLOAT},
    {"DOUBLE", ReadByCast, DUCKDB_TYPE_DOUBLE},
    {"VARCHAR", ReadText, DUCKDB_TYPE_VARCHAR},
    {"UUID", ReadByCast, DUCKDB_TYPE_UUID},
    {"DATE", ReadByCast, DUCKDB_TYPE_DATE},
    {"TIME_MICROS", ReadByCast, DUCKDB_TYPE_TIME},
    {"TIME_NANOS", ReadByCast, DUCKDB_TYPE_TIME_NS},
    {"TIME_MICROS_TZ", ReadByCast, DUCKDB_TYPE_TIME_TZ},
    {"TIMESTAMP_SEC", ReadByCast, DUCKDB_TYPE_TIMESTAMP_S},
    // One L, as the cursors write it.
    {"TIMESTAMP_MILIS", ReadByCast, DUCKDB_TYPE_TIMESTAMP_MS},
    {"TIMESTAMP_MICROS", ReadByCast, DUCKDB_TYPE_TIMESTAMP},
    {"TIMESTAMP_NANOS", ReadByCast, DUCKDB_TYPE_TIMESTAMP_NS},
    {"TIMESTAMP_MICROS_TZ", ReadByCast, DUCKDB_TYPE_TIMESTAMP_TZ},
    {"INTERVAL", ReadByCast, DUCKDB_TYPE_INTERVAL},
    {"BITSTRING", ReadByCast, DUCKDB_TYPE_BIT},
    {"BIGNUM", ReadByCast, DUCKDB_TYPE_BIGNUM},
    {"DECIMAL", ReadDecimal, DUCKDB_TYPE_DECIMAL},
    {"ARRAY", ReadJson, DUCKDB_TYPE_VARIANT},
    {"OBJECT", ReadJson, DUCKDB_TYPE_VARIANT},
    {"JSON", ReadJson, DUCKDB_TYPE_VARIANT},
    {"GEOMETRY", ReadByCast, DUCKDB_TYPE_GEOMETRY},
};

ValueHolder ReadByTypeWord(const std::string& type_word, const std::string& text) {
    const auto* found = std::find_if(std::begin(kTypeWords), std::end(kTypeWords),
                                     [&](const TypeWord& row) { return row.word == type_word; });
    if (found == std::end(kTypeWords)) {
        ThrowValueError(kValueName, "Unsupported DuckDB typed value in envelope: " + type_word);
    }
    return found->read(found->word, text, found->type);
}

bool IsMarked(const nbx::I_JSONValue& json, const char* marker) {
    const nbx::smart_ptr<nbx::I_Value> member = json.get_Member(marker);
    return member && member->get_TypeCode() == static_cast<uint32_t>(nbx::ValueType::Boolean) &&
           !member->get_IsNull() && member->get_Boolean();
}

}  // namespace

bool IsValueEnvelope(const nbx::I_JSONValue& json) {
    return json.get_IsObject() && (json.HasMember(kTypedMarker) || json.HasMember(kVariantMarker));
}

ValueHolder ReadValueEnvelope(const nbx::I_JSONValue& json) {
    const nbx::smart_ptr<nbx::I_Value> value = json.get_Member("value");
    const bool is_typed = IsMarked(json, kTypedMarker);
    if (!is_typed && !IsMarked(json, kVariantMarker)) {
        ThrowValueError(kValueName,
                        "Malformed DuckDB envelope: missing 'duckdb_value' or 'duckdb_variant' marker");
    }
    const nbx::smart_ptr<nbx::I_Value> type = json.get_Member(is_typed ? "value_type" : "variant_type");
    if (!type || !value) {
        is_typed
            ? ThrowValueError(kValueName,
                              "Malformed DuckDB value envelope: missing 'value_type' or 'value' field")
            : ThrowValueError(kVariantName,
                              "Malformed DuckDB variant envelope: missing 'variant_type' or 'value' field");
    }
    const std::string type_word = ToUtf8(type->get_Text());
    if (is_typed && (type_word == "ARRAY" || type_word == "OBJECT")) {
        ThrowValueError(kValueName,
                        "Use duckdb_variant with variant_type ARRAY or OBJECT for DuckDB VARIANT values");
    }
    return ReadByTypeWord(type_word, ToUtf8(value->get_Text()));
}

}  // namespace mduckdb
