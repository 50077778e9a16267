#pragma once

#include <string>
#include <string_view>

#include "nbx/string.h"

namespace mduckdb {

/** Host text as UTF-8. */
inline std::string ToUtf8(const nbx::String& text) {
    return nbx::StFromUTF16(text, nbx::GetConverter_UTF8()).Take();
}

/** UTF-8 as host text. */
inline nbx::String FromUtf8(std::string_view text) {
    return nbx::String(nbx::GetConverter_UTF8()->ToUTF16(text));
}

/* UTF-8 text on its way into SQL. */

/** As a string literal: single quotes around it, single quotes inside doubled. */
std::string QuoteLiteral(std::string_view text);

/** As an identifier: double quotes around it, double quotes inside doubled. */
std::string QuoteIdentifier(std::string_view text);

}  // namespace mduckdb
