#include <array>
#include <string>

#include "procedures/handler.h"
#include "procedures/handlers.h"
#include "procedures/procedures.h"

namespace mduckdb {
namespace {

const mirona_extension_api* gApi = nullptr;
mirona_host gHost = nullptr;

template <class Procedure>
constexpr mirona_procedure_def Define(std::uint32_t min_args, std::uint32_t max_args, const char* signature,
                                      const char* description) {
    return {Procedure::kName, min_args, max_args, signature,
            description,      nullptr,  nullptr,  &HandleCall<Procedure>};
}

// In the order in which the host gets them.
constexpr std::array<mirona_procedure_def, 5> kProcedures{
    Define<FetchParquet>(1, 4, "uri [, columns [, where [, limit]]]", "Reads a parquet file."),
    Define<ParquetSchema>(1, 1, "uri", "Returns parquet column schema."),
    Define<ParquetMetadata>(1, 1, "uri", "Returns parquet file metadata."),
    Define<ParquetCount>(1, 2, "uri [, where]", "Returns parquet row count."),
    Define<FetchDuckDB>(2, 3, "uri, table_or_view [, limit]", "Returns rows from a DuckDB table or view."),
};

void Register(mirona_host host, const mirona_procedure_def& procedure) {
    const mirona_procedure_def record = procedure;
    if (GetApi().register_procedure(host, &record) == 0) {
        return;
    }
    const std::string text = "Cannot register " + std::string(procedure.name) + " procedure.";
    GetApi().report_error(host, text.data(), text.size());
}

}  // namespace

void BindApi(const mirona_extension_api* api) noexcept {
    gApi = api;
}

const mirona_extension_api& GetApi() noexcept {
    return *gApi;
}

mirona_host GetHost() noexcept {
    return gHost;
}

void RegisterProcedures(mirona_host host) {
    gHost = host;
    for (const mirona_procedure_def& procedure : kProcedures) {
        Register(host, procedure);
    }
}

}  // namespace mduckdb
