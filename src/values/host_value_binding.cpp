#include "values/host_value_binding.h"

#include <algorithm>
#include <array>
#include <exception>
#include <limits>
#include <vector>

#include "base/errors.h"
#include "duckdb_internals/failures.h"
#include "duckdb_internals/out_of_memory.h"
#include "duckdb_internals/plain_functions.h"
#include "nbx/content_in_place.h"
#include "values/host_kinds.h"
#include "values/host_text.h"
#include "values/host_value_walk.h"
#include "values/variant.h"

namespace mduckdb {

using nbx::I_Value;

namespace {

ValueHolder ToDuckDB(I_Value* value, HostValueWalk* walk);

ValueHolder NullValue() {
    return ValueHolder(duckdb_create_null_value());
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

/** How values of a host type reach DuckDB, and what DuckDB type they are as elements of an array. */
struct HostType {
    nbx::ValueType type;
    ValueHolder (*read)(I_Value& value, HostValueWalk* walk);
    bool (*store)(I_Value& value, ColumnWriter& column, idx_t row);
    duckdb_type element_type;
    /** Null for types that do not hold a number. */
    bool (*store_number)(const void* number, ColumnWriter& column, idx_t row) = nullptr;
};

using nbx::ValueType;

template <class Kind>
constexpr HostType TypeOf(ValueType type, duckdb_type element_type) {
    return {type, Kind::Make, Kind::Store, element_type};
}

template <auto kCreate, class Number>
constexpr HostType NumberType(ValueType type, duckdb_type element_type) {
    using Kind = NumberKind<kCreate, Number>;
    return {type, Kind::Make, Kind::Store, element_type, Kind::StoreNumber};
}

bool StoreNothing(I_Value& /*value*/, ColumnWriter& /*column*/, idx_t /*row*/) {
    return false;
}

using DateKind = MomentKind<nbx::I_DateValue, nbx::kDateInterfaceId, ToDate, duckdb_create_date>;
using TimeKind = MomentKind<nbx::I_TimeValue, nbx::kTimeInterfaceId, ToTime, duckdb_create_time>;
using DateTimeKind =
    MomentKind<nbx::I_DateTimeValue, nbx::kDateTimeInterfaceId, ToTimestampMs, duckdb_create_timestamp_ms>;

/** The one place that says which host type becomes which DuckDB type, in a bind and in an appended row; a
   text for the types that are not here, JSON among them. Binary values do not get here: they offer their
   bytes, whatever their type. */
constexpr HostType kHostTypes[] = {
    NumberType<duckdb_create_bool, bool>(ValueType::Boolean, DUCKDB_TYPE_BOOLEAN),
    NumberType<duckdb_create_uint8, uint8_t>(ValueType::Byte, DUCKDB_TYPE_UTINYINT),
    NumberType<duckdb_create_int16, int16_t>(ValueType::Short, DUCKDB_TYPE_SMALLINT),
    NumberType<duckdb_create_uint16, uint16_t>(ValueType::UShort, DUCKDB_TYPE_USMALLINT),
    NumberType<duckdb_create_int32, int32_t>(ValueType::Medium, DUCKDB_TYPE_INTEGER),
    NumberType<duckdb_create_uint32, uint32_t>(ValueType::UMedium, DUCKDB_TYPE_UINTEGER),
    NumberType<duckdb_create_int32, int32_t>(ValueType::Long, DUCKDB_TYPE_INTEGER),
    NumberType<duckdb_create_uint32, uint32_t>(ValueType::ULong, DUCKDB_TYPE_UINTEGER),
    NumberType<duckdb_create_int64, int64_t>(ValueType::LLong, DUCKDB_TYPE_BIGINT),
    NumberType<duckdb_create_uint64, uint64_t>(ValueType::ULLong, DUCKDB_TYPE_UBIGINT),
    NumberType<duckdb_create_float, float>(ValueType::Float, DUCKDB_TYPE_FLOAT),
    NumberType<duckdb_create_double, double>(ValueType::Double, DUCKDB_TYPE_DOUBLE),
    NumberType<duckdb_create_double, double>(ValueType::LDouble, DUCKDB_TYPE_DOUBLE),
    NumberType<duckdb_create_double, double>(ValueType::Currency, DUCKDB_TYPE_DOUBLE),
    TypeOf<DateKind>(ValueType::Date, DUCKDB_TYPE_DATE),
    TypeOf<TimeKind>(ValueType::Time, DUCKDB_TYPE_TIME),
    TypeOf<DateTimeKind>(ValueType::DateTime, DUCKDB_TYPE_TIMESTAMP_MS),
    TypeOf<TextKind>(ValueType::FixedBinary, DUCKDB_TYPE_BLOB),
    TypeOf<TextKind>(ValueType::VarBinary, DUCKDB_TYPE_BLOB),
    TypeOf<TextKind>(ValueType::Blob, DUCKDB_TYPE_BLOB),
    TypeOf<TextKind>(ValueType::Picture, DUCKDB_TYPE_BLOB),
    {ValueType::Enum8, EnumOf, StoreNothing, DUCKDB_TYPE_INVALID},
    {ValueType::Enum16, EnumOf, StoreNothing, DUCKDB_TYPE_INVALID},
    {ValueType::Reference, ReferenceOf, StoreNothing, DUCKDB_TYPE_VARCHAR},
    {ValueType::Array, ListOf, StoreNothing, DUCKDB_TYPE_VARCHAR},
};

constexpr std::size_t kHostTypeCount = static_cast<std::size_t>(ValueType::Array) + 1;

/** By the host's code: a bind of many rows looks a type up for every value. */
constexpr auto kTypesByCode = [] {
    std::array<HostType, kHostTypeCount> types;
    types.fill(TypeOf<TextKind>(ValueType::String, DUCKDB_TYPE_VARCHAR));
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
    nbx::smart_ptr<I_Value> inner(&value);  // a host may make the others when it is asked for them
    for (unsigned depth = 0; depth <= kMaxHostValueDepth; ++depth) {
        if (!inner || inner->get_TypeCode() != static_cast<uint32_t>(ValueType::Reference)) {
            return true;
        }
        const auto* reference = Query<nbx::I_ReferenceValue>(*inner, nbx::kReferenceInterfaceId);
        inner = reference == nullptr ? nullptr : reference->get_Inner();
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

/** `StoreDirectly` for values that offer no interfaces. */
bool StoreContent(const nbx::ContentInPlace& content, ColumnWriter& column, idx_t row) {
    if (content.is_null) {
        column.PutNull(row);
        return true;
    }
    if (content.number == nullptr) {
        return StoreText(content.text, column, row);
    }
    const auto store = HostTypeOf(content.type_code).store_number;
    return store != nullptr && store(content.number, column, row);
}

/** Stores what the column holds as it is, seen in the order of `ToDuckDB`. */
bool StoreDirectly(I_Value& value, ColumnWriter& column, idx_t row) {
    if (const auto content = nbx::GetContentInPlace(value)) {
        return StoreContent(*content, column, row);
    }
    const uint32_t type_code = value.get_TypeCode();
    if (type_code == static_cast<uint32_t>(ValueType::Reference)) {
        return false;
    }
    if (value.get_IsNull()) {
        column.PutNull(row);
        return true;
    }
    if (const auto* raw = Query<nbx::I_RawBytes>(value, nbx::kRawBytesInterfaceId)) {
        return column.PutBlob(row, raw->get_Data(), raw->get_Length());
    }
    if (value.QueryInterface(nbx::kJSONInterfaceId) != nullptr) {
        return false;
    }
    return HostTypeOf(type_code).store(value, column, row);
}

/** Stores what DuckDB has to convert. */
bool StoreConverted(I_Value* value, ColumnWriter& column, idx_t row, std::string& error) {
    const ValueHolder made = HostValueToDuckDB(value);
    if (!made) {
        error = kUnconvertibleText;
        return false;
    }
    if (duckdb_is_null_value(made.get())) {
        column.PutNull(row);
        return true;
    }
    return column.PutValue(row, made.get(), error);
}

}  // namespace

bool StoreHostValue(I_Value* value, ColumnWriter& column, idx_t row, std::string& error) {
    try {
        if (value != nullptr && StoreDirectly(*value, column, row)) {
            return true;
        }
    } catch (const nbx::xException&) {
        throw;
    } catch (const std::exception&) {
        ThrowIfOutOfMemory();  // The conversion below reports anything else.
    }
    return StoreConverted(value, column, row, error);
}

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

}  // namespace mduckdb
