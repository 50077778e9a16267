#include <fmt/format.h>

#include <algorithm>

#include "data/datum.h"
#include "print/printer.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

/** Each field on a line of its own, behind the name of its column; a text with line breaks on several lines.
   A blank line separates the rows. */
class LinePrinter final : public Printer {
  public:
    LinePrinter(Output& out, std::string null_text) : out_(out), null_text_(std::move(null_text)) {}

    void Begin(const std::vector<Column>& columns) override {
        names_.clear();
        width_ = 0;
        for (const Column& column : columns) {
            names_.push_back(ToPrintable(column.name));
            width_ = std::max(width_, DisplayWidth(names_.back()));
        }
        count_ = 0;
    }

    void Add(const Row& row) override {
        std::string text = is_first_ ? "" : "\n";
        is_first_ = false;
        for (std::size_t i = 0; i < row.size(); ++i) {
            AppendField(text, names_[i], row[i].get_IsNull() ? null_text_ : ToText(row[i]));
        }
        out_.Write(text);
        ++count_;
    }

    void End() override { PrintCount(""); }
    void EndEarly() override { PrintCount("stopped after "); }

    void PrintRowsChanged(std::optional<int64_t> rows_changed) override {
        out_.Write(rows_changed ? CountOf(static_cast<uint64_t>(*rows_changed), "row") + " changed\n"
                                : "OK\n");
    }

  private:
    void AppendField(std::string& out, const std::string& name, std::string_view text) const {
        out.append(static_cast<std::size_t>(width_ - DisplayWidth(name)), ' ');
        out += name;
        out += " =";
        const std::string next_line(static_cast<std::size_t>(width_) + 3, ' ');
        for (bool is_first = true; is_first || !text.empty(); is_first = false) {
            const std::size_t end = std::min(text.find('\n'), text.size());
            const std::string line = ToPrintable(text.substr(0, end));
            out += is_first ? (line.empty() ? "" : " ") : next_line;
            out += line + "\n";
            text.remove_prefix(std::min(end + 1, text.size()));
        }
    }

    void PrintCount(const char* start) {
        if (count_ == 0 || *start != '\0') {
            out_.Write(start + CountOf(count_, "row") + "\n");
        }
    }

    Output& out_;
    std::string null_text_;
    std::vector<std::string> names_;
    int width_ = 0;
    uint64_t count_ = 0;
    bool is_first_ = true;
};

}  // namespace

std::unique_ptr<Printer> MakeLinePrinter(Output& out, const PrintOptions& options) {
    return std::make_unique<LinePrinter>(out, options.null_text.value_or("NULL"));
}

}  // namespace mduckdb_host
