#include "procedure_call.h"

#include <utility>

namespace mduckdb_host {

ErrorTarget::~ErrorTarget() = default;

HostValue::HostValue(Cell content) : cell(std::move(content)) {
    if (const auto* list = std::get_if<List>(&cell.content)) {
        elements.reserve(list->items.size());
        for (const Cell& item : list->items) {
            elements.emplace_back(item);
        }
    }
}

ProcedureCall::ProcedureCall(const Procedure& procedure, std::vector<Cell> arguments)
    : procedure_(procedure) {
    for (Cell& argument : arguments) {
        arguments_.emplace_back(std::move(argument));
    }
}

ProcedureCall::~ProcedureCall() = default;

HostCursor* ProcedureCall::Run() {
    std::vector<mirona_value> handles;
    for (HostValue& argument : arguments_) {
        handles.push_back(&argument);
    }
    // A procedure that looks beyond its arguments finds null handles.
    handles.resize(std::size_t{procedure_.max_args} + 1);
    const mirona_cursor cursor = procedure_.handler(static_cast<ErrorTarget*>(this), handles.data());
    ReleaseValues();
    if (cursor == nullptr && error_.empty()) {
        error_ = procedure_.name + " gave neither a cursor nor an error.";
    }
    return error_.empty() ? static_cast<HostCursor*>(cursor) : nullptr;
}

void ProcedureCall::ReportError(std::string_view text) {
    if (!error_.empty()) {
        error_ += '\n';
    }
    error_ += text.empty() ? "(an error without a text)" : text;
}

HostValue* ProcedureCall::MakeValue(Cell cell) {
    if (used_values_ < values_.size()) {
        values_[used_values_] = HostValue(std::move(cell));
    } else {
        values_.emplace_back(std::move(cell));
    }
    return &values_[used_values_++];
}

HostCursor* ProcedureCall::AddCursor(std::unique_ptr<HostCursor> cursor) {
    cursors_.push_back(std::move(cursor));
    return cursors_.back().get();
}

}  // namespace mduckdb_host
