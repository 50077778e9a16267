#include <fmt/format.h>

#include "data/datum.h"
#include "print/printer.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

/** The text with what Markdown would interpret escaped. */
std::string EscapeForMarkdown(const std::string& text) {
    std::string out;
    for (const char c : ToPrintable(text)) {
        if (c == '|' || c == '\\' || c == '<' || c == '`' || c == '*' || c == '_') {
            out += '\\';
        }
        out += c;
    }
    return out;
}

class MarkdownPrinter final : public Printer {
  public:
    explicit MarkdownPrinter(Output& out) : out_(out) {}

    void Begin(const std::vector<Column>& columns) override {
        std::string names = is_first_ ? "|" : "\n|";
        std::string rules = "|";
        for (const Column& column : columns) {
            names += fmt::format(" {} |", EscapeForMarkdown(column.name));
            rules += IsNumeric(column) ? " ---: |" : " --- |";
        }
        is_first_ = false;
        out_.Write(names + "\n" + rules + "\n");
    }

    void Add(const Row& row) override {
        std::string line = "|";
        for (const Datum& datum : row) {
            line += fmt::format(" {} |", datum.get_IsNull() ? "*NULL*" : EscapeForMarkdown(ToText(datum)));
        }
        out_.Write(line + "\n");
    }

    void End() override {}

    void PrintRowsChanged(std::optional<int64_t> rows_changed) override {
        if (rows_changed) {
            out_.Write(fmt::format("{}{} changed\n", is_first_ ? "" : "\n",
                                   CountOf(static_cast<uint64_t>(*rows_changed), "row")));
            is_first_ = false;
        }
    }

  private:
    Output& out_;
    bool is_first_ = true;
};

}  // namespace

std::unique_ptr<Printer> MakeMarkdownPrinter(Output& out) {
    return std::make_unique<MarkdownPrinter>(out);
}

}  // namespace mduckdb_host
