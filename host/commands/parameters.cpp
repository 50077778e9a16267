#include "commands/parameters.h"

#include <fmt/format.h>

#include <fstream>
#include <iostream>

#include "data/host_values.h"
#include "data/literals.h"
#include "text/messages.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

std::vector<ParameterRow> ReadParameterRows(std::istream& in) {
    std::vector<ParameterRow> rows;
    std::string text;
    for (uint64_t number = 1; std::getline(in, text); ++number) {
        if (text.find_first_not_of(" \t\r") == std::string::npos) {
            continue;
        }
        Datum datum;
        try {
            datum = ParseJson(text);
        } catch (const xNestingError& error) {
            throw xUsageError(fmt::format("Line {} of the parameters: {}.", number, error.what()));
        } catch (const std::invalid_argument&) {
            datum = Datum{};
        }
        const auto* const list = std::get_if<List>(&datum.content);
        if (list == nullptr) {
            throw xUsageError(fmt::format("Line {} of the parameters is not a JSON array.", number));
        }
        rows.push_back({number, ToParameters(list->items)});
    }
    return rows;
}

}  // namespace

Datum ParseParameter(const std::string& text) {
    try {
        return ParseJson(text);
    } catch (const xNestingError& error) {
        throw xUsageError(fmt::format("--param: {}.", error.what()));
    } catch (const std::invalid_argument& error) {
        throw xUsageError(
            fmt::format("{}\nWrite a text with double quotes: --param '\"text\"'", error.what()));
    }
}

std::vector<ParameterRow> ReadParameterFile(const std::string& name) {
    if (name == "-") {
        return ReadParameterRows(std::cin);
    }
    std::ifstream file(name);
    if (!file) {
        throw xUsageError(fmt::format("Cannot read the parameter file '{}'.", name));
    }
    return ReadParameterRows(file);
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> RunForEachRow(
    const DatabasePtr& database, const nbx::String& sql, uint32_t cursor_location,
    const std::vector<ParameterRow>& rows, const std::function<bool()>& is_stopped, RowProgress& progress) {
    nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> result;
    const auto statement = database->CreateStatement(sql);
    statement->PrepareNext();
    for (const ParameterRow& row : rows) {
        if (is_stopped()) {
            return nullptr;
        }
        progress.line = row.line;
        statement->put_Parameters(row.values);
        if (progress.rows_done + 1 < rows.size()) {
            statement->Execute();
        } else {
            result = statement->ExecuteToQueryResult(cursor_location);
        }
        ++progress.rows_done;
    }
    fmt::print(stderr, "{} run.{}\n", CountOf(rows.size(), "parameter row"),
               rows.empty() ? "" : " This is the result of the last one:");
    return result;
}

std::string DescribeProgress(const RowProgress& progress) {
    const uint64_t done = progress.rows_done;
    return fmt::format("Line {} of the parameters did not run. {}", progress.line,
                       done == 0 ? "Nothing was stored."
                       : done == 1
                           ? "The row before it ran and is stored."
                           : fmt::format("The {} before it ran and are stored.", CountOf(done, "row")));
}

}  // namespace mduckdb_host
