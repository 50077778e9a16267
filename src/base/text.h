#pragma once

#include <string>

#include "nbx/sql_text.h"
#include "nbx/string.h"

namespace mduckdb {

using nbx::FromUtf8;
using nbx::QuoteIdentifier;
using nbx::QuoteLiteral;
using nbx::ToUtf8;

/** The bytes of a path for the system. Throws `nbx::xException` for a text that is not valid UTF-16 or has a
    NUL in it: with a character replaced, or cut off, it would name another file. */
std::string ToPath(const nbx::String& text);

}  // namespace mduckdb
