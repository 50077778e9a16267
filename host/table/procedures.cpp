#include "table/procedures.h"

#include <fmt/format.h>

#include "table/procedure_call.h"
#include "text/messages.h"

namespace mduckdb_host {

namespace {

std::string DescribeProcedures(const ProcedureRegistry& registry) {
    std::string text;
    for (const Procedure& procedure : registry.get_Procedures()) {
        text += fmt::format("\n  {}({})  {}", procedure.name, procedure.signature, procedure.description);
    }
    return text.empty() ? "\n  (none)" : text;
}

HostCursor& RunOrThrow(ProcedureCall& call) {
    HostCursor* const cursor = call.Run();
    if (cursor == nullptr) {
        throw xProcedureError(call.get_Error());
    }
    return *cursor;
}

}  // namespace

const Procedure& FindProcedure(const ProcedureRegistry& registry, std::string_view name,
                               std::size_t argument_count) {
    const Procedure* const procedure = registry.Find(name);
    if (procedure == nullptr) {
        throw xUsageError(
            fmt::format("Unknown procedure '{}'. The module has:{}", name, DescribeProcedures(registry)));
    }
    if (argument_count < procedure->min_args || argument_count > procedure->max_args) {
        throw xUsageError(fmt::format("{} accepts {} to {} arguments, not {}: {}({})", name,
                                      procedure->min_args, procedure->max_args, argument_count, name,
                                      procedure->signature));
    }
    return *procedure;
}

void PrintProcedure(const ProcedureRegistry& registry, std::string_view name, std::vector<Datum> arguments,
                    Printer& printer, const std::function<bool()>& is_stopped) {
    const Procedure& procedure = FindProcedure(registry, name, arguments.size());
    ProcedureCall call(procedure, std::move(arguments));
    HostCursor& cursor = RunOrThrow(call);
    const std::size_t errors_before = registry.get_Errors().size();
    bool is_over = is_stopped && is_stopped();
    printer.Begin(cursor.get_Columns());
    Row row;
    while (!is_over && cursor.NextRow(row)) {
        printer.Add(row);
        is_over = is_stopped && is_stopped();
    }
    // A callback of a cursor reports to the host, not to the call.
    const bool has_failed = registry.get_Errors().size() > errors_before;
    if (is_over || has_failed) {
        printer.EndEarly();
    } else {
        printer.End();
    }
    if (has_failed) {
        throw xProcedureError(registry.get_Errors().back());
    }
}

int64_t CallForNumber(const ProcedureRegistry& registry, std::string_view name,
                      std::vector<Datum> arguments) {
    const Procedure& procedure = FindProcedure(registry, name, arguments.size());
    ProcedureCall call(procedure, std::move(arguments));
    HostCursor& cursor = RunOrThrow(call);
    Row row;
    const int64_t* number = nullptr;
    if (cursor.NextRow(row) && row.size() == 1) {
        number = std::get_if<int64_t>(&row[0].content);
    }
    if (number == nullptr) {
        throw xProcedureError(fmt::format("{} returned no number.", name));
    }
    return *number;
}

}  // namespace mduckdb_host
