#include "databases.h"

#include <fmt/format.h>
#include <unistd.h>

#include <stdexcept>

#include "interruption.h"
#include "nbx/exception.h"
#include "nbx/mrsql/registry.h"
#include "program.h"
#include "sql_errors.h"
#include "text.h"

namespace mduckdb_host {

namespace {

/** What a shell reports for a program that Ctrl-C ended. */
constexpr int kInterruptedStatus = 130;

}  // namespace

nbx::smart_ptr<nbx::mrsql::I_DuckDBExtension> GetExtension() {
    auto extension = nbx::mrsql::GetDuckDBExtension();
    if (extension == nullptr) {
        throw std::runtime_error("The module offers no databases.");
    }
    return extension;
}

nbx::smart_ptr<nbx::I_Location> MakeLocation(const std::string& path) {
    return nbx::CreateLocation(FromUtf8(path));
}

DatabasePtr MakeDatabase(const std::string& path) {
    return GetExtension()->CreateDatabase(MakeLocation(path));
}

DatabasePtr OpenDatabase(const std::string& path, IfMissing if_missing, bool is_read_only) {
    DatabasePtr database = MakeDatabase(path);
    if (is_read_only) {
        nbx::mrsql::DuckDBDatabaseOptions options;
        options.read_write = false;
        database->put_Options(options);
    }
    if (if_missing == IfMissing::kCreate && !GetExtension()->IsInMemoryPath(FromUtf8(path)) &&
        !database->get_Exists()) {
        database->Create();
    } else {
        database->Open();
    }
    return database;
}

DatabasePtr OpenForCommand(const std::string& path, bool is_read_only) {
    const InterruptWatch watch([] { ::_exit(kInterruptedStatus); });
    try {
        DatabasePtr database = OpenDatabase(path, IfMissing::kFail, is_read_only);
        if (database->get_IsReadOnly() && !is_read_only) {
            PrintError(fmt::format("{} is open for reading only: it may not be written or is in use.", path));
        }
        return database;
    } catch (const nbx::xException& error) {
        throw std::runtime_error(fmt::format("Cannot open {}: {}", path, DescribeException(error, {})));
    }
}

}  // namespace mduckdb_host
