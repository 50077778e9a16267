#include "targets.h"

#include <cstdio>
#include <cstdlib>

namespace fuzz {

namespace {

/** Each has a folder of its name in corpus/. */
constexpr Target kTargets[] = {
    {"json_parameter", JsonParameter},
    {"envelope_parameter", EnvelopeParameter},
    {"host_values", HostValues},
    {"variant_round_trip", VariantRoundTrip},
    {"arrow_rows", ArrowRows},
    {"appended_rows", AppendedRows},
    {"procedure_arguments", ProcedureArguments},
    {"parquet_file", ParquetFile},
    {"database_blocks", DatabaseBlocks},
    {"database_head", DatabaseHead},
    {"sql_script", SqlScript},
    {"statement_splitting", StatementSplitting},
    {"export_scripts", ExportScripts},
    {"command_line_parameter", CommandLineParameter},
    {"backup_manifest", BackupManifest},
};

}  // namespace

const Target* FindTarget(std::string_view name) noexcept {
    for (const Target& target : kTargets) {
        if (target.name == name) {
            return &target;
        }
    }
    return nullptr;
}

void Require(bool is_right, const char* what) {
    if (!is_right) {
        std::fprintf(stderr, "fuzz: wrong outcome: %s\n", what);
        std::abort();
    }
}

}  // namespace fuzz
