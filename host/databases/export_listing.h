#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace mduckdb_host {

/** One table of a backup. */
struct ExportedTable {
    /** As it stands in SQL, quoted where that is needed. */
    std::string name;
    /** The Parquet file with its rows. */
    std::string file;
};

/** Reads the statements `COPY table FROM 'file' (...)` of an export's load script. */
std::vector<ExportedTable> ParseLoadScript(std::string_view script);

/** The tables of the backup in a folder. Files are taken from this folder, wherever the backup was made.
    Throws `std::runtime_error` when there is no backup in it. */
std::vector<ExportedTable> ReadExport(const std::string& folder);

/** Bytes of all files in a folder, as far as they can be read. */
uint64_t GetFolderSize(const std::string& folder) noexcept;

}  // namespace mduckdb_host
