#include "values/host_value_binding.h"

#include <algorithm>
#include <array>
#include <exception>
#include <limits>
#include <vector>

#include "base/errors.h"
#include "base/text.h"
#include "duckdb_internals/failures.h"
#include "duckdb_internals/plain_functions.h"
#include "duckdb_internals/value_guard.h"
#include "values/host_value_walk.h"
#include "values/variant.h"

namespace mduckdb {

using nbx::I_Value;

namespace {

constexpr const char* kValueName = "value";

ValueHolder ToDuckDB(I_Value* value, HostValueWalk* walk);

template <class Interface>
Interface* Query(I_Value& value, uint32_t interface_id) {
    return static_cast<Interface*>(value.QueryInterface(interface_id));
}

ValueHolder NullValue() {
    return ValueHolder(duckdb_create_null_value());
}

ValueHolder TextOf(I_Value& value, HostValueWalk* walk) {
    const std::string text = ToUtf8(value.get_Text());
    if (walk != nullptr) {
        walk->Count(text.size());
    }
    return MakeTextValue(text);
}

ValueHolder BooleanOf(I_Value& value, HostValueWalk* /*walk*/) {
    return ValueHolder(duckdb_create_bool(value.get_Boolean()));
}

template <auto kCreate, class Number>
ValueHolder SignedOf(I_Value& value, HostValueWalk* /*walk*/) {
    return ValueHolder(kCreate(static_cast<Number>(value.get_LLong())));
}

template <auto kCreate, class Number>
ValueHolder UnsignedOf(I_Value& value, HostValueWalk* /*walk*/) {
    return ValueHolder(kCreate(static_cast<Number>(value.get_ULLong())));
}

template <auto kCreate, class Number>
ValueHolder FloatingOf(I_Value& value, HostValueWalk* /*walk*/) {
    return ValueHolder(kCreate(static_cast<Number>(value.get_Double())));
}

ValueHolder DateOf(I_Value& value, HostValueWalk* walk) {
    const auto* date = Query<nbx::I_DateValue>(value, nbx::kDateInterfaceId);
    if (date == nullptr) {
        return TextOf(value, walk);
    }
    return ValueHolder(duckdb_create_date(duckdb_to_date(duckdb_date_struct{
        date->get_Year(), static_cast<int8_t>(date->get_Month()), static_cast<int8_t>(date->get_Day())})));
}

ValueHolder TimeOf(I_Value& value, HostValueWalk* walk) {
    const auto* time = Query<nbx::I_TimeValue>(value, nbx::kTimeInterfaceId);
    if (time == nullptr) {
        return TextOf(value, walk);
    }
    const int64_t seconds =
        (int64_t{time->get_Hours()} * 60 + time->get_Minutes()) * 60 + time->get_Seconds();
    const int64_t micros = (seconds * 1000 + time->get_Milliseconds()) * 1000;
    return IsValidTime(micros) ? ValueHolder(duckdb_create_time(duckdb_time{micros})) : ValueHolder();
}

ValueHolder DateTimeOf(I_Value& value, HostValueWalk* walk) {
    const auto* moment = Query<nbx::I_DateTimeValue>(value, nbx::kDateTimeInterfaceId);
    if (moment == nullptr) {
        return TextOf(value, walk);
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

ValueHolder EnumOf(I_Value& /*value*/, HostValueWalk* /*walk*/) {
    RefuseEnum();
}

/** The value inside an array or a reference. The outermost of these begins the walk. */
ValueHolder InnerOf(const nbx::smart_ptr<I_Value>& inner, HostValueWalk* walk) {
    return walk->Visit(inner, [walk](I_Value* value) { return ToDuckDB(value, walk); });
}

ValueHolder ReferenceOf(I_Value& value, HostValueWalk* walk) {
    const auto* reference = Query<nbx::I_ReferenceValue>(value, nbx::kReferenceInterfaceId);
    if (reference == nullptr) {
        return NullValue();
    }
    if (walk != nullptr) {
        return InnerOf(reference->get_Inner(), walk);
    }
    HostValueWalk begun;
    return InnerOf(reference->get_Inner(), &begun);
}

ValueHolder ListOf(I_Value& value, HostValueWalk* walk);

/** How values of a host type are read, and what DuckDB type they are as elements of an array. */
struct HostType {
    nbx::ValueType type;
    ValueHolder (*read)(I_Value& value, HostValueWalk* walk);
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

bool IsList(const ValueHolder& value) {
    return !duckdb_is_null_value(value.get()) &&
           duckdb_get_type_id(duckdb_get_value_type(value.get())) == DUCKDB_TYPE_LIST;
}

/** A list that becomes an element of a list of texts. DuckDB would create the same text, however long. */
ValueHolder ListText(const ValueHolder& list, uint64_t own_size, HostValueWalk& walk) {
    idx_t length = 0;
    const TextHolder text(duckdb_get_varchar_length(list.get(), &length));
    if (!text || !walk.CountText(length, own_size)) {
        return {};
    }
    return MakeTextValue(std::string_view(text.get(), length));
}

ValueHolder ElementOf(const nbx::smart_ptr<I_Value>& element, duckdb_type type, HostValueWalk& walk) {
    const uint64_t before = walk.get_OwnSize();
    ValueHolder made = InnerOf(element, &walk);
    if (made && type == DUCKDB_TYPE_VARCHAR && IsList(made)) {
        return ListText(made, walk.get_OwnSize() - before, walk);
    }
    return made;
}

ValueHolder ListOfElements(const nbx::I_ArrayValue& array, duckdb_type element_type, HostValueWalk& walk) {
    constexpr uint64_t kReserved = 65'536;  // a count that the elements do not bear out costs no memory
    const uint64_t count = array.get_Count();
    std::vector<ValueHolder> elements;
    std::vector<duckdb_value> handles;
    elements.reserve(std::min(count, kReserved));
    // DuckDB refuses a null pointer, even for an empty list.
    handles.reserve(std::min(count, kReserved) + 1);
    for (uint64_t i = 0; i < count; ++i) {
        elements.push_back(ElementOf(array.get_Element(i), element_type, walk));
        if (!elements.back()) {
            return {};
        }
        handles.push_back(elements.back().get());
    }
    return ValueHolder(duckdb_create_list_value(MakeType(element_type).get(), handles.data(), count));
}

ValueHolder ListOf(I_Value& value, HostValueWalk* walk) {
    const auto* array = Query<nbx::I_ArrayValue>(value, nbx::kArrayInterfaceId);
    if (array == nullptr) {
        return NullValue();
    }
    const duckdb_type element_type = HostTypeOf(array->get_ElementTypeCode()).element_type;
    if (element_type == DUCKDB_TYPE_INVALID) {
        RefuseEnum();
    }
    if (walk != nullptr) {
        return ListOfElements(*array, element_type, *walk);
    }
    HostValueWalk begun;
    return ListOfElements(*array, element_type, begun);
}

ValueHolder BlobOf(const nbx::I_RawBytes& raw, HostValueWalk* walk) {
    const uint64_t length = raw.get_Length();
    if (length > std::numeric_limits<uint32_t>::max()) {
        return {};  // DuckDB's BLOBs are no longer
    }
    if (walk != nullptr) {
        walk->Count(length);
    }
    std::vector<uint8_t> bytes(length + 1);
    raw.CopyTo(bytes.data(), length);
    return ValueHolder(duckdb_create_blob(bytes.data(), length));
}

/** Whether a chain of references ends. Only then may the code check whether the reference is null, since that
    check follows the chain. */
bool Ends(I_Value& value) {
    I_Value* inner = &value;
    for (unsigned depth = 0; depth <= kMaxHostValueDepth; ++depth) {
        if (inner == nullptr || inner->get_TypeCode() != static_cast<uint32_t>(ValueType::Reference)) {
            return true;
        }
        const auto* reference = Query<nbx::I_ReferenceValue>(*inner, nbx::kReferenceInterfaceId);
        inner = reference == nullptr ? nullptr : reference->get_Inner().get();
    }
    return false;
}

ValueHolder EnvelopeOf(I_Value& value, const nbx::I_JSONValue& json, HostValueWalk* walk) {
    if (walk != nullptr) {
        walk->Count(value.get_Text().get_View().size());
    }
    return ReadValueEnvelope(json);
}

ValueHolder ToDuckDB(I_Value* value, HostValueWalk* walk) {
    if (value == nullptr) {
        return NullValue();
    }
    const uint32_t type_code = value->get_TypeCode();
    if (type_code == static_cast<uint32_t>(ValueType::Reference) && !Ends(*value)) {
        return {};
    }
    if (value->get_IsNull()) {
        return NullValue();
    }
    if (const auto* raw = Query<nbx::I_RawBytes>(*value, nbx::kRawBytesInterfaceId)) {
        return BlobOf(*raw, walk);
    }
    if (const auto* json = Query<nbx::I_JSONValue>(*value, nbx::kJSONInterfaceId)) {
        if (IsValueEnvelope(*json)) {
            return EnvelopeOf(*value, *json, walk);
        }
        RefuseUnreadableEnvelope(*value, *json);
    }
    return HostTypeOf(type_code).read(*value, walk);
}

}  // namespace

ValueHolder HostValueToDuckDB(I_Value* value) {
    try {
        return ToDuckDB(value, nullptr);
    } catch (const nbx::xException&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        // DuckDB throws through its C functions, for an impossible date for example.
        ThrowValueError(kValueName, FailureOf(error.what(), ""));
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
            ThrowDuckDBError(database_path, FailureOf(prepared, kBindFailureText));
        }
        if (outcome == BindOutcome::no_value) {
            ThrowDuckDBError(database_path, kBindFailureText);
        }
    }
}

}  // namespace mduckdb
