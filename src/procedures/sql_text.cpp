#include "procedures/sql_text.h"

#include <cctype>
#include <stdexcept>

#include "base/text.h"

namespace mduckdb {
namespace {

bool IsSpace(char character) noexcept {
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

}  // namespace

std::string_view Trim(std::string_view text) noexcept {
    while (!text.empty() && IsSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && IsSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::vector<std::string> SplitQualifiedName(std::string_view text) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    bool is_in_quotes = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') {
            is_in_quotes = !is_in_quotes;
        } else if (text[i] == '.' && !is_in_quotes) {
            parts.emplace_back(Trim(text.substr(start, i - start)));
            start = i + 1;
        }
    }
    if (is_in_quotes) {
        throw std::invalid_argument("Invalid DuckDB table or view name.");
    }
    parts.emplace_back(Trim(text.substr(start)));
    return parts;
}

std::string UnquotePart(std::string_view part) {
    if (part.size() < 2 || part.front() != '"' || part.back() != '"') {
        return std::string(part);
    }
    part = part.substr(1, part.size() - 2);
    std::string name;
    name.reserve(part.size());
    for (std::size_t i = 0; i < part.size(); ++i) {
        name += part[i];
        if (part[i] == '"' && i + 1 < part.size() && part[i + 1] == '"') {
            ++i;
        }
    }
    return name;
}

std::string JoinList(const std::vector<std::string>& items) {
    std::string list;
    for (const std::string& item : items) {
        if (!list.empty()) {
            list += ", ";
        }
        list += item;
    }
    return list;
}

std::string ReadParquetCall(std::string_view uri) {
    return "read_parquet(" + QuoteLiteral(uri) + ")";
}

std::string WhereClause(std::string_view condition) {
    const std::string_view trimmed = Trim(condition);
    return trimmed.empty() ? std::string() : " WHERE " + std::string(trimmed);
}

}  // namespace mduckdb
