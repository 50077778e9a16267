#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace mduckdb_host {

/** One table of a backup. */
struct ExportedTable {
    /** As in SQL, quoted where necessary. */
    std::string name;
    /** The Parquet file that contains its rows. */
    std::string file;
};

/** Reads the statements `COPY table FROM 'file' (...)` of an export's load script. */
std::vector<ExportedTable> ParseLoadScript(std::string_view script);

/** The tables of the backup in a folder. The files are those in this folder, even if the backup was moved.
    Throws `std::runtime_error` when the folder contains no backup. */
std::vector<ExportedTable> ReadExport(const std::string& folder);

/** The total size of the readable files in a folder. */
uint64_t GetFolderSize(const std::string& folder) noexcept;

}  // namespace mduckdb_host
