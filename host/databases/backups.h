#pragma once

#include <string>

#include "databases/databases.h"
#include "print/output.h"
#include "print/printer.h"
#include "table/function_table.h"

namespace mduckdb_host {

/** Where a backup's lines go. */
struct BackupReport {
    Output& out;
    Printer& printer;
    /** False when the printed rows are for programs: then everything else goes to stderr. */
    bool is_for_people;
};

/** Backs an open database up into a new folder inside `folder` (empty: "Backup" beside the file), and
    prints the new folder, its size and the rows of each table in it. Throws the host's exceptions. */
void BackUp(const ProcedureRegistry& registry, const DatabasePtr& database, const std::string& folder,
            const BackupReport& report);

/** Makes the database anew from a backup and prints the rows of each table in the backup and in the
    database. False when they differ. */
bool Restore(const ProcedureRegistry& registry, const std::string& database, const std::string& folder,
             const BackupReport& report);

}  // namespace mduckdb_host
