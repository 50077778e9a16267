#pragma once

#include <string>

#include "databases/databases.h"
#include "print/output.h"
#include "print/printer.h"
#include "table/function_table.h"

namespace mduckdb_host {

/** Where the report about a backup is printed. */
struct BackupReport {
    Output& out;
    Printer& printer;
    /** False when programs read the printed rows: then everything else goes to stderr. */
    bool is_for_people;
};

/** Backs up an open database into a new folder inside `folder` (empty: "Backup" next to the file), and prints
    the new folder, its size and the number of rows of each table in it. Throws the host's exceptions. Returns
   the new folder. */
std::string BackUp(const ProcedureRegistry& registry, const DatabasePtr& database, const std::string& folder,
                   const BackupReport& report);

/** Recreates the database from a backup and prints how many rows each table has in the backup and in the
    database. Returns false when the numbers differ. */
bool Restore(const ProcedureRegistry& registry, const std::string& database, const std::string& folder,
             const BackupReport& report);

}  // namespace mduckdb_host
