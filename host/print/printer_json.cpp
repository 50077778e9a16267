#include <fmt/format.h>

#include <set>

#include "data/datum.h"
#include "print/printer.h"

namespace mduckdb_host {

namespace {

void PrintRowsChangedAsJson(Output& out, std::optional<int64_t> rows_changed) {
    out.Write(rows_changed ? fmt::format("{{\"rows_changed\":{}}}\n", *rows_changed)
                           : std::string("{\"rows_changed\":null}\n"));
}

/** One object per result: its columns, its rows as arrays, their number, and whether some are missing. */
class JsonPrinter final : public Printer {
  public:
    explicit JsonPrinter(Output& out) : out_(out) {}

    void Begin(const std::vector<Column>& columns) override {
        std::string text = "{\"columns\":[";
        const char* separator = "";
        for (const Column& column : columns) {
            text += separator;
            text += "{\"name\":";
            AppendJsonString(text, column.name);
            text += fmt::format(",\"duckdb_type\":{},\"host_type\":{},\"host_type_name\":\"{}\"}}",
                                column.duckdb_type, column.host_type, get_HostTypeName(column.host_type));
            separator = ",";
        }
        text += "],\"rows\":[";
        out_.Write(text);
        count_ = 0;
    }

    void Add(const Row& row) override {
        line_ = count_ == 0 ? "\n[" : ",\n[";
        const char* separator = "";
        for (const Datum& datum : row) {
            line_ += separator;
            AppendJson(line_, datum);
            separator = ",";
        }
        line_ += ']';
        out_.Write(line_);
        ++count_;
    }

    void End() override { out_.Write(fmt::format("],\"row_count\":{}}}\n", count_)); }
    void EndEarly() override {
        out_.Write(fmt::format("],\"row_count\":{},\"is_complete\":false}}\n", count_));
    }

    void PrintRowsChanged(std::optional<int64_t> rows_changed) override {
        PrintRowsChangedAsJson(out_, rows_changed);
    }

  private:
    Output& out_;
    uint64_t count_ = 0;
    std::string line_;
};

/** One object per row, one row per line. The members of an object need different names, so repeated column
    names get a number: name, name_2. */
class JsonlPrinter final : public Printer {
  public:
    explicit JsonlPrinter(Output& out) : out_(out) {}

    void Begin(const std::vector<Column>& columns) override {
        keys_.clear();
        std::set<std::string> names;
        for (const Column& column : columns) {
            std::string name = column.name;
            for (int number = 2; !names.insert(name).second; ++number) {
                name = fmt::format("{}_{}", column.name, number);
            }
            std::string key = keys_.empty() ? "{" : ",";
            AppendJsonString(key, name);
            key += ':';
            keys_.push_back(std::move(key));
        }
    }

    void Add(const Row& row) override {
        line_.clear();
        for (std::size_t i = 0; i < row.size(); ++i) {
            line_ += keys_[i];
            AppendJson(line_, row[i]);
        }
        line_ += row.empty() ? "{}\n" : "}\n";
        out_.Write(line_);
    }

    void End() override {}

    void PrintRowsChanged(std::optional<int64_t> rows_changed) override {
        PrintRowsChangedAsJson(out_, rows_changed);
    }

  private:
    Output& out_;
    std::vector<std::string> keys_;
    std::string line_;
};

}  // namespace

std::unique_ptr<Printer> MakeJsonPrinter(Output& out) {
    return std::make_unique<JsonPrinter>(out);
}
std::unique_ptr<Printer> MakeJsonlPrinter(Output& out) {
    return std::make_unique<JsonlPrinter>(out);
}

}  // namespace mduckdb_host
