#include <fmt/format.h>

#include <cstdio>

#include "data/datum.h"
#include "print/printer.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

/** Comma-separated values as in RFC 4180, with LF line ends. Without options a NULL is an empty field. A text
    that reads like a NULL is in quotes.
    An empty line separates the results of a script. */
class CsvPrinter final : public Printer {
  public:
    CsvPrinter(Output& out, const PrintOptions& options)
        : out_(out),
          separator_(options.separator),
          null_text_(options.null_text.value_or("")),
          has_headers_(options.has_headers) {}

    void Begin(const std::vector<Column>& columns) override {
        line_.clear();
        if (!is_first_) {
            line_ += '\n';
        }
        is_first_ = false;
        if (!has_headers_) {
            out_.Write(line_);
            return;
        }
        std::string_view separator;
        for (const Column& column : columns) {
            line_ += separator;
            AppendField(column.name);
            separator = separator_;
        }
        EndLine();
    }

    void Add(const Row& row) override {
        line_.clear();
        std::string_view separator;
        for (const Datum& datum : row) {
            line_ += separator;
            if (datum.get_IsNull()) {
                line_ += null_text_;
            } else {
                text_.clear();
                AppendText(text_, datum);
                AppendField(text_);
            }
            separator = separator_;
        }
        EndLine();
    }

    void End() override {}

    // Goes to stderr, since a program reads the data.
    void PrintRowsChanged(std::optional<int64_t> rows_changed) override {
        if (rows_changed) {
            fmt::print(stderr, "{} changed\n", CountOf(static_cast<uint64_t>(*rows_changed), "row"));
        }
    }

  private:
    bool NeedsQuotes(std::string_view text) const {
        return text.empty() || text == null_text_ || text.find_first_of("\"\r\n") != std::string_view::npos ||
               text.find(separator_) != std::string_view::npos || text.front() == ' ' || text.back() == ' ';
    }

    void AppendField(std::string_view text) {
        if (!NeedsQuotes(text)) {
            line_ += text;
            return;
        }
        line_ += '"';
        for (const char c : text) {
            if (c == '"') {
                line_ += '"';
            }
            line_ += c;
        }
        line_ += '"';
    }

    void EndLine() {
        line_ += '\n';
        out_.Write(line_);
    }

    Output& out_;
    std::string separator_;
    std::string null_text_;
    bool has_headers_;
    bool is_first_ = true;
    std::string line_;
    std::string text_;
};

}  // namespace

std::unique_ptr<Printer> MakeCsvPrinter(Output& out, const PrintOptions& options) {
    return std::make_unique<CsvPrinter>(out, options);
}

}  // namespace mduckdb_host
