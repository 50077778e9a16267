#pragma once

#include <cmath>
#include <limits>
#include <type_traits>
#include <utility>

#include "number_text.h"
#include "value_core.h"
#include "value_text.h"

namespace nbx {

/** The number in another type: the nearest one that the type has, fractions cut off, 0 for NaN in an
    integer. Never undefined, whatever the number. */
template <class To, class From>
To ConvertNumber(From number) noexcept {
    if constexpr (std::is_same_v<To, From>) {
        return number;
    } else if constexpr (std::is_same_v<To, bool>) {
        return number != From{};
    } else if constexpr (std::is_same_v<From, bool> || std::is_floating_point_v<To>) {
        return static_cast<To>(number);
    } else if constexpr (std::is_floating_point_v<From>) {
        // The largest integer may be rounded up on its way to the float type, so it is not within range.
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

/** Booleans and numbers, in a `T`. */
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

}  // namespace nbx
