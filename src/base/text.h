#pragma once

#include <string>
#include <string_view>

#include "nbx/string.h"

namespace mduckdb {

using nbx::FromUtf8;
using nbx::ToUtf8;

/** The bytes of a path for the system. Throws `nbx::xException` when the text is not valid UTF-16 or has a
   NUL in it: with a character replaced, or cut, it would name another file. */
std::string ToPath(const nbx::String& text);

/* UTF-8 text on its way into SQL. */

/** As a string literal: single quotes around it, single quotes inside doubled. */
std::string QuoteLiteral(std::string_view text);

/** As an identifier: double quotes around it, double quotes inside doubled. */
std::string QuoteIdentifier(std::string_view text);

}  // namespace mduckdb
