#pragma once

#include <string>
#include <string_view>

namespace mduckdb {

/** UTF-8 text made fit to stand between the quotes of a JSON string, in pure ASCII.

    Bytes of 0x80 and above are escaped one by one and not as characters: a JSON reader sees a character
    for each byte, and whoever wants the text back joins their codes to UTF-8 again. */
std::string JsonEscape(std::string_view text);

}  // namespace mduckdb
