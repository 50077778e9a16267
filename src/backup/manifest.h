#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "backup/facts.h"

namespace mduckdb {

/** The JSON file next to a snapshot, which describes it. */
struct SnapshotManifest {
    std::string duckdb_version;
    std::string storage_version;
    /** In UTC, for example 2024-03-15T12:34:56Z. */
    std::string date;
    uint64_t size = 0;
    std::string sha256;
    /** "rows": the catalog and every row were found equal to what had been committed. When the database
        changed too fast for that, every row of the snapshot was read, and either only the catalog was found
        equal ("structure") or it had changed as well ("nothing"). */
    std::string compared;
    /** How long copying took, until the disk held the copy. */
    double copy_seconds = 0;
    /** How long reading, comparing and summing the copy took. */
    double check_seconds = 0;
    /** How many objects of each kind there are. */
    std::vector<std::pair<std::string, uint64_t>> objects;
    std::vector<TableFacts> tables;
};

/** The path of the manifest of a snapshot file. */
inline std::string ManifestOf(const std::string& snapshot) {
    return snapshot + ".manifest.json";
}

std::string WriteManifest(const SnapshotManifest& manifest);

/** The facts that a restore checks a file against. */
struct FileIdentity {
    uint64_t size = 0;
    std::string sha256;
    std::string duckdb_version;
};
/** Empty when the text is not the manifest of a snapshot. */
std::optional<FileIdentity> ReadManifest(const std::string& text);

std::vector<std::pair<std::string, uint64_t>> CountObjects(const std::vector<CatalogFact>& catalog);
/** The current time, in the form that a manifest uses. */
std::string DateNow();

}  // namespace mduckdb
