#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "data/datum.h"
#include "print/output.h"

namespace mduckdb_host {

enum class Format { kTable, kCsv, kJson, kJsonl, kMarkdown, kLine };

/** The format that `--format` accepts under this name; nothing when there is none. */
std::optional<Format> FindFormat(std::string_view name);
/** The names of all formats. */
std::vector<std::string> ListFormats();
/** The error text for a name that `FindFormat` does not know. */
std::string DescribeUnknownFormat(std::string_view name);

struct PrintOptions {
    Format format = Format::kTable;
    /** Cuts a table that is larger than the terminal. Output to a file or pipe is never cut. */
    bool is_cut_to_screen = true;
    /** What a NULL looks like in table, line and csv; without it `NULL`, and an empty field in csv. */
    std::optional<std::string> null_text = {};
    /** Between the fields of csv. */
    std::string separator = ",";
    /** Whether table and csv begin with the names of the columns. */
    bool has_headers = true;
    /** Whether a table shows DuckDB's types under the names. */
    bool has_types = false;
};

/** Writes results one after the other: for each one `Begin`, its rows, `End` or `EndEarly`; or the outcome of
   a statement without rows. Text may wait in the output's buffer, and a table that is cut waits for its last
   row. */
class Printer {
  public:
    Printer() = default;
    virtual ~Printer();
    Printer(const Printer&) = delete;
    Printer& operator=(const Printer&) = delete;

    virtual void Begin(const std::vector<Column>& columns) = 0;
    /** The row has a value for each column. */
    virtual void Add(const Row& row) = 0;
    virtual void End() = 0;
    /** Instead of `End`: the result has more rows, but an interrupt or an error stopped it. */
    virtual void EndEarly() { End(); }
    /** For a statement without rows; nothing if it reports no number of changed rows either. */
    virtual void PrintRowsChanged(std::optional<int64_t> rows_changed) = 0;
};

/** The output must outlive the printer. */
std::unique_ptr<Printer> MakePrinter(Output& out, const PrintOptions& options);

std::unique_ptr<Printer> MakeTablePrinter(Output& out, const PrintOptions& options);
std::unique_ptr<Printer> MakeCsvPrinter(Output& out, const PrintOptions& options);
std::unique_ptr<Printer> MakeLinePrinter(Output& out, const PrintOptions& options);
std::unique_ptr<Printer> MakeJsonPrinter(Output& out);
std::unique_ptr<Printer> MakeJsonlPrinter(Output& out);
std::unique_ptr<Printer> MakeMarkdownPrinter(Output& out);

}  // namespace mduckdb_host
