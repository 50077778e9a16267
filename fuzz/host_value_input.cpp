#include "host_value_input.h"

#include <bit>

#include "nbx/exception.h"

namespace fuzz {

namespace {

constexpr uint32_t kMostTypes = 42;
constexpr unsigned kDeepest = 12;

template <class Interface>
Interface* Part(nbx::I_Value& value, uint32_t number) {
    return static_cast<Interface*>(value.QueryInterface(number));
}

Value Take(Input& input, unsigned depth);

void FillMoment(nbx::I_Value& value, Input& input) {
    const auto year = static_cast<int32_t>(input.Number(4));
    const uint8_t month = input.Byte();
    const uint8_t day = input.Byte();
    const uint8_t hours = input.Byte();
    const uint8_t minutes = input.Byte();
    const uint8_t seconds = input.Byte();
    const auto milliseconds = static_cast<uint16_t>(input.Number(2));
    if (auto* const date = Part<nbx::I_DateValue>(value, nbx::kDateInterfaceId)) {
        date->put_Date(year, month, day);
    } else if (auto* const time = Part<nbx::I_TimeValue>(value, nbx::kTimeInterfaceId)) {
        time->put_Time(hours, minutes, seconds, milliseconds);
    } else if (auto* const both = Part<nbx::I_DateTimeValue>(value, nbx::kDateTimeInterfaceId)) {
        both->put_DateTime(year, month, day, hours, minutes, seconds, milliseconds);
    }
}

void FillParts(nbx::I_Value& value, Input& input, unsigned depth) {
    if (auto* const bytes = Part<nbx::I_RawBytes>(value, nbx::kRawBytesInterfaceId)) {
        const std::string_view content = input.Text();
        bytes->put_Bytes(content.data(), content.size());
    } else if (auto* const reference = Part<nbx::I_ReferenceValue>(value, nbx::kReferenceInterfaceId)) {
        reference->put_Inner(Take(input, depth + 1));
    } else if (auto* const array = Part<nbx::I_ArrayValue>(value, nbx::kArrayInterfaceId)) {
        for (std::size_t count = input.Pick(6); count > 0; --count) {
            Value element = Take(input, depth + 1);
            if (input.Pick(4) == 0) {
                array->Append(element);  // twice the same one
            }
            array->Append(std::move(element));
        }
    } else {
        FillMoment(value, input);
    }
}

void FillPlain(nbx::I_Value& value, Input& input) {
    switch (input.Pick(5)) {
        case 0:
            value.put_Text(Session::Text(input.Text()));
            break;
        case 1:
            value.put_LLong(static_cast<int64_t>(input.Number(8)));
            break;
        case 2:
            value.put_ULLong(input.Number(8));
            break;
        case 3:
            value.put_Double(std::bit_cast<double>(input.Number(8)));
            break;
        default:
            value.put_Boolean(input.Flag());
    }
}

Value Take(Input& input, unsigned depth) {
    const uint8_t kind = input.Byte();
    if (kind == 255 || depth > kDeepest) {
        return nullptr;
    }
    Value value = Adopt(nbx::CreateValueOfType(kind % kMostTypes, true));
    const unsigned how = input.Byte() % 8;
    try {
        if (how == 0) {
            value->put_IsNull(true);
        } else if (how < 4) {
            FillPlain(*value, input);
        } else {
            FillParts(*value, input, depth);
        }
    } catch (const nbx::xException&) {
        // The kind refuses the text, and keeps what it had.
    }
    return value;
}

}  // namespace

Value TakeHostValue(Input& input) {
    return Take(input, 0);
}

}  // namespace fuzz
