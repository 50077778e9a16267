#include "values/variant.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <iterator>
#include <limits>
#include <optional>
#include <string>

#include "base/errors.h"
#include "base/json_text.h"
#include "base/text.h"
#include "duckdb_internals/cell_reader.h"
#include "duckdb_internals/failures.h"
#include "duckdb_internals/out_of_memory.h"
#include "duckdb_internals/plain_functions.h"

namespace mduckdb {
namespace {

constexpr const char* kTypedMarker = "duckdb_value";
constexpr const char* kVariantMarker = "duckdb_variant";
constexpr const char* kVariantName = "variant";

struct TypeWord;

/** The value inside a VARIANT as a host value. */
using ToHost = HostValue (*)(duckdb_value child, const TypeWord& word);
/** The text of an envelope as a DuckDB value. */
using FromText = ValueHolder (*)(const TypeWord& word, const std::string& text);

struct TypeWord {
    std::string_view word;
    ToHost to_host;      // null: no VARIANT is of this kind
    FromText from_text;  // null: a parameter cannot be stated so
    duckdb_type type = DUCKDB_TYPE_INVALID;
};

HostValue ToEnvelope(duckdb_value child, const TypeWord& word) {
    return MakeVariantEnvelope(word.word, ValueText(child).get_View());
}

HostValue ToNull(duckdb_value, const TypeWord&) {
    return MakeNullValue();
}

template <bool kContent>
HostValue ToBoolean(duckdb_value, const TypeWord&) {
    return MakeHostValue<nbx::CreateValueBoolean>(kContent);
}

template <ValueFactory kFactory, auto kGetter>
HostValue ToNumber(duckdb_value child, const TypeWord&) {
    return MakeHostValue<kFactory>(kGetter(child));
}

HostValue ToText(duckdb_value child, const TypeWord&) {
    return MakeStringValue(ValueText(child).get_View());
}

HostValue ToBytes(duckdb_value child, const TypeWord&) {
    const duckdb_blob blob = duckdb_get_blob(child);
    const TextHolder owner(static_cast<char*>(blob.data));
    return MakeBinaryValue(owner ? std::string_view(owner.get(), blob.size) : std::string_view());
}

nbx::DateContent ToDateContent(const duckdb_date_struct& date) {
    return {date.year, static_cast<uint8_t>(date.month), static_cast<uint8_t>(date.day)};
}

/** A host date cannot be infinite, so an infinite one travels as text. */
HostValue ToDate(duckdb_value child, const TypeWord& word) {
    const duckdb_date date = duckdb_get_date(child);
    if (!duckdb_is_finite_date(date)) {
        return ToEnvelope(child, word);
    }
    const nbx::DateContent content = ToDateContent(duckdb_from_date(date));
    return HostValue::Adopt(nbx::CreateValueDate(true, &content, nullptr));
}

/** Nothing when the time is infinite or outside the range in microseconds. The value becomes a
    TIMESTAMP only when it has a date and a time. */
std::optional<duckdb_timestamp_struct> SplitMillis(duckdb_value child) {
    constexpr int64_t kMicrosInMilli = 1000;
    constexpr int64_t kMaxMillis = std::numeric_limits<int64_t>::max() / kMicrosInMilli;
    const int64_t millis = duckdb_get_timestamp_ms(child).millis;
    if (millis > kMaxMillis || millis < -kMaxMillis) {
        return std::nullopt;
    }
    try {
        return duckdb_from_timestamp(duckdb_get_timestamp(child));
    } catch (const std::exception&) {  // DuckDB refuses some dates by throwing
        ThrowIfOutOfMemory();
        return std::nullopt;
    }
}

HostValue ToDateTime(duckdb_value child, const TypeWord& word) {
    constexpr int32_t kMicrosInMilli = 1000;
    const std::optional<duckdb_timestamp_struct> parts = SplitMillis(child);
    if (!parts) {
        return ToEnvelope(child, word);
    }
    const nbx::TimeContent time = {
        static_cast<uint8_t>(parts->time.hour), static_cast<uint8_t>(parts->time.min),
        static_cast<uint8_t>(parts->time.sec), static_cast<uint16_t>(parts->time.micros / kMicrosInMilli)};
    return MakeHostValue<nbx::CreateValueDateTime>(nbx::DateTimeContent{ToDateContent(parts->date), time});
}

[[noreturn]] void ThrowUnreadable(const std::string& duckdb_text, const char* what, const TypeWord& word,
                                  const char* of, const std::string& text) {
    ThrowValueError(kValueName,
                    FailureOf(duckdb_text.c_str(), (what + std::string(word.word) + of + text).c_str()));
}

[[noreturn]] void ThrowUnparsed(const std::string& duckdb_text, const TypeWord& word,
                                const std::string& text) {
    ThrowUnreadable(duckdb_text, "Cannot parse ", word, " typed value: ", text);
}

/** The value cast to the type. Empty when the cast fails; `error` then has DuckDB's text, if there is one. */
ValueHolder CastTo(const ValueHolder& value, const LogicalTypeHolder& type, std::string& error) {
    ValueHolder result;
    TextHolder text;
    if (duckdb_cast_value(value.get(), type.get(), result.Receive(), text.Receive()) != DuckDBSuccess) {
        error = TextOr(text.get(), "");
        result.Reset();
    }
    return result;
}

ValueHolder CastText(const TypeWord& word, const std::string& text, const LogicalTypeHolder& type) {
    std::string error;
    ValueHolder value = CastTo(MakeTextValue(text), type, error);
    if (!value) {
        ThrowUnparsed(error, word, text);
    }
    return value;
}

ValueHolder ByCast(const TypeWord& word, const std::string& text) {
    return CastText(word, text, MakeType(word.type));
}

ValueHolder AsNull(const TypeWord&, const std::string&) {
    return ValueHolder(duckdb_create_null_value());
}

template <bool kContent>
ValueHolder AsBoolean(const TypeWord&, const std::string&) {
    return ValueHolder(duckdb_create_bool(kContent));
}

ValueHolder AsText(const TypeWord& word, const std::string& text) {
    ValueHolder value = MakeTextValue(text);
    if (!value) {
        ThrowUnparsed("", word, text);
    }
    return value;
}

/** The text itself determines width and scale. */
ValueHolder AsDecimal(const TypeWord& word, const std::string& text) {
    constexpr std::size_t kMaxWidth = 38;
    const std::size_t point = text.find('.');
    const std::size_t scale = point == std::string::npos ? 0 : text.size() - point - 1;
    const auto digits = std::count_if(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    const auto width = std::max(static_cast<std::size_t>(digits), std::size_t{1});
    if (width > kMaxWidth || scale > width) {
        ThrowUnparsed("", word, text);  // there is no such type
    }
    return CastText(word, text,
                    LogicalTypeHolder(duckdb_create_decimal_type(static_cast<uint8_t>(width),
                                                                 static_cast<uint8_t>(scale))));
}

/** JSON text as VARIANT; its type is VARCHAR with an alias, by which DuckDB's cast knows it. */
ValueHolder FromJson(const TypeWord& word, const std::string& text) {
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
        ThrowUnreadable(error, "Malformed ", word, " value: ", text);
    }
    return value;
}

/** Every type word, in both directions: first by DuckDB's number of the kind inside a VARIANT, then the words
    that only parameters use. TIMESTAMP_MILIS is DuckDB's own spelling. A parameter cannot state a BLOB by its
    text, since a binary value already says the same. */
constexpr TypeWord kTypeWords[] = {
    {"VARIANT_NULL", ToNull, AsNull},
    {"BOOL_TRUE", ToBoolean<true>, AsBoolean<true>},
    {"BOOL_FALSE", ToBoolean<false>, AsBoolean<false>},
    {"INT8", ToEnvelope, ByCast, DUCKDB_TYPE_TINYINT},
    {"INT16", ToNumber<nbx::CreateValueShort, duckdb_get_int16>, ByCast, DUCKDB_TYPE_SMALLINT},
    {"INT32", ToNumber<nbx::CreateValueLong, duckdb_get_int32>, ByCast, DUCKDB_TYPE_INTEGER},
    {"INT64", ToNumber<nbx::CreateValueLLong, duckdb_get_int64>, ByCast, DUCKDB_TYPE_BIGINT},
    {"INT128", ToEnvelope, ByCast, DUCKDB_TYPE_HUGEINT},
    {"UINT8", ToNumber<nbx::CreateValueByte, duckdb_get_uint8>, ByCast, DUCKDB_TYPE_UTINYINT},
    {"UINT16", ToNumber<nbx::CreateValueUShort, duckdb_get_uint16>, ByCast, DUCKDB_TYPE_USMALLINT},
    {"UINT32", ToNumber<nbx::CreateValueULong, duckdb_get_uint32>, ByCast, DUCKDB_TYPE_UINTEGER},
    {"UINT64", ToNumber<nbx::CreateValueULLong, duckdb_get_uint64>, ByCast, DUCKDB_TYPE_UBIGINT},
    {"UINT128", ToEnvelope, ByCast, DUCKDB_TYPE_UHUGEINT},
    {"FLOAT", ToNumber<nbx::CreateValueFloat, duckdb_get_float>, ByCast, DUCKDB_TYPE_FLOAT},
    {"DOUBLE", ToNumber<nbx::CreateValueDouble, duckdb_get_double>, ByCast, DUCKDB_TYPE_DOUBLE},
    {"DECIMAL", ToEnvelope, AsDecimal},
    {"VARCHAR", ToText, AsText},
    {"BLOB", ToBytes, nullptr},
    {"UUID", ToEnvelope, ByCast, DUCKDB_TYPE_UUID},
    {"DATE", ToDate, ByCast, DUCKDB_TYPE_DATE},
    {"TIME_MICROS", ToEnvelope, ByCast, DUCKDB_TYPE_TIME},
    {"TIME_NANOS", ToEnvelope, ByCast, DUCKDB_TYPE_TIME_NS},
    {"TIMESTAMP_SEC", ToEnvelope, ByCast, DUCKDB_TYPE_TIMESTAMP_S},
    {"TIMESTAMP_MILIS", ToDateTime, ByCast, DUCKDB_TYPE_TIMESTAMP_MS},
    {"TIMESTAMP_MICROS", ToEnvelope, ByCast, DUCKDB_TYPE_TIMESTAMP},
    {"TIMESTAMP_NANOS", ToEnvelope, ByCast, DUCKDB_TYPE_TIMESTAMP_NS},
    {"TIME_MICROS_TZ", ToEnvelope, ByCast, DUCKDB_TYPE_TIME_TZ},
    {"TIMESTAMP_MICROS_TZ", ToEnvelope, ByCast, DUCKDB_TYPE_TIMESTAMP_TZ},
    {"INTERVAL", ToEnvelope, ByCast, DUCKDB_TYPE_INTERVAL},
    {"OBJECT", ToEnvelope, FromJson},
    {"ARRAY", ToEnvelope, FromJson},
    {"BIGNUM", ToEnvelope, ByCast, DUCKDB_TYPE_BIGNUM},
    {"BITSTRING", ToEnvelope, ByCast, DUCKDB_TYPE_BIT},
    {"GEOMETRY", ToEnvelope, ByCast, DUCKDB_TYPE_GEOMETRY},
    {"BOOL", nullptr, ByCast, DUCKDB_TYPE_BOOLEAN},
    {"BOOLEAN", nullptr, ByCast, DUCKDB_TYPE_BOOLEAN},
    {"JSON", nullptr, FromJson},
};
static_assert(kTypeWords[kVariantTypeCount - 1].word == "GEOMETRY");

constexpr TypeWord kUnknownKind = {"UNKNOWN", ToEnvelope, nullptr};

const TypeWord& WordOf(uint32_t variant_type) noexcept {
    return variant_type < kVariantTypeCount ? kTypeWords[variant_type] : kUnknownKind;
}

ValueHolder ReadByTypeWord(const std::string& type_word, const std::string& text) {
    const auto* found = std::find_if(std::begin(kTypeWords), std::end(kTypeWords), [&](const TypeWord& row) {
        return row.word == type_word && row.from_text != nullptr;
    });
    if (found == std::end(kTypeWords)) {
        ThrowValueError(kValueName, "Unsupported DuckDB typed value in envelope: " + type_word);
    }
    return found->from_text(*found, text);
}

/** The text with the escapes of ASCII characters resolved, by which a marker could be spelt. */
std::string ResolveEscapes(const std::string& text) {
    constexpr std::string_view kEscape = "\\u00";
    std::string resolved;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned code = 0;
        const char* const digits = text.data() + i + kEscape.size();
        if (text.compare(i, kEscape.size(), kEscape) == 0 && i + kEscape.size() + 2 <= text.size() &&
            std::from_chars(digits, digits + 2, code, 16).ptr == digits + 2) {
            resolved += static_cast<char>(code);
            i += kEscape.size() + 1;
        } else {
            resolved += text[i];
        }
    }
    return resolved;
}

bool IsMarked(const nbx::I_JSONValue& json, const char* marker) {
    const HostValue member = json.get_Member(marker);
    return member && member->get_TypeCode() == static_cast<uint32_t>(nbx::ValueType::Boolean) &&
           !member->get_IsNull() && member->get_Boolean();
}

}  // namespace

std::string_view VariantTypeName(uint32_t code) noexcept {
    return WordOf(code).word;
}

HostValue ConvertVariant(duckdb_value variant) {
    if (variant == nullptr || duckdb_is_null_value(variant)) {
        return MakeNullValue();
    }
    const uint32_t variant_type = duckdb_value_variant_type(variant);
    if (variant_type >= kVariantTypeCount) {
        return MakeStringValue(ValueText(variant).get_View());
    }
    const ValueHolder child(duckdb_value_variant_child(variant));
    if (!child) {  // DuckDB refuses it, for instance for a text in it that is not valid UTF-8
        return ToEnvelope(nullptr, WordOf(variant_type));
    }
    return ConvertVariantValue(child.get(), variant_type);
}

HostValue ConvertVariantValue(duckdb_value child, uint32_t variant_type) {
    if (child == nullptr || duckdb_is_null_value(child)) {
        return MakeNullValue();
    }
    const TypeWord& word = WordOf(variant_type);
    return word.to_host(child, word);
}

HostValue MakeVariantEnvelope(std::string_view type_name, std::string_view value_text) {
    std::string envelope = R"({"duckdb_variant":true,"variant_type":")";
    envelope += JsonEscape(type_name);
    envelope += R"(","value":")";
    envelope += JsonEscape(value_text);
    envelope += "\"}";
    return MakeHostValue<nbx::CreateValueJSON>(std::string_view(envelope));
}

bool IsValueEnvelope(const nbx::I_JSONValue& json) {
    return json.get_IsObject() && (json.HasMember(kTypedMarker) || json.HasMember(kVariantMarker));
}

void RefuseUnreadableEnvelope(nbx::I_Value& value, const nbx::I_JSONValue& json) {
    if (json.get_IsObject()) {
        return;
    }
    const std::string text = ToUtf8(value.get_Text());
    const std::size_t start = text.find_first_not_of(" \t\r\n");
    if (start == std::string::npos || text[start] != '{') {
        return;
    }
    const std::string resolved = ResolveEscapes(text);
    for (const char* const marker : {kTypedMarker, kVariantMarker}) {
        if (resolved.find('"' + std::string(marker) + '"') != std::string::npos) {
            ThrowValueError(kValueName, "Malformed DuckDB envelope: its JSON cannot be read");
        }
    }
}

ValueHolder ReadValueEnvelope(const nbx::I_JSONValue& json) {
    const HostValue value = json.get_Member("value");
    const bool is_typed = IsMarked(json, kTypedMarker);
    if (!is_typed && !IsMarked(json, kVariantMarker)) {
        ThrowValueError(kValueName,
                        "Malformed DuckDB envelope: missing 'duckdb_value' or 'duckdb_variant' marker");
    }
    const HostValue type = json.get_Member(is_typed ? "value_type" : "variant_type");
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
