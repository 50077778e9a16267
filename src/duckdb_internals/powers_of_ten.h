#pragma once

#include <array>
#include <cstddef>

namespace mduckdb {

/** 10^0 to 10^18, which both `int64_t` and `double` hold exactly. */
template <class Number>
inline constexpr auto kPowersOfTen = [] {
    std::array<Number, 19> powers{1};
    for (std::size_t i = 1; i < powers.size(); ++i) {
        powers[i] = powers[i - 1] * 10;
    }
    return powers;
}();

}  // namespace mduckdb
