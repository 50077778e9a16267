#include "values/host_value_binding.h"

#include <array>
#include <exception>
#include <vector>

#include "base/errors.h"
#include "base/text.h"
#include "duckdb_internals/value_guard.h"
#include "values/variant.h"

namespace mduckdb {

using nbx::I_Value;

namespace {

constexpr const char* kValueName = "value";

ValueHolder ToDuckDB(I_Value* value, unsigned depth);

template <class Interface>
Interface* Query(I_Value& value, uint32_t interface_id) {
    return static_cast<Interface*>(value.QueryInterface(interface_id));
}

ValueHolder NullValue() {
    return ValueHolder(duckdb_create_null_value());
}

ValueHolder TextOf(I_Value& value, unsigned /*depth*/) {
    return MakeTextValue(ToUtf8(value.get_Text()));
}

ValueHolder BooleanOf(I_Value& value, unsigned /*depth*/) {
    return ValueHolder(duckdb_create_bool(value.get_Boolean()));
}

template <auto kCreate, class Number>
ValueHolder SignedOf(I_Value& value, unsigned /*depth*/) {
    return ValueHolder(kCreate(static_cast<Number>(value.get_LLong())));
}

template <auto kCreate, class Number>
ValueHolder UnsignedOf(I_Value& value, unsigned /*depth*/) {
    return ValueHolder(kCreate(static_cast<Number>(value.get_ULLong())));
}

template <auto kCreate, class Number>
ValueHolder FloatingOf(I_Value& value, unsigned /*depth*/) {
    return ValueHolder(kCreate(static_cast<Number>(value.get_Double())));
}

ValueHolder DateOf(I_Value& value, unsigned depth) {
    const auto* date = Query<nbx::I_DateValue>(value, nbx::kDateInterfaceId);
    if (date == nullptr) {
        return TextOf(value, depth);
    }
    return ValueHolder(duckdb_create_date(duckdb_to_date(duckdb_date_struct{
        date->get_Year(), static_cast<int8_t>(date->get_Month()), static_cast<int8_t>(date->get_Day())})));
}

ValueHolder TimeOf(I_Value& value, unsigned depth) {
    const auto* time = Query<nbx::I_TimeValue>(value, nbx::kTimeInterfaceId);
    if (time == nullptr) {
        return TextOf(value, depth);
    }
    const int64_t seconds =
        (int64_t{time->get_Hours()} * 60 + time->get_Minutes()) * 60 + time->get_Seconds();
    const int64_t micros = (seconds * 1000 + time->get_Milliseconds()) * 1000;
    return IsValidTime(micros) ? ValueHolder(duckdb_create_time(duckdb_time{micros})) : ValueHolder();
}

ValueHolder DateTimeOf(I_Value& value, unsigned depth) {
    const auto* moment = Query<nbx::I_DateTimeValue>(value, nbx::kDateTimeInterfaceId);
    if (moment == nullptr) {
        return TextOf(value, depth);
    }
    // DuckDB would read the excess as further days, or past 127 as earlier ones.
    if (moment->get_Hours() > 23 || moment->get_Minutes() > 59 || moment->get_Seconds() > 59 ||
        moment->get_Milliseconds() > 999) {
        return {};
    }
    duckdb_timestamp_struct parts{};
    parts.date.year = moment->get_Year();
    parts.date.month = static_cast<int8_t>(moment->get_Month());
    parts.date.day = static_cast<int8_t>(moment->get_Day());
    parts.time.hour = static_cast<int8_t>(moment->get_Hours());
    parts.time.min = static_cast<int8_t>(moment->get_Minutes());
    parts.time.sec = static_cast<int8_t>(moment->get_Seconds());
    parts.time.micros = int32_t{moment->get_Milliseconds()} * 1000;
    const int64_t micros = duckdb_to_timestamp(parts).micros;
    return ValueHolder(duckdb_create_timestamp_ms(duckdb_timestamp_ms{micros / 1000}));
}

[[noreturn]] void RefuseEnum() {
    ThrowValueError(kValueName, "Mirona enum values are not supported by DuckDB binding");
}

ValueHolder EnumOf(I_Value& /*value*/, unsigned /*depth*/) {
    RefuseEnum();
}

ValueHolder ReferenceOf(I_Value& value, unsigned depth) {
    const auto* reference = Query<nbx::I_ReferenceValue>(value, nbx::kReferenceInterfaceId);
    return reference != nullptr ? ToDuckDB(reference->get_Inner().get(), depth + 1) : NullValue();
}

ValueHolder ListOf(I_Value& value, unsigned depth);

/** How values of a host type are read, and what DuckDB type they are as elements of an array. */
struct HostType {
    nbx::ValueType type;
    ValueHolder (*read)(I_Value& value, unsigned depth);
    duckdb_type element_type;
};

using nbx::ValueType;

/** The one place that says which host type becomes which DuckDB type in a bind; a text for the types that are
    not here, JSON among them. Binary values do not get here: they offer their bytes, whatever their type. */
constexpr HostType kHostTypes[] = {
    {ValueType::Boolean, BooleanOf, DUCKDB_TYPE_BOOLEAN},
    {ValueType::Byte, UnsignedOf<duckdb_create_uint8, uint8_t>, DUCKDB_TYPE_UTINYINT},
    {ValueType::Short, SignedOf<duckdb_create_int16, int16_t>, DUCKDB_TYPE_SMALLINT},
    {ValueType::UShort, UnsignedOf<duckdb_create_uint16, uint16_t>, DUCKDB_TYPE_USMALLINT},
    {ValueType::Medium, SignedOf<duckdb_create_int32, int32_t>, DUCKDB_TYPE_INTEGER},
    {ValueType::UMedium, UnsignedOf<duckdb_create_uint32, uint32_t>, DUCKDB_TYPE_UINTEGER},
    {ValueType::Long, SignedOf<duckdb_create_int32, int32_t>, DUCKDB_TYPE_INTEGER},
    {ValueType::ULong, UnsignedOf<duckdb_create_uint32, uint32_t>, DUCKDB_TYPE_UINTEGER},
    {ValueType::LLong, SignedOf<duckdb_create_int64, int64_t>, DUCKDB_TYPE_BIGINT},
    {ValueType::ULLong, UnsignedOf<duckdb_create_uint64, uint64_t>, DUCKDB_TYPE_UBIGINT},
    {ValueType::Float, FloatingOf<duckdb_create_float, float>, DUCKDB_TYPE_FLOAT},
    {ValueType::Double, FloatingOf<duckdb_create_double, double>, DUCKDB_TYPE_DOUBLE},
    {ValueType::LDouble, FloatingOf<duckdb_create_double, double>, DUCKDB_TYPE_DOUBLE},
    {ValueType::Currency, FloatingOf<duckdb_create_double, double>, DUCKDB_TYPE_DOUBLE},
    {ValueType::Date, DateOf, DUCKDB_TYPE_DATE},
    {ValueType::Time, TimeOf, DUCKDB_TYPE_TIME},
    {ValueType::DateTime, DateTimeOf, DUCKDB_TYPE_TIMESTAMP_MS},
    {ValueType::FixedBinary, TextOf, DUCKDB_TYPE_BLOB},
    {ValueType::VarBinary, TextOf, DUCKDB_TYPE_BLOB},
    {ValueType::Blob, TextOf, DUCKDB_TYPE_BLOB},
    {ValueType::Picture, TextOf, DUCKDB_TYPE_BLOB},
    {ValueType::Enum8, EnumOf, DUCKDB_TYPE_INVALID},
    {ValueType::Enum16, EnumOf, DUCKDB_TYPE_INVALID},
    {ValueType::Reference, ReferenceOf, DUCKDB_TYPE_VARCHAR},
    {ValueType::Array, ListOf, DUCKDB_TYPE_VARCHAR},
};

constexpr std::size_t kHostTypeCount = static_cast<std::size_t>(ValueType::Array) + 1;

/** By the host's code: a bind of many rows looks a type up for every value. */
constexpr auto kTypesByCode = [] {
    std::array<HostType, kHostTypeCount> types{};
    types.fill({ValueType::String, TextOf, DUCKDB_TYPE_VARCHAR});
    for (const HostType& type : kHostTypes) {
        types[static_cast<std::size_t>(type.type)] = type;
    }
    return types;
}();

const HostType& HostTypeOf(uint32_t type_code) {
    return kTypesByCode[type_code < kHostTypeCount ? type_code : static_cast<uint32_t>(ValueType::String)];
}

ValueHolder ListOf(I_Value& value, unsigned depth) {
    const auto* array = Query<nbx::I_ArrayValue>(value, nbx::kArrayInterfaceId);
    if (array == nullptr) {
        return NullValue();
    }
    const duckdb_type element_type = HostTypeOf(array->get_ElementTypeCode()).element_type;
    if (element_type == DUCKDB_TYPE_INVALID) {
        RefuseEnum();
    }
    const uint64_t count = array->get_Count();
    std::vector<ValueHolder> elements;
    // One more than needed: DuckDB refuses a null pointer, even for an empty list.
    std::vector<duckdb_value> handles(count + 1);
    elements.reserve(count);
    for (uint64_t i = 0; i < count; ++i) {
        elements.push_back(ToDuckDB(array->get_Element(i).get(), depth + 1));
        if (!elements.back()) {
            return {};
        }
        handles[i] = elements.back().get();
    }
    return ValueHolder(duckdb_create_list_value(MakeType(element_type).get(), handles.data(), count));
}

ValueHolder BlobOf(const nbx::I_RawBytes& raw) {
    std::vector<uint8_t> bytes(raw.get_Length() + 1);
    const uint64_t length = bytes.size() - 1;
    raw.CopyTo(bytes.data(), length);
    return ValueHolder(duckdb_create_blob(bytes.data(), length));
}

ValueHolder ToDuckDB(I_Value* value, unsigned depth) {
    if (depth > kMaxHostValueDepth) {
        return {};
    }
    if (value == nullptr || value->get_IsNull()) {
        return NullValue();
    }
    if (const auto* raw = Query<nbx::I_RawBytes>(*value, nbx::kRawBytesInterfaceId)) {
        return BlobOf(*raw);
    }
    if (const auto* json = Query<nbx::I_JSONValue>(*value, nbx::kJSONInterfaceId)) {
        if (IsValueEnvelope(*json)) {
            return ReadValueEnvelope(*json);
        }
    }
    return HostTypeOf(value->get_TypeCode()).read(*value, depth);
}

}  // namespace

ValueHolder HostValueToDuckDB(I_Value* value) {
    try {
        return ToDuckDB(value, 0);
    } catch (const nbx::xException&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        // DuckDB throws through its C functions, for an impossible date for example.
        ThrowValueError(kValueName, error.what());
    }
}

BindOutcome BindHostValue(duckdb_prepared_statement prepared, idx_t index, I_Value* value) {
    const ValueHolder made = HostValueToDuckDB(value);
    if (!made) {
        return BindOutcome::no_value;
    }
    return duckdb_bind_value(prepared, index, made.get()) == DuckDBSuccess ? BindOutcome::bound
                                                                           : BindOutcome::refused_by_duckdb;
}

void BindValueArray(duckdb_prepared_statement prepared, const nbx::ValueRow* values,
                    const nbx::String& database_path) {
    const std::size_t count = values != nullptr ? values->get_Count() : 0;
    for (std::size_t i = 0; i < count; ++i) {
        const BindOutcome outcome = BindHostValue(prepared, i + 1, values->get_Item(i).get());
        if (outcome == BindOutcome::refused_by_duckdb) {
            ThrowDuckDBError(database_path, TextOr(duckdb_prepare_error(prepared), kBindFailureText));
        }
        if (outcome == BindOutcome::no_value) {
            ThrowDuckDBError(database_path, kBindFailureText);
        }
    }
}

}  // namespace mduckdb
