#pragma once

#include <string>
#include <string_view>

#include "cell.h"

namespace mduckdb_host {

/** A word of the command line as a value: what reads as the JSON of null, a number, a text or an array
    is that value, everything else is the text as it stands (`true`, an object, a path). Whole numbers
    that no 64-bit integer holds stay text, since a double would lose digits. */
Cell ParseArgument(const std::string& text);

/** A JSON text as a value, objects as their JSON text. Throws `std::invalid_argument` for what is no
    JSON. */
Cell ParseJson(const std::string& text);

}  // namespace mduckdb_host
