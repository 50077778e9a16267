#include "procedures/arguments.h"

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "engines/file_system.h"
#include "procedures/procedures.h"
#include "procedures/sql_text.h"

namespace mduckdb {
namespace {

std::string LimitDigits(long long limit) {
    if (limit < 0) {
        throw std::invalid_argument("limit must not be negative");
    }
    return std::to_string(limit);
}

void KeepName(std::vector<std::string>& identifiers, std::string_view name) {
    name = Trim(name);
    if (!name.empty()) {
        identifiers.push_back(QuoteIdentifier(name));
    }
}

/** A comma inside double quotes separates too: such a name can only be passed in an array. */
std::vector<std::string> SplitColumns(std::string_view text) {
    std::vector<std::string> identifiers;
    for (std::size_t comma; (comma = text.find(',')) != text.npos; text.remove_prefix(comma + 1)) {
        KeepName(identifiers, text.substr(0, comma));
    }
    KeepName(identifiers, text);
    return identifiers;
}

}  // namespace

Arguments::Arguments(mirona_call call, const mirona_value* values)
    : call_(call), values_(values), count_(GetApi().arg_count(call)) {}

mirona_value Arguments::At(std::uint32_t position) const noexcept {
    return position < count_ ? values_[position] : nullptr;
}

bool Arguments::IsNull(mirona_value value) const {
    return value == nullptr || GetApi().value_is_null(value);
}

bool Arguments::ReadText(mirona_value value, std::string& text) const {
    std::uint64_t length = 0;
    const char* bytes = GetApi().value_text(call_, value, &length);
    if (bytes == nullptr) {
        return false;
    }
    text.assign(bytes, length);
    return true;
}

std::string Arguments::OptionalText(std::uint32_t position) const {
    std::string text;
    if (!IsNull(At(position))) {
        ReadText(At(position), text);
    }
    return text;
}

std::string Arguments::RequiredText(std::uint32_t position, const char* procedure_name) const {
    std::string text = OptionalText(position);
    if (text.empty()) {
        throw std::invalid_argument(std::string(procedure_name) + " requires a text argument.");
    }
    return text;
}

std::string Arguments::ParquetFiles(const char* procedure_name) const {
    const std::string uri = RequiredText(0, procedure_name);
    std::string files = ResolveParents(uri);
    if (files.empty()) {
        throw std::runtime_error("IO Error: No files found that match the pattern " + ('"' + uri + '"'));
    }
    return files;
}

std::string Arguments::Limit(std::uint32_t position) const {
    const mirona_value value = At(position);
    if (IsNull(value)) {
        return {};
    }
    switch (GetApi().value_type(value)) {
        case MIRONA_TYPE_INT64:
            return LimitDigits(GetApi().value_int64(value));
        case MIRONA_TYPE_UINT64:
            return std::to_string(GetApi().value_uint64(value));
        default:
            return ParseLimit(OptionalText(position));
    }
}

std::string Arguments::ColumnList(std::uint32_t position) const {
    const mirona_value value = At(position);
    std::vector<std::string> identifiers;
    if (IsNull(value)) {
        return "*";
    }
    if (GetApi().value_type(value) == MIRONA_TYPE_ARRAY) {
        const std::uint32_t length = GetApi().array_length(value);
        std::string name;
        for (std::uint32_t i = 0; i < length; ++i) {
            const mirona_value element = GetApi().array_element(value, i);
            if (!IsNull(element) && ReadText(element, name)) {
                KeepName(identifiers, name);
            }
        }
    } else if (const std::string text = OptionalText(position); Trim(text) != "*") {
        identifiers = SplitColumns(text);
    }
    return identifiers.empty() ? "*" : JoinList(identifiers);
}

std::string ParseLimit(const std::string& text) {
    const std::string trimmed(Trim(text));
    char* end = nullptr;
    errno = 0;
    const long long limit = std::strtoll(trimmed.c_str(), &end, 10);
    if (end == trimmed.c_str()) {
        throw std::invalid_argument("invalid stoll argument");
    }
    if (errno == ERANGE) {
        throw std::out_of_range("stoll argument out of range");
    }
    if (end != trimmed.c_str() + trimmed.size()) {
        throw std::invalid_argument("limit must be an integer");
    }
    return LimitDigits(limit);
}

}  // namespace mduckdb
