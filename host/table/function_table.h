#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mirona/extension_api.h"
#include "table/procedure_call.h"

namespace mduckdb_host {

/** The host as the module sees it during initialisation: it accepts the registrations. */
class ProcedureRegistry final : public ErrorTarget {
  public:
    const std::vector<Procedure>& get_Procedures() const noexcept { return procedures_; }
    /** Null when there is none. Names are case-sensitive, like quoted SQL identifiers. */
    const Procedure* Find(std::string_view name) const noexcept;
    void Register(const mirona_procedure_def& def);

    void ReportError(std::string_view text) override;
    const std::vector<std::string>& get_Errors() const noexcept { return errors_; }

  private:
    std::vector<Procedure> procedures_;
    std::vector<std::string> errors_;
};

/** The function table that this program offers to modules; lives as long as the process. The host
    handle of `mirona_extension_init` must be an `ErrorTarget` pointer to a `ProcedureRegistry`. */
const mirona_extension_api& GetFunctionTable() noexcept;

}  // namespace mduckdb_host
