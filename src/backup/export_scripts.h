#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace mduckdb {

/** The statements of an export's two scripts, to be run one by one where the one import statement fails. */
struct ExportScripts {
    /** Statements that create the schemas, tables, views and so on. */
    std::vector<std::string> schema;
    /** Statements that fill the tables from the files in the folder of the scripts, without options that are
       only valid for writing: DuckDB 2.0 refuses to read with the ROW_GROUP_SIZE that 1.5 wrote. */
    std::vector<std::string> load;
};

/** Whether DuckDB was ended while it wrote the export: it creates its last file, the script that fills the
   tables, and then writes it at once. DuckDB imports such an export as tables without rows. Throws
   `std::bad_alloc`. */
bool IsExportUnfinished(const std::string& folder);

/** Reads the scripts; does not change the folder. Throws `BackupError` when one is missing. */
ExportScripts ReadExportScripts(const std::string& folder);

/** The statements of a script as the exports write them: separated by semicolons outside of quotes. */
std::vector<std::string> SplitScript(std::string_view script);
/** A COPY statement of a load script, with the file taken from the folder. */
std::string MendLoad(std::string_view copy, const std::string& folder);

/** Runs the statements with `run`, which throws for one that fails. A statement of the schema that fails is
   run again after the others, since DuckDB writes views in the order of their creation, which does not always
   respect what they depend on. Throws the first error that remains. */
void RunExportScripts(const ExportScripts& scripts, const std::function<void(const std::string&)>& run);

}  // namespace mduckdb
