#include "base/json_depth.h"

namespace mduckdb {

bool NestsDeeperThan(std::string_view json, std::size_t limit) noexcept {
    std::size_t depth = 0;
    bool is_in_string = false;
    for (std::size_t i = 0; i < json.size(); ++i) {
        const char c = json[i];
        if (is_in_string) {
            if (c == '\\') {
                ++i;
            } else if (c == '"') {
                is_in_string = false;
            }
        } else if (c == '"') {
            is_in_string = true;
        } else if (c == '[' || c == '{') {
            if (++depth > limit) {
                return true;
            }
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return false;
}

bool IsJsonNull(std::string_view json) noexcept {
    constexpr std::string_view kBlanks = " \t\n\r";
    const std::size_t first = json.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return false;
    }
    return json.substr(first, json.find_last_not_of(kBlanks) - first + 1) == "null";
}

}  // namespace mduckdb
