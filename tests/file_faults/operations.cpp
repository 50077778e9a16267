#include "file_faults/operations.h"

#include <duckdb.h>

#include <filesystem>
#include <fstream>

#include "base/holders.h"
#include "nbx/mrsql/duckdb_appender.h"
#include "nbx/mrsql/duckdb_snapshot.h"

namespace {

using nbx::mrsql::I_DuckDBDatabase;

constexpr int64_t kRows = 3000;
constexpr int64_t kOldRows = 10;
constexpr int64_t kAppendedRows = 5000;

/** The number of rows of the table and whether the first ones are what they were, read by DuckDB alone;
   negative for a file that cannot be read. */
struct Rows {
    int64_t count = -1;
    std::string first;
    std::string error;
};

/** A connection of DuckDB alone: to a file, or to nothing. */
class Alone {
  public:
    explicit Alone(const char* file) {
        char* error = nullptr;
        if (duckdb_open_ext(file, &database_, nullptr, &error) != DuckDBSuccess) {
            const mduckdb::TextHolder owner(error);
            error_ = error;
        } else {
            duckdb_connect(database_, &connection_);
        }
    }
    ~Alone() {
        duckdb_disconnect(&connection_);
        duckdb_close(&database_);
    }
    Alone(const Alone&) = delete;
    Alone& operator=(const Alone&) = delete;

    /** The first row of the query; empty on failure. */
    std::vector<std::string> Row(const char* sql) {
        std::vector<std::string> row;
        duckdb_result result{};
        if (connection_ == nullptr || duckdb_query(connection_, sql, &result) != DuckDBSuccess) {
            error_ += connection_ == nullptr ? "" : duckdb_result_error(&result);
        } else {
            for (idx_t i = 0; i < duckdb_column_count(&result); ++i) {
                const mduckdb::TextHolder text(duckdb_value_varchar(&result, i, 0));
                row.emplace_back(text ? text.get() : "");
            }
        }
        duckdb_destroy_result(&result);
        return row;
    }
    const std::string& get_Error() const { return error_; }

  private:
    duckdb_database database_ = nullptr;
    duckdb_connection connection_ = nullptr;
    std::string error_;
};

Rows ReadRows(const std::string& file) {
    Alone alone(file.c_str());
    const auto row = alone.Row(
        "SELECT count(*), (SELECT count(*) || ' ' || sum(hash(i, s)) FROM t WHERE i < 3000) FROM t");
    return row.empty() ? Rows{-1, "", alone.get_Error()} : Rows{std::stoll(row[0]), row[1], ""};
}

std::string Difference(const std::string& file, int64_t least, int64_t most) {
    static const std::string first =
        Alone(nullptr)
            .Row("SELECT count(*) || ' ' || sum(hash(range, 'text ' || range)) FROM range(3000)")
            .at(0);
    const Rows rows = ReadRows(file);
    if (rows.count < least || rows.count > most) {
        return file + " has " + std::to_string(rows.count) + " rows, not " + std::to_string(least) + " to " +
               std::to_string(most) + " " + rows.error;
    }
    return least >= kRows && rows.first != first ? file + " has other rows" : "";
}

std::string Both(const std::string& one, const std::string& other) {
    return one.empty() ? other : one;
}

std::string SourceDifference(const std::string& folder) {
    return Difference(folder + "/a.db", kRows, kRows);
}

bool Exists(const std::string& path) {
    return std::filesystem::exists(path);
}

nbx::mrsql::I_DuckDBSnapshot& SnapshotOf(I_DuckDBDatabase& database) {
    return *static_cast<nbx::mrsql::I_DuckDBSnapshot*>(
        database.QueryInterface(nbx::mrsql::kDuckDBSnapshotInterfaceId));
}

nbx::mrsql::I_DuckDBRestore& RestoreOf(const TestHost& host) {
    return *static_cast<nbx::mrsql::I_DuckDBRestore*>(
        host->QueryInterface(nbx::mrsql::kDuckDBRestoreInterfaceId));
}

std::string ExportIn(const std::string& folder) {
    return folder + "/exports/one";
}

/** A name that begins so and is not one of the folder's own files. */
std::string Leftover(const std::string& folder, const std::string& start) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().filename().string().rfind(start, 0) == 0) {
            return entry.path().string() + " is left";
        }
    }
    return "";
}

void Insert(I_DuckDBDatabase& database, int64_t& committed) {
    for (int64_t i = 0; i < 3; ++i) {
        Execute(database, "INSERT INTO t VALUES (" + std::to_string(kRows + i) + ", 'new')");
        ++committed;
    }
}

void Append(I_DuckDBDatabase& database, int64_t& committed) {
    nbx::mrsql::DuckDBAppenderOptions options;
    options.table = S("t");
    options.in_one_transaction = true;
    auto& appenders = *static_cast<nbx::mrsql::I_DuckDBAppenders*>(
        database.QueryInterface(nbx::mrsql::kDuckDBAppendersInterfaceId));
    const auto appender = appenders.CreateAppender(options);
    std::vector<int64_t> numbers;
    std::vector<nbx::mrsql::DuckDBBytes> texts;
    for (int64_t i = 0; i < kAppendedRows; ++i) {
        numbers.push_back(kRows + i);
        texts.push_back({"appended", 8});
    }
    const nbx::mrsql::DuckDBColumnArray columns[] = {{DUCKDB_TYPE_BIGINT, numbers.data()},
                                                     {DUCKDB_TYPE_VARCHAR, texts.data()}};
    appender->AppendColumns(columns, 2, kAppendedRows);
    appender->Close();
    committed = kAppendedRows;
}

/** Either all rows of the transaction are there or none, and all if it was reported so. */
std::string AppendDifference(const std::string& folder, int64_t committed) {
    const std::string all = Difference(folder + "/a.db", kRows + kAppendedRows, kRows + kAppendedRows);
    return all.empty() || committed != 0 ? all : SourceDifference(folder);
}

std::string RestoreDifference(const std::string& folder, bool has_failed) {
    const std::string source = SourceDifference(folder);
    const std::string target = folder + "/old.db";
    return Both(source,
                has_failed ? Difference(target, kOldRows, kOldRows) : Difference(target, kRows, kRows));
}

std::vector<FileOperation> MakeOperations() {
    return {
        {"create",
         [](TestHost& host, const std::string& folder, int64_t& committed) {
             const auto database = host.Created(folder + "/new.db");
             Execute(*database,
                     "CREATE TABLE t AS SELECT range AS i, 'text ' || range AS s FROM range(3000)");
             committed = kRows;
             database->Close();
         },
         [](const std::string& folder, bool, int64_t committed) {
             return Both(SourceDifference(folder),
                         committed > 0 ? Difference(folder + "/new.db", kRows, kRows) : "");
         }},
        {"open and read",
         [](TestHost& host, const std::string& folder, int64_t&) {
             const auto database = host.Opened(folder + "/a.db");
             const std::string count = QueryText(*database, "SELECT count(s) FROM t");
             if (count != std::to_string(kRows)) {
                 throw std::logic_error("the result ends early: " + count);
             }
             database->Close();
         },
         [](const std::string& folder, bool, int64_t) { return SourceDifference(folder); }},
        {"execute",
         [](TestHost& host, const std::string& folder, int64_t& committed) {
             const auto database = host.Opened(folder + "/a.db");
             Insert(*database, committed);
             database->Close();
         },
         [](const std::string& folder, bool has_failed, int64_t committed) {
             return Difference(folder + "/a.db", kRows + committed, kRows + committed + (has_failed ? 1 : 0));
         }},
        {"checkpoint",
         [](TestHost& host, const std::string& folder, int64_t& committed) {
             const auto database = host.Opened(folder + "/a.db");
             Execute(*database, "SET checkpoint_threshold = '1GB'");
             Insert(*database, committed);
             Execute(*database, "CHECKPOINT");
             database->Close();
         },
         [](const std::string& folder, bool has_failed, int64_t committed) {
             return Difference(folder + "/a.db", kRows + committed, kRows + committed + (has_failed ? 1 : 0));
         }},
        {"snapshot",
         [](TestHost& host, const std::string& folder, int64_t&) {
             const auto database = host.Opened(folder + "/a.db");
             SnapshotOf(*database).Snapshot(Location(folder + "/shot.db"));
             database->Close();
         },
         [](const std::string& folder, bool has_failed, int64_t) {
             const std::string shot = folder + "/shot.db";
             return Both(SourceDifference(folder),
                         has_failed && !Exists(shot) ? "" : Difference(shot, kRows, kRows));
         },
         [](const std::string& folder) { return Leftover(folder, "shot.db"); }},
        {"back up",
         [](TestHost& host, const std::string& folder, int64_t& committed) {
             const auto database = host.Opened(folder + "/a.db");
             database->Backup(Location(folder + "/more"));
             committed = 1;
             database->Close();
         },
         [](const std::string& folder, bool, int64_t committed) {
             if (committed == 0) {
                 return SourceDifference(folder);
             }
             const TestHost host;
             const std::string made = std::filesystem::directory_iterator(folder + "/more")->path().string();
             host->RestoreDatabase(Location(folder + "/again.db"), Location(made));
             return Both(SourceDifference(folder), Difference(folder + "/again.db", kRows, kRows));
         }},
        {"restore an export",
         [](TestHost& host, const std::string& folder, int64_t&) {
             host->RestoreDatabase(Location(folder + "/old.db"), Location(ExportIn(folder)));
         },
         [](const std::string& folder, bool has_failed, int64_t) {
             return RestoreDifference(folder, has_failed);
         }},
        {"restore a snapshot",
         [](TestHost& host, const std::string& folder, int64_t&) {
             RestoreOf(host).RestoreSnapshot(Location(folder + "/old.db"), Location(folder + "/saved.db"));
         },
         [](const std::string& folder, bool has_failed, int64_t) {
             return Both(Difference(folder + "/saved.db", kRows, kRows),
                         RestoreDifference(folder, has_failed));
         }},
        {"drop",
         [](TestHost& host, const std::string& folder, int64_t&) {
             const auto database = host.Opened(folder + "/a.db");
             // As a process that was killed leaves it.
             std::ofstream(folder + "/a.db.wal.recovery") << "log";
             database->Drop();
         },
         [](const std::string& folder, bool has_failed, int64_t) -> std::string {
             if (!has_failed) {
                 return Leftover(folder, "a.db");
             }
             return Exists(folder + "/a.db") ? SourceDifference(folder) : "";
         }},
        {"append",
         [](TestHost& host, const std::string& folder, int64_t& committed) {
             const auto database = host.Opened(folder + "/a.db");
             Append(*database, committed);
             database->Close();
         },
         [](const std::string& folder, bool, int64_t committed) {
             return AppendDifference(folder, committed);
         }},
    };
}

}  // namespace

void MakeFolder(const std::string& folder) {
    const TestHost host;
    const auto database = host.Created(folder + "/a.db");
    Execute(*database,
            "CREATE TABLE t AS SELECT range AS i, 'text ' || range AS s FROM range(3000); CHECKPOINT");
    std::filesystem::create_directory(folder + "/exports");
    database->Backup(Location(folder + "/exports"));
    // Under a name that needs no look.
    const std::filesystem::path made = std::filesystem::directory_iterator(folder + "/exports")->path();
    std::filesystem::rename(made, ExportIn(folder));
    std::filesystem::create_directory(folder + "/more");
    SnapshotOf(*database).Snapshot(Location(folder + "/saved.db"));
    database->Close();
    const auto old = host.Created(folder + "/old.db");
    Execute(*old, "CREATE TABLE t AS SELECT range AS i, 'text ' || range AS s FROM range(10)");
    old->Close();
}

const std::vector<FileOperation>& FileOperations() {
    static const std::vector<FileOperation> operations = MakeOperations();
    return operations;
}
