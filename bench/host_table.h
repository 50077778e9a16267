#pragma once

#include <string>
#include <vector>

#include "mirona/extension_api.h"
#include "nbx/value.h"

namespace bench {

/** The simplest function table of a host: values are `nbx::I_Value` with one reference. */
const mirona_extension_api& GetHostTable();

/** A handler that was registered with the table, or null. */
mirona_procedure_handler FindProcedure(const std::string& name);

/** Calls a procedure with text arguments; terminates the program when it reports an error. The cursor's
    record is copied to `def`; the caller calls its `close`. */
void CallProcedure(mirona_procedure_handler handler, const std::vector<std::string>& arguments,
                   mirona_cursor_def& def);

}  // namespace bench
