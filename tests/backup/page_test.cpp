#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>

#include "backup/comparison.h"
#include "backup/export_check.h"
#include "backup/facts.h"
#include "plain_engine.h"
#include "support/temp_folder.h"

namespace mduckdb {
namespace {

struct Sample {
    const char* what;
    const char* script;
};

constexpr Sample kSamples[] = {
    {"an empty database", "SELECT 1"},
    {"schemas, tables and rows",
     "CREATE SCHEMA s; CREATE TABLE s.t AS SELECT i, 'x' || i AS v FROM range(100) r(i)"},
    {"primary keys, unique, check and not-null constraints",
     "CREATE TABLE t (i INTEGER PRIMARY KEY, j INTEGER UNIQUE, k INTEGER NOT NULL CHECK (k > 0)); "
     "INSERT INTO t VALUES (1, 2, 3)"},
    {"foreign keys",
     "CREATE TABLE a (i INTEGER PRIMARY KEY); CREATE TABLE b (i INTEGER REFERENCES a (i)); "
     "INSERT INTO a VALUES (1); INSERT INTO b VALUES (1)"},
    {"indexes", "CREATE TABLE t AS SELECT 1 AS i; CREATE INDEX x ON t (i)"},
    {"generated columns",
     "CREATE TABLE t (i INTEGER, j INTEGER GENERATED ALWAYS AS (i + 1)); INSERT INTO t VALUES (1)"},
    {"sequences, their next values, and defaults from them",
     "CREATE SEQUENCE q; CREATE TABLE t (i INTEGER DEFAULT nextval('q'), j INTEGER); INSERT INTO t (j) "
     "VALUES (1), (2)"},
    {"ENUM types", "CREATE TYPE m AS ENUM ('a', 'b'); CREATE TABLE t AS SELECT 'a'::m AS m"},
    {"views", "CREATE TABLE t AS SELECT 1 AS i; CREATE VIEW v AS SELECT * FROM t"},
    {"a view on a view that was made later",
     "CREATE VIEW b AS SELECT 1 AS i; CREATE VIEW a AS SELECT i FROM b; CREATE OR REPLACE VIEW b AS SELECT 2 "
     "AS i"},
    {"macros", "CREATE MACRO m(a) AS a + 1; CREATE MACRO n(a) AS TABLE SELECT a AS i"},
    {"comments", "CREATE TABLE t AS SELECT 1 AS i; COMMENT ON TABLE t IS 'x'"},
    {"INTERVAL, to the millisecond", "CREATE TABLE t AS SELECT INTERVAL 1 millisecond AS i"},
    {"INTERVAL, to the microsecond", "CREATE TABLE t AS SELECT INTERVAL 1 microsecond AS i"},
    {"TIMETZ in UTC", "CREATE TABLE t AS SELECT '10:00:00+00'::TIMETZ AS i"},
    {"TIMETZ with an offset", "CREATE TABLE t AS SELECT '10:00:00+01'::TIMETZ AS i"},
    {"VARIANT", "CREATE TABLE t AS SELECT {'a': 1}::VARIANT AS i"},
};

/** A database file that can hold every type. */
std::string MakeDatabase(const TempFolder& folder, const Sample& sample) {
    const std::string file = folder / "a.db";
    EXPECT_EQ(PlainEngine(":memory:").Run("ATTACH '" + file + "' AS made (STORAGE_VERSION 'v1.5.0')"), "");
    EXPECT_EQ(PlainEngine(file).Run(sample.script), "") << sample.what;
    return file;
}

std::string KeptBySnapshot(const PlainEngine& source, const std::string& target) {
    if (SnapshotError(source, target) != "none") {
        return "no";
    }
    const PlainEngine snapshot(target, "READ_ONLY");
    const auto read = [](const PlainEngine& engine) {
        BackupStop stop;
        SqlWorker worker(engine.get(), stop);
        PrepareForFacts(worker);
        return ReadFacts(worker);
    };
    return CompareFacts(read(source), read(snapshot), {"database", "snapshot"}).empty() ? "yes" : "no";
}

std::string KeptByExport(const PlainEngine& source, const std::string& folder) {
    EXPECT_EQ(
        source.Run("EXPORT DATABASE '" + folder +
                   "' ( FORMAT PARQUET, COMPRESSION ZSTD, ROW_GROUP_SIZE 100_000, PARQUET_VERSION V2 )"),
        "");
    BackupStop stop;
    try {
        return CompareExport(source.get(), folder, stop).empty() ? "yes" : "no";
    } catch (const BackupError&) {
        return "cannot be restored";
    }
}

/** The sample's line of the page. */
std::string LineOf(const Sample& sample) {
    const TempFolder folder;
    const PlainEngine source(MakeDatabase(folder, sample));
    return std::string("| ") + sample.what + " | " + KeptBySnapshot(source, folder / "snap.db") + " | " +
           KeptByExport(source, folder / "export") + " |\n";
}

TEST(BackupsPage, ShowsWhatEachKindOfBackupKeeps) {
    std::ifstream file(BACKUPS_PAGE, std::ios::binary);
    const std::string page{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
#ifdef MDUCKDB_TEST_IS_SANITIZED
    // Each sample takes seconds, and most of them run the same code: one for each pair of answers.
    for (const char* what : {"foreign keys", "comments", "VARIANT"}) {
        const auto* sample = std::find_if(std::begin(kSamples), std::end(kSamples), [&](const Sample& each) {
            return std::string_view(each.what) == what;
        });
        EXPECT_THAT(page, testing::HasSubstr(LineOf(*sample)));
    }
#else
    std::string table = "| | snapshot | backup |\n|---|---|---|\n";
    for (const Sample& sample : kSamples) {
        table += LineOf(sample);
    }
    EXPECT_THAT(page, testing::HasSubstr(table));
#endif
}

}  // namespace
}  // namespace mduckdb
