#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <deque>

#include "data/datum.h"
#include "print/printer.h"
#include "print/table_layout.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

/** Rows that are kept to find the column widths; further ones are printed as they come. */
constexpr std::size_t kMeasuredRows = 10000;
/** Lines of the screen that hold no rows: borders, names, the last line, the next prompt. */
constexpr int kOtherLines = 8;
constexpr int kFewestRows = 6;
constexpr const char* kMark = "…";

struct Line {
    std::string text;
    int width = 0;
};

struct Field {
    Line first;
    /** Of a text with line breaks. */
    std::vector<Line> further;
    /** Of the widest line. */
    int width = 0;
    /** For a NULL or a type, which terminals show dim. */
    bool is_dim = false;
};
using Fields = std::vector<Field>;

struct Rule {
    const char* left;
    const char* middle;
    const char* right;
};
constexpr Rule kTopRule = {"┌", "┬", "┐\n"};
constexpr Rule kMiddleRule = {"├", "┼", "┤\n"};
constexpr Rule kBottomRule = {"└", "┴", "┘\n"};

/** A table with borders; numbers are right-aligned, everything else is left-aligned. */
class TablePrinter final : public Printer {
  public:
    TablePrinter(Output& out, const PrintOptions& options)
        : out_(out),
          is_cut_(options.is_cut_to_screen && out.get_IsTerminal()),
          has_headers_(options.has_headers),
          has_types_(options.has_types),
          null_text_(options.null_text.value_or("NULL")),
          has_colours_(out.get_IsTerminal() && UnderstandsEscapes() && std::getenv("NO_COLOR") == nullptr) {}

    void Begin(const std::vector<Column>& columns) override {
        columns_ = columns;
        natural_widths_.clear();
        MakeHead();
        const int rows = std::max(kFewestRows, out_.get_Lines() - kOtherLines - (types_.empty() ? 0 : 1));
        first_rows_limit_ = is_cut_ ? static_cast<std::size_t>(rows - rows / 2) : kMeasuredRows;
        last_rows_limit_ = is_cut_ ? static_cast<std::size_t>(rows / 2) : 0;
        first_rows_.clear();
        last_rows_.clear();
        last_unformatted_rows_.clear();
        count_ = 0;
        is_started_ = false;
        is_misaligned_ = false;
    }

    void Add(const Row& row) override {
        ++count_;
        if (is_started_) {
            PrintRow(MakeFields(row));
        } else if (first_rows_.size() < first_rows_limit_) {
            first_rows_.push_back(MakeFields(row));
        } else if (is_cut_) {
            KeepLast(row);
        } else {
            Start();
            PrintRow(MakeFields(row));
        }
    }

    void End() override { Finish(false); }
    void EndEarly() override { Finish(true); }

    void PrintRowsChanged(std::optional<int64_t> rows_changed) override {
        out_.Write(rows_changed ? CountOf(static_cast<uint64_t>(*rows_changed), "row") + " changed\n"
                                : "OK\n");
    }

  private:
    void MakeHead() {
        names_.clear();
        types_.clear();
        bool has_any = false;
        for (const Column& column : columns_) {
            names_.push_back(MakeField(column.name));
            types_.push_back(MakeField(column.type_name));
            types_.back().is_dim = true;
            has_any = has_any || !column.type_name.empty();
        }
        if (!has_types_ || !has_any) {
            types_.clear();
        }
        if (has_headers_) {
            Measure(names_);
            Measure(types_);
        }
    }

    void Finish(bool is_early) {
        for (const Row& row : last_unformatted_rows_) {
            last_rows_.push_back(MakeFields(row));
        }
        if (!is_started_) {
            Start();
        }
        const uint64_t left_out = is_cut_ ? count_ - first_rows_.size() - last_rows_.size() : 0;
        if (left_out > 0) {
            PrintRow(Fields(columns_.size(), MakeField(kMark)));
        }
        for (const Fields& fields : last_rows_) {
            PrintRow(fields);
        }
        PrintRule(kBottomRule);
        PrintCount(left_out, is_early);
    }

    static Line MakeLine(std::string_view text) {
        std::string printable = ToPrintable(text);
        const int width = DisplayWidth(printable);
        return {std::move(printable), width};
    }

    static Field MakeField(std::string_view text) {
        const std::size_t end = text.find('\n');
        Field field{MakeLine(text.substr(0, end)), {}, 0, false};
        field.width = field.first.width;
        for (std::size_t start = end; start != std::string_view::npos;) {
            text.remove_prefix(start + 1);
            start = text.find('\n');
            // A break at the end of the text does not begin another line.
            if (!text.empty()) {
                field.further.push_back(MakeLine(text.substr(0, start)));
                field.width = std::max(field.width, field.further.back().width);
            }
        }
        return field;
    }

    Fields MakeFields(const Row& row) const {
        Fields fields;
        fields.reserve(row.size());
        for (const Datum& datum : row) {
            fields.push_back(MakeField(datum.get_IsNull() ? null_text_ : ToText(datum)));
            fields.back().is_dim = datum.get_IsNull();
        }
        return fields;
    }

    /** Keeps the row in case it is one of the last. Most rows of a long result are not and stay hidden, so
       they are formatted in `End` only. The oldest row is overwritten, which reuses its memory. */
    void KeepLast(const Row& row) {
        if (last_unformatted_rows_.size() < last_rows_limit_) {
            last_unformatted_rows_.push_back(row);
            return;
        }
        Row oldest = std::move(last_unformatted_rows_.front());
        last_unformatted_rows_.pop_front();
        oldest = row;
        last_unformatted_rows_.push_back(std::move(oldest));
    }

    void Measure(const Fields& fields) {
        natural_widths_.resize(columns_.size());
        for (std::size_t i = 0; i < fields.size(); ++i) {
            natural_widths_[i] = std::max(natural_widths_[i], fields[i].width);
        }
    }

    /** Fixes the widths and prints the rows that were kept from the start. */
    void Start() {
        is_started_ = true;
        for (const Fields& fields : first_rows_) {
            Measure(fields);
        }
        for (const Fields& fields : last_rows_) {
            Measure(fields);
        }
        layout_ = MakeTableLayout(natural_widths_, is_cut_ ? out_.get_Columns() : 0);
        PrintRule(kTopRule);
        if (has_headers_) {
            PrintRow(names_);
            if (!types_.empty()) {
                PrintRow(types_);
            }
            PrintRule(kMiddleRule);
        }
        for (const Fields& fields : first_rows_) {
            PrintRow(fields);
        }
    }

    void PrintRule(const Rule& rule) {
        std::string line;
        const auto add = [&](int width) {
            line += line.empty() ? rule.left : rule.middle;
            for (int i = 0; i < width + 2; ++i) {
                line += "─";
            }
        };
        ForEachColumn([&](std::size_t i) { add(layout_.widths[i]); }, [&] { add(1); });
        out_.Write(line.empty() ? std::string(rule.left) : line);
        out_.Write(rule.right);
    }

    void PrintRow(const Fields& fields) {
        std::size_t lines = 1;
        ForEachColumn([&](std::size_t i) { lines = std::max(lines, 1 + fields[i].further.size()); }, [] {});
        for (std::size_t number = 0; number < lines; ++number) {
            std::string line;
            ForEachColumn([&](std::size_t i) { AppendLine(line, fields[i], number, i); },
                          [&] { line += fmt::format("│ {} ", kMark); });
            out_.Write(line + "│\n");
        }
    }

    template <class OnColumn, class OnMark>
    void ForEachColumn(OnColumn on_column, OnMark on_mark) const {
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            if (layout_.left_out > 0 && i == layout_.first_left_out) {
                on_mark();
                i += layout_.left_out;
            }
            if (i < columns_.size()) {
                on_column(i);
            }
        }
    }

    void AppendLine(std::string& line, const Field& field, std::size_t number, std::size_t column) {
        static const Line kBlank;
        const bool is_blank = number > field.further.size();
        const Line& shown = number == 0 ? field.first : is_blank ? kBlank : field.further[number - 1];
        std::string_view text = shown.text;
        int width = shown.width;
        const int room = layout_.widths[column];
        is_misaligned_ = is_misaligned_ || (!is_cut_ && width > room);
        const bool is_cut = is_cut_ && width > room;
        if (is_cut) {
            text = CutToWidth(text, room - 1);
            width = DisplayWidth(text) + 1;
        }
        const std::string blanks(static_cast<std::size_t>(std::max(0, room - width)), ' ');
        const bool is_right = IsNumeric(columns_[column]);
        line += "│ ";
        line += is_right ? blanks : "";
        line += field.is_dim && has_colours_ ? fmt::format("\x1b[2m{}\x1b[22m", text) : std::string(text);
        line += is_cut ? kMark : "";
        line += is_right ? "" : blanks;
        line += ' ';
    }

    void PrintCount(uint64_t rows_left_out, bool is_early) {
        std::string line = (is_early ? "stopped after " : "") + CountOf(count_, "row");
        if (rows_left_out > 0 || layout_.left_out > 0) {
            line += ", ";
            line += rows_left_out > 0 ? CountOf(rows_left_out, "row") : "";
            line += rows_left_out > 0 && layout_.left_out > 0 ? " and " : "";
            line += layout_.left_out > 0 ? CountOf(layout_.left_out, "column") : "";
            line += " hidden (--all or .all on)";
        }
        if (is_misaligned_) {
            line += fmt::format(", columns sized for the first {}", CountOf(kMeasuredRows, "row"));
        }
        out_.Write(line + "\n");
    }

    Output& out_;
    bool is_cut_;
    bool has_headers_;
    bool has_types_;
    std::string null_text_;
    bool has_colours_;
    std::vector<Column> columns_;
    Fields names_;
    /** Empty if they are not shown. */
    Fields types_;
    std::vector<int> natural_widths_;
    TableLayout layout_;
    std::size_t first_rows_limit_ = 0;
    std::size_t last_rows_limit_ = 0;
    std::vector<Fields> first_rows_;
    std::vector<Fields> last_rows_;
    std::deque<Row> last_unformatted_rows_;
    uint64_t count_ = 0;
    bool is_started_ = false;
    /** Whether a value was wider than its column, which only the first rows determine. */
    bool is_misaligned_ = false;
};

}  // namespace

std::unique_ptr<Printer> MakeTablePrinter(Output& out, const PrintOptions& options) {
    return std::make_unique<TablePrinter>(out, options);
}

}  // namespace mduckdb_host
