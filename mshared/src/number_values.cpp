#include <cmath>
#include <limits>
#include <optional>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "value_core.h"

namespace nbx {
namespace {

/** The number in another type: the nearest one that the type has, fractions cut off, 0 for NaN in an integer.
    A plain cast of a number out of range would be undefined. */
template <class To, class From>
To ConvertNumber(From number) noexcept {
    if constexpr (std::is_same_v<To, From>) {
        return number;
    } else if constexpr (std::is_same_v<To, bool>) {
        return number != From{};
    } else if constexpr (std::is_same_v<From, bool> || std::is_floating_point_v<To>) {
        return static_cast<To>(number);
    } else if constexpr (std::is_floating_point_v<From>) {
        // The largest integer may be rounded up when it becomes a float, so the float that equals the limit
        // is out of range already.
        if (number >= static_cast<From>(std::numeric_limits<To>::max())) {
            return std::numeric_limits<To>::max();
        }
        if (number <= static_cast<From>(std::numeric_limits<To>::min())) {
            return std::numeric_limits<To>::min();
        }
        return std::isnan(number) ? To{} : static_cast<To>(number);
    } else {
        if (std::cmp_less(number, std::numeric_limits<To>::min())) {
            return std::numeric_limits<To>::min();
        }
        if (std::cmp_greater(number, std::numeric_limits<To>::max())) {
            return std::numeric_limits<To>::max();
        }
        return static_cast<To>(number);
    }
}

/** Booleans and numbers. Several type codes share a `T`: Long and Medium are both `int32_t`, for example. A
    row set holds millions of these, so the object has nothing but its number besides the base. */
template <class T>
class NumberValue final : public ValueCore<NumberValue<T>> {
  public:
    NumberValue(uint32_t type_code, bool is_nullable, T content) noexcept
        : ValueCore<NumberValue<T>>(type_code, is_nullable), content_(content) {}

    void* QueryInterface(uint32_t /*interface_id*/) override { return nullptr; }

    bool get_Boolean() const override { return ConvertNumber<bool>(content_); }
    int64_t get_LLong() const override { return ConvertNumber<int64_t>(content_); }
    uint64_t get_ULLong() const override { return ConvertNumber<uint64_t>(content_); }
    double get_Double() const override { return ConvertNumber<double>(content_); }
    String get_Text() const override {
        // The content of a null value is zero, but its text is empty.
        if (this->get_IsNull()) {
            return {};
        }
        if constexpr (std::is_same_v<T, bool>) {
            return BooleanText(content_);
        } else if constexpr (std::is_same_v<T, float>) {
            return FloatText(content_);
        } else if constexpr (std::is_same_v<T, double>) {
            return DoubleText(content_);
        } else if constexpr (std::is_signed_v<T>) {
            return LLongText(content_);
        } else {
            return ULLongText(content_);
        }
    }

    void put_Boolean(bool content) override { Store(content); }
    void put_LLong(int64_t content) override { Store(content); }
    void put_ULLong(uint64_t content) override { Store(content); }
    void put_Double(double content) override { Store(content); }
    void put_Text(String content) override {
        const std::u16string_view text = content.get_View();
        if constexpr (std::is_same_v<T, bool>) {
            Store(ParseBoolean(text));
        } else if constexpr (std::is_floating_point_v<T>) {
            Store(ParseDouble(text));
        } else if constexpr (std::is_signed_v<T>) {
            Store(ParseLLong(text));
        } else {
            Store(ParseULLong(text));
        }
    }

    void Clear() noexcept { content_ = T{}; }
    ContentInPlace get_InPlace() const noexcept {
        return {this->get_TypeCode(), this->get_IsNull(), &content_, {}};
    }

  private:
    template <class From>
    void Store(From content) noexcept {
        content_ = ConvertNumber<T>(content);
        this->MarkNotNull();
    }

    T content_;
};

static_assert(sizeof(NumberValue<bool>) <= 24 && sizeof(NumberValue<double>) <= 24,
              "row sets hold millions of these");

/** A number whose type code is known at compile time; the arguments are those of the public factories. */
template <class T, ValueType kType>
I_Value* MakeNumber(bool nullable, const void* content, const void* /*extra*/) {
    return new NumberValue<T>(static_cast<uint32_t>(kType), nullable, ContentOf<T>(content));
}

/** The content if the value is of one of the classes, which are tried in turn. */
template <class... T>
std::optional<ContentInPlace> GetInPlace(const I_Value& value) noexcept {
    // The classes are final and known here alone, so that each comparison is one of addresses.
    const std::type_info* const type = &typeid(value);
    std::optional<ContentInPlace> content;
    const auto try_class = [&]<class Number>(std::type_identity<Number>) {
        if (type != &typeid(NumberValue<Number>)) {
            return false;
        }
        content = static_cast<const NumberValue<Number>&>(value).get_InPlace();
        return true;
    };
    static_cast<void>((try_class(std::type_identity<T>{}) || ...));
    return content;
}

}  // namespace

I_Value* CreateValueBoolean(bool nullable, const void* content, const void* extra) {
    return MakeNumber<bool, ValueType::Boolean>(nullable, content, extra);
}

I_Value* CreateValueByte(bool nullable, const void* content, const void* extra) {
    return MakeNumber<uint8_t, ValueType::Byte>(nullable, content, extra);
}

I_Value* CreateValueShort(bool nullable, const void* content, const void* extra) {
    return MakeNumber<int16_t, ValueType::Short>(nullable, content, extra);
}

I_Value* CreateValueUShort(bool nullable, const void* content, const void* extra) {
    return MakeNumber<uint16_t, ValueType::UShort>(nullable, content, extra);
}

I_Value* CreateValueLong(bool nullable, const void* content, const void* extra) {
    return MakeNumber<int32_t, ValueType::Long>(nullable, content, extra);
}

I_Value* CreateValueULong(bool nullable, const void* content, const void* extra) {
    return MakeNumber<uint32_t, ValueType::ULong>(nullable, content, extra);
}

I_Value* CreateValueLLong(bool nullable, const void* content, const void* extra) {
    return MakeNumber<int64_t, ValueType::LLong>(nullable, content, extra);
}

I_Value* CreateValueULLong(bool nullable, const void* content, const void* extra) {
    return MakeNumber<uint64_t, ValueType::ULLong>(nullable, content, extra);
}

I_Value* CreateValueFloat(bool nullable, const void* content, const void* extra) {
    return MakeNumber<float, ValueType::Float>(nullable, content, extra);
}

I_Value* CreateValueDouble(bool nullable, const void* content, const void* extra) {
    return MakeNumber<double, ValueType::Double>(nullable, content, extra);
}

I_Value* CreateNumberOfType(ValueType type, bool nullable) {
    switch (type) {
        case ValueType::Boolean:
            return MakeNumber<bool, ValueType::Boolean>(nullable, nullptr, nullptr);
        case ValueType::Byte:
            return MakeNumber<uint8_t, ValueType::Byte>(nullable, nullptr, nullptr);
        case ValueType::Short:
            return MakeNumber<int16_t, ValueType::Short>(nullable, nullptr, nullptr);
        case ValueType::UShort:
            return MakeNumber<uint16_t, ValueType::UShort>(nullable, nullptr, nullptr);
        case ValueType::Medium:
            return MakeNumber<int32_t, ValueType::Medium>(nullable, nullptr, nullptr);
        case ValueType::UMedium:
            return MakeNumber<uint32_t, ValueType::UMedium>(nullable, nullptr, nullptr);
        case ValueType::Long:
            return MakeNumber<int32_t, ValueType::Long>(nullable, nullptr, nullptr);
        case ValueType::ULong:
            return MakeNumber<uint32_t, ValueType::ULong>(nullable, nullptr, nullptr);
        case ValueType::LLong:
            return MakeNumber<int64_t, ValueType::LLong>(nullable, nullptr, nullptr);
        case ValueType::ULLong:
            return MakeNumber<uint64_t, ValueType::ULLong>(nullable, nullptr, nullptr);
        case ValueType::Float:
            return MakeNumber<float, ValueType::Float>(nullable, nullptr, nullptr);
        case ValueType::Double:
            return MakeNumber<double, ValueType::Double>(nullable, nullptr, nullptr);
        case ValueType::LDouble:
            return MakeNumber<double, ValueType::LDouble>(nullable, nullptr, nullptr);
        case ValueType::Currency:
            return MakeNumber<double, ValueType::Currency>(nullable, nullptr, nullptr);
        case ValueType::Enum8:
            return MakeNumber<uint8_t, ValueType::Enum8>(nullable, nullptr, nullptr);
        case ValueType::Enum16:
            return MakeNumber<uint16_t, ValueType::Enum16>(nullable, nullptr, nullptr);
        default:
            return nullptr;
    }
}

std::optional<ContentInPlace> GetNumberInPlace(const I_Value& value) noexcept {
    return GetInPlace<int32_t, int64_t, double, bool, int16_t, float, uint8_t, uint16_t, uint32_t, uint64_t>(
        value);
}

}  // namespace nbx
