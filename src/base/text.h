#pragma once

#include <string>
#include <string_view>

#include "nbx/string.h"

namespace mduckdb {

using nbx::FromUtf8;
using nbx::ToUtf8;

/* UTF-8 text on its way into SQL. */

/** As a string literal: single quotes around it, single quotes inside doubled. */
std::string QuoteLiteral(std::string_view text);

/** As an identifier: double quotes around it, double quotes inside doubled. */
std::string QuoteIdentifier(std::string_view text);

}  // namespace mduckdb
