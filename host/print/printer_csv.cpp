#include <fmt/format.h>

#include <cstdio>

#include "data/datum.h"
#include "print/printer.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

bool NeedsQuotes(std::string_view text) {
    return text.empty() || text.find_first_of(",\"\r\n") != std::string_view::npos || text.front() == ' ' ||
           text.back() == ' ';
}

void AppendField(std::string& out, std::string_view text) {
    if (!NeedsQuotes(text)) {
        out += text;
        return;
    }
    out += '"';
    for (const char c : text) {
        if (c == '"') {
            out += '"';
        }
        out += c;
    }
    out += '"';
}

/** Comma-separated values as in RFC 4180, with LF line ends. A NULL is an empty field, an empty text is `""`.
    An empty line separates the results of a script. */
class CsvPrinter final : public Printer {
  public:
    explicit CsvPrinter(Output& out) : out_(out) {}

    void Begin(const std::vector<Column>& columns) override {
        line_.clear();
        if (!is_first_) {
            line_ += '\n';
        }
        is_first_ = false;
        const char* separator = "";
        for (const Column& column : columns) {
            line_ += separator;
            AppendField(line_, column.name);
            separator = ",";
        }
        EndLine();
    }

    void Add(const Row& row) override {
        line_.clear();
        const char* separator = "";
        for (const Datum& datum : row) {
            line_ += separator;
            if (!datum.get_IsNull()) {
                text_.clear();
                AppendText(text_, datum);
                AppendField(line_, text_);
            }
            separator = ",";
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
    void EndLine() {
        line_ += '\n';
        out_.Write(line_);
    }

    Output& out_;
    bool is_first_ = true;
    std::string line_;
    std::string text_;
};

}  // namespace

std::unique_ptr<Printer> MakeCsvPrinter(Output& out) {
    return std::make_unique<CsvPrinter>(out);
}

}  // namespace mduckdb_host
