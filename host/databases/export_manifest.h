#pragma once

#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "databases/export_listing.h"

namespace mduckdb_host {

/** The manifest of a backup or a snapshot. Throws `std::runtime_error` if the file is not a manifest. */
nlohmann::ordered_json ReadManifest(const std::filesystem::path& file);

/** Writes manifest.json into the folder of an export. It is written last, so that its presence marks a
   complete backup. */
void WriteExportManifest(const std::string& folder, const std::vector<ExportedTable>& tables,
                         const std::vector<int64_t>& rows);
/** Throws `std::runtime_error` when the folder has a manifest and a file differs from it. */
void CheckExportManifest(const std::string& folder);

}  // namespace mduckdb_host
