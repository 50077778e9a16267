#include "table/procedure_call.h"

#include <algorithm>
#include <utility>

#include "data/host_values.h"

namespace mduckdb_host {

namespace {

/** DuckDB's type code of FLOAT, whose values arrive as doubles. */
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
            row[i] = value == nullptr ? Datum{} : std::move(static_cast<HostValue*>(value)->datum);
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

ErrorTarget::~ErrorTarget() = default;

HostValue::HostValue(Datum content) : datum(std::move(content)) {
    if (const auto* list = std::get_if<List>(&datum.content)) {
        elements.reserve(list->items.size());
        for (const Datum& item : list->items) {
            elements.emplace_back(item);
        }
    }
}

ProcedureCall::ProcedureCall(const Procedure& procedure, std::vector<Datum> arguments)
    : procedure_(procedure) {
    for (Datum& argument : arguments) {
        arguments_.emplace_back(std::move(argument));
    }
}

ProcedureCall::~ProcedureCall() = default;

HostCursor* ProcedureCall::Run() {
    std::vector<mirona_value> handles;
    handles.reserve(std::max(arguments_.size(), std::size_t{procedure_.max_args} + 1));
    for (HostValue& argument : arguments_) {
        handles.push_back(&argument);
    }
    // A procedure that reads beyond its arguments finds null handles.
    handles.resize(std::size_t{procedure_.max_args} + 1);
    const mirona_cursor cursor = procedure_.handler(static_cast<ErrorTarget*>(this), handles.data());
    ReleaseValues();
    if (cursor == nullptr && error_.empty()) {
        error_ = procedure_.name + " returned neither a cursor nor an error.";
    }
    return error_.empty() ? static_cast<HostCursor*>(cursor) : nullptr;
}

void ProcedureCall::ReportError(std::string_view text) {
    if (!error_.empty()) {
        error_ += '\n';
    }
    error_ += text.empty() ? "(an error without a text)" : text;
}

HostValue* ProcedureCall::MakeValue(Datum datum) {
    if (used_values_ < values_.size()) {
        values_[used_values_] = HostValue(std::move(datum));
    } else {
        values_.emplace_back(std::move(datum));
    }
    return &values_[used_values_++];
}

HostCursor* ProcedureCall::AddCursor(std::unique_ptr<HostCursor> cursor) {
    cursors_.push_back(std::move(cursor));
    return cursors_.back().get();
}

HostCursor::~HostCursor() = default;

std::unique_ptr<HostCursor> MakeCallbackCursor(ProcedureCall& call, const mirona_cursor_def& def) {
    return std::make_unique<CallbackCursor>(call, def);
}

std::unique_ptr<HostCursor> MakeTableCursor(std::vector<Column> columns, std::vector<Row> rows) {
    return std::make_unique<TableCursor>(std::move(columns), std::move(rows));
}

}  // namespace mduckdb_host
