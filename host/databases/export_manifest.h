#pragma once

#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "databases/export_listing.h"

namespace mduckdb_host {

/** The manifest of a backup or a snapshot. Throws `std::runtime_error` for a file that is none. */
nlohmann::ordered_json ReadManifest(const std::filesystem::path& file);

/** Writes manifest.json into the folder of an export. Written last, it tells a complete backup from one that
   was interrupted. */
void WriteExportManifest(const std::string& folder, const std::vector<ExportedTable>& tables,
                         const std::vector<int64_t>& rows);
/** Throws `std::runtime_error` when the folder has a manifest and a file is not as it says. */
void CheckExportManifest(const std::string& folder);

}  // namespace mduckdb_host
