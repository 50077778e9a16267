#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "backup/facts.h"

namespace mduckdb {

/** What stands beside a snapshot, as JSON. */
struct SnapshotManifest {
    std::string duckdb_version;
    std::string storage_version;
    /** In UTC, as 2024-03-15T12:34:56Z. */
    std::string date;
    uint64_t size = 0;
    std::string sha256;
    /** "rows": the catalog and every row were found equal to what had been committed. Where the database
        changed too fast for that, every row of the snapshot was read, and the catalog alone was found equal:
        "structure", or changed as well: "nothing". */
    std::string compared;
    /** How many objects of each kind there are. */
    std::vector<std::pair<std::string, uint64_t>> objects;
    std::vector<TableFacts> tables;
};

/** The manifest of a snapshot file. */
inline std::string ManifestOf(const std::string& snapshot) {
    return snapshot + ".manifest.json";
}

std::string WriteManifest(const SnapshotManifest& manifest);

/** What a restore checks a file by. */
struct FileIdentity {
    uint64_t size = 0;
    std::string sha256;
    std::string duckdb_version;
};
/** Nothing when the text is no manifest of a snapshot. */
std::optional<FileIdentity> ReadManifest(const std::string& text);

std::vector<std::pair<std::string, uint64_t>> CountObjects(const std::vector<CatalogFact>& catalog);
/** This moment, as a manifest has it. */
std::string DateNow();

}  // namespace mduckdb
