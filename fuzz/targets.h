#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "input.h"

namespace fuzz {

/** One entrance that receives what others made. `run` returns whatever the input is; a wrong outcome ends the
   process, as a sanitizer does. */
struct Target {
    std::string_view name;
    void (*run)(Input& input);
};

/** Null if there is none. */
const Target* FindTarget(std::string_view name) noexcept;

/** Ends the process with the text when an outcome is not what it must be. */
void Require(bool is_right, const char* what);

// Values on their way in and out.
void JsonParameter(Input& input);
void EnvelopeParameter(Input& input);
void HostValues(Input& input);
void VariantRoundTrip(Input& input);
void ArrowRows(Input& input);
void AppendedRows(Input& input);
// Files and texts.
void ProcedureArguments(Input& input);
void ParquetFile(Input& input);
void DatabaseBlocks(Input& input);
void DatabaseHead(Input& input);
void SqlScript(Input& input);
void StatementSplitting(Input& input);
void ExportScripts(Input& input);
void CommandLineParameter(Input& input);
void BackupManifest(Input& input);

}  // namespace fuzz
