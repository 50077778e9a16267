#include "shell/import.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "nbx/sql_text.h"
#include "text/sql_text.h"

namespace mduckdb_host {

namespace {

const char* FindKind(std::string file) {
    std::transform(file.begin(), file.end(), file.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const char* packed : {".gz", ".zst"}) {
        if (file.ends_with(packed)) {
            file.erase(file.rfind('.'));
        }
    }
    const bool is_json = file.ends_with(".json") || file.ends_with(".jsonl") || file.ends_with(".ndjson");
    return file.ends_with(".parquet") ? "parquet" : is_json ? "json" : "csv";
}

}  // namespace

std::string QuoteTableName(const std::string& name) {
    const std::size_t dot = name.find('.');
    return dot == std::string::npos
               ? QuoteName(name)
               : QuoteName(name.substr(0, dot)) + "." + QuoteTableName(name.substr(dot + 1));
}

std::string MakeImportStatement(const std::string& file, const std::string& table, bool exists) {
    const char* const kind = FindKind(file);
    const std::string name = QuoteTableName(table);
    const std::string literal = nbx::QuoteLiteral(file);
    return exists ? fmt::format("COPY {} FROM {} (FORMAT {})", name, literal, kind)
                  : fmt::format("CREATE TABLE {} AS FROM read_{}({})", name, kind, literal);
}

}  // namespace mduckdb_host
