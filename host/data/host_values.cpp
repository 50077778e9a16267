#include "data/host_values.h"

#include <array>
#include <charconv>
#include <cmath>
#include <iterator>
#include <utility>

#include "data/datum.h"
#include "mirona/extension_api.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

using nbx::I_Value;
using nbx::smart_ptr;
using nbx::ValueType;

template <class Interface>
Interface* GetInterface(I_Value& value, nbx::ValueInterfaceId id) {
    return static_cast<Interface*>(value.QueryInterface(id));
}

Datum ReadText(I_Value& value) {
    return {ToUtf8(value.get_Text())};
}
Datum ReadBoolean(I_Value& value) {
    return {value.get_Boolean()};
}
Datum ReadSigned(I_Value& value) {
    return {value.get_LLong()};
}
Datum ReadUnsigned(I_Value& value) {
    return {value.get_ULLong()};
}
Datum ReadDouble(I_Value& value) {
    return {value.get_Double()};
}
Datum ReadFloat(I_Value& value) {
    return {WidenByDigits(static_cast<float>(value.get_Double()))};
}
Datum ReadJson(I_Value& value) {
    return {JsonText{ToUtf8(value.get_Text())}};
}

Datum ReadDate(I_Value& value) {
    const auto* date = GetInterface<nbx::I_DateValue>(value, nbx::kDateInterfaceId);
    if (date == nullptr) {
        return ReadText(value);
    }
    return {nbx::DateContent{date->get_Year(), date->get_Month(), date->get_Day()}};
}

Datum ReadTime(I_Value& value) {
    const auto* time = GetInterface<nbx::I_TimeValue>(value, nbx::kTimeInterfaceId);
    if (time == nullptr) {
        return ReadText(value);
    }
    return {nbx::TimeContent{time->get_Hours(), time->get_Minutes(), time->get_Seconds(),
                             time->get_Milliseconds()}};
}

Datum ReadDateTime(I_Value& value) {
    const auto* moment = GetInterface<nbx::I_DateTimeValue>(value, nbx::kDateTimeInterfaceId);
    if (moment == nullptr) {
        return ReadText(value);
    }
    return {nbx::DateTimeContent{
        {moment->get_Year(), moment->get_Month(), moment->get_Day()},
        {moment->get_Hours(), moment->get_Minutes(), moment->get_Seconds(), moment->get_Milliseconds()}}};
}

Datum ReadBytes(I_Value& value) {
    const auto* bytes = GetInterface<nbx::I_RawBytes>(value, nbx::kRawBytesInterfaceId);
    if (bytes == nullptr) {
        return ReadText(value);
    }
    const uint64_t length = bytes->get_Length();
    return {Bytes{length == 0 ? std::string()
                              : std::string(static_cast<const char*>(bytes->get_Data()), length)}};
}

Datum ReadReference(I_Value& value) {
    const auto* reference = GetInterface<nbx::I_ReferenceValue>(value, nbx::kReferenceInterfaceId);
    return reference == nullptr ? Datum{} : ToDatum(reference->get_Inner());
}

Datum ReadArray(I_Value& value) {
    const auto* array = GetInterface<nbx::I_ArrayValue>(value, nbx::kArrayInterfaceId);
    List list;
    for (uint64_t i = 0; array != nullptr && i < array->get_Count(); ++i) {
        list.items.push_back(ToDatum(array->get_Element(i)));
    }
    return {std::move(list)};
}

using Reader = Datum (*)(I_Value& value);
constexpr std::pair<ValueType, Reader> kReaders[] = {
    {ValueType::Boolean, ReadBoolean},     {ValueType::Byte, ReadUnsigned},
    {ValueType::Short, ReadSigned},        {ValueType::UShort, ReadUnsigned},
    {ValueType::Medium, ReadSigned},       {ValueType::UMedium, ReadUnsigned},
    {ValueType::Long, ReadSigned},         {ValueType::ULong, ReadUnsigned},
    {ValueType::LLong, ReadSigned},        {ValueType::ULLong, ReadUnsigned},
    {ValueType::Float, ReadFloat},         {ValueType::Double, ReadDouble},
    {ValueType::LDouble, ReadDouble},      {ValueType::Currency, ReadDouble},
    {ValueType::Date, ReadDate},           {ValueType::Time, ReadTime},
    {ValueType::DateTime, ReadDateTime},   {ValueType::FixedBinary, ReadBytes},
    {ValueType::VarBinary, ReadBytes},     {ValueType::Blob, ReadBytes},
    {ValueType::Picture, ReadBytes},       {ValueType::JSON, ReadJson},
    {ValueType::Reference, ReadReference}, {ValueType::Array, ReadArray},
};

smart_ptr<I_Value> MakeText(const std::string& text) {
    const std::string_view content = text;
    return smart_ptr<I_Value>::Adopt(nbx::CreateValueString(false, &content, nullptr));
}

/** The declared element type of an array: the type of all items, or text when they differ. */
ValueType get_ElementType(const List& list) {
    ValueType type = ValueType::String;
    bool is_first = true;
    for (const Datum& item : list.items) {
        if (item.get_IsNull()) {
            continue;
        }
        const ValueType item_type = std::holds_alternative<bool>(item.content)       ? ValueType::Boolean
                                    : std::holds_alternative<int64_t>(item.content)  ? ValueType::LLong
                                    : std::holds_alternative<uint64_t>(item.content) ? ValueType::ULLong
                                    : std::holds_alternative<double>(item.content)   ? ValueType::Double
                                                                                     : ValueType::String;
        const bool is_number_of_both = (type == ValueType::Double && item_type == ValueType::LLong) ||
                                       (type == ValueType::LLong && item_type == ValueType::Double);
        if (is_first) {
            type = item_type;
        } else if (is_number_of_both) {
            type = ValueType::Double;
        } else if (type != item_type) {
            return ValueType::String;
        }
        is_first = false;
    }
    return type;
}

class ValueMaker {
  public:
    I_Value* operator()(Null /*null*/) const { return nullptr; }
    I_Value* operator()(bool value) const { return nbx::CreateValueBoolean(false, &value, nullptr); }
    I_Value* operator()(int64_t value) const { return nbx::CreateValueLLong(false, &value, nullptr); }
    I_Value* operator()(uint64_t value) const { return nbx::CreateValueULLong(false, &value, nullptr); }
    I_Value* operator()(double value) const { return nbx::CreateValueDouble(false, &value, nullptr); }
    I_Value* operator()(const std::string& value) const { return MakeText(value).detach(); }
    I_Value* operator()(const JsonText& value) const {
        const std::string_view content = value.text;
        return nbx::CreateValueJSON(false, &content, nullptr);
    }
    I_Value* operator()(const List& list) const {
        auto array =
            smart_ptr<I_Value>::Adopt(nbx::CreateValueArray(static_cast<uint32_t>(get_ElementType(list))));
        auto* const items = GetInterface<nbx::I_ArrayValue>(*array, nbx::kArrayInterfaceId);
        for (const Datum& item : list.items) {
            items->Append(ToHostValue(item));
        }
        return array.detach();
    }
    /** Kinds that JSON cannot express, so that no parameter has them. */
    template <class Other>
    I_Value* operator()(const Other& other) const {
        return MakeText(ToText({other})).detach();
    }
};

}  // namespace

Datum ToDatum(const smart_ptr<I_Value>& value) {
    if (value == nullptr || value->get_IsNull()) {
        return {};
    }
    for (const auto& [type, reader] : kReaders) {
        if (static_cast<uint32_t>(type) == value->get_TypeCode()) {
            return reader(*value);
        }
    }
    return ReadText(*value);
}

smart_ptr<I_Value> ToHostValue(const Datum& datum) {
    return smart_ptr<I_Value>::Adopt(std::visit(ValueMaker(), datum.content));
}

smart_ptr<nbx::ValueRow> ToParameters(const std::vector<Datum>& data) {
    auto row = nbx::MakeObject<nbx::ValueRow>();
    row->Reserve(data.size());
    for (const Datum& datum : data) {
        row->Append(ToHostValue(datum));
    }
    return row;
}

uint32_t get_HostTypeOfColumn(uint32_t duckdb_type) noexcept {
    // Indexed by DuckDB's type code. All other types arrive as text.
    constexpr std::array<uint32_t, 12> kNumbers = {
        MIRONA_TYPE_TEXT,   MIRONA_TYPE_BOOL,   MIRONA_TYPE_INT64,  MIRONA_TYPE_INT64,
        MIRONA_TYPE_INT64,  MIRONA_TYPE_INT64,  MIRONA_TYPE_UINT64, MIRONA_TYPE_UINT64,
        MIRONA_TYPE_UINT64, MIRONA_TYPE_UINT64, MIRONA_TYPE_DOUBLE, MIRONA_TYPE_DOUBLE};
    constexpr uint32_t kBlob = 18;
    constexpr uint32_t kDecimal = 19;
    constexpr uint32_t kVariant = 41;
    if (duckdb_type < kNumbers.size()) {
        return kNumbers[duckdb_type];
    }
    switch (duckdb_type) {
        case kBlob:
            return MIRONA_TYPE_BINARY;
        case kDecimal:
            return MIRONA_TYPE_DOUBLE;
        case kVariant:
            return MIRONA_TYPE_VARIANT;
        default:
            return MIRONA_TYPE_TEXT;
    }
}

double WidenByDigits(float number) {
    if (!std::isfinite(number)) {
        return static_cast<double>(number);
    }
    char digits[32];
    const char* const end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
    double wide = 0;
    std::from_chars(std::begin(digits), end, wide);
    return wide;
}

}  // namespace mduckdb_host
