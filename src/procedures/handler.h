#pragma once

#include "mirona/extension_api.h"
#include "procedures/arguments.h"

namespace mduckdb {

using ProcedureBody = mirona_cursor (*)(mirona_call call, const Arguments& arguments);

/** Runs the body of a procedure. An exception is reported to the host once, and the call returns null: a
    standard exception is reported with its own text, anything else with `unexpected_text`. */
mirona_cursor RunGuarded(mirona_call call, const mirona_value* values, ProcedureBody body,
                         const char* unexpected_text) noexcept;

/** The plain function that the host calls for a procedure with a `Run` and a `kUnexpectedText`. */
template <class Procedure>
mirona_cursor HandleCall(mirona_call call, const mirona_value* values) noexcept {
    return RunGuarded(call, values, &Procedure::Run, Procedure::kUnexpectedText);
}

}  // namespace mduckdb
