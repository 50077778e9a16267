#include <utility>

#include "host_values.h"
#include "procedure_call.h"

namespace mduckdb_host {

namespace {

/** DuckDB's code of single-precision numbers, which arrive widened. */
constexpr uint32_t kFloat = 10;

class CallbackCursor final : public HostCursor {
  public:
    CallbackCursor(ProcedureCall& call, const mirona_cursor_def& def) : call_(call), def_(def) {
        columns_.reserve(def.column_count);
        for (uint32_t i = 0; i < def.column_count; ++i) {
            const mirona_column& column = def.columns[i];
            columns_.push_back(
                {std::string(column.name, column.name_length), column.duckdb_type, column.host_type});
        }
    }
    ~CallbackCursor() override { def_.close(def_.state); }
    CallbackCursor(const CallbackCursor&) = delete;
    CallbackCursor& operator=(const CallbackCursor&) = delete;

    const std::vector<Column>& get_Columns() const override { return columns_; }
    uint64_t get_RowCount() const override { return def_.row_count(def_.state); }
    bool NextRow(Row& row) override { return def_.next_row(def_.state) == MIRONA_ROW_OK && ReadRow(row); }
    bool GoToRow(int64_t number, Row& row) override {
        return def_.go_to_row(def_.state, number) == MIRONA_ROW_OK && ReadRow(row);
    }

  private:
    bool ReadRow(Row& row) {
        row.resize(columns_.size());
        for (std::size_t i = 0; i < row.size(); ++i) {
            const mirona_value value =
                def_.get_value(static_cast<ErrorTarget*>(&call_), def_.state, static_cast<int32_t>(i));
            row[i] = value == nullptr ? Cell{} : std::move(static_cast<HostValue*>(value)->cell);
            if (auto* number = std::get_if<double>(&row[i].content);
                number != nullptr && columns_[i].duckdb_type == kFloat) {
                *number = WidenByDigits(static_cast<float>(*number));
            }
        }
        call_.ReleaseValues();
        return true;
    }

    ProcedureCall& call_;
    mirona_cursor_def def_;
    std::vector<Column> columns_;
};

class TableCursor final : public HostCursor {
  public:
    TableCursor(std::vector<Column> columns, std::vector<Row> rows)
        : columns_(std::move(columns)), rows_(std::move(rows)) {}

    const std::vector<Column>& get_Columns() const override { return columns_; }
    uint64_t get_RowCount() const override { return rows_.size(); }
    bool NextRow(Row& row) override { return GoToRow(position_ + 1, row); }
    bool GoToRow(int64_t number, Row& row) override {
        if (number < 0 || static_cast<uint64_t>(number) >= rows_.size()) {
            return false;
        }
        position_ = number;
        row = rows_[static_cast<std::size_t>(number)];
        return true;
    }

  private:
    std::vector<Column> columns_;
    std::vector<Row> rows_;
    int64_t position_ = -1;
};

}  // namespace

HostCursor::~HostCursor() = default;

std::unique_ptr<HostCursor> MakeCallbackCursor(ProcedureCall& call, const mirona_cursor_def& def) {
    return std::make_unique<CallbackCursor>(call, def);
}

std::unique_ptr<HostCursor> MakeTableCursor(std::vector<Column> columns, std::vector<Row> rows) {
    return std::make_unique<TableCursor>(std::move(columns), std::move(rows));
}

}  // namespace mduckdb_host
