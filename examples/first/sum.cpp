// A first host in C++: adds up a column of a table of a DuckDB database.
//
//   sum MODULE DATABASE TABLE COLUMN

#include <dlfcn.h>
#include <mirona/extension_api.h>
#include <nbx/location.h>
#include <nbx/mrsql/duckdb_extension.h>
#include <nbx/mrsql/registry.h>

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>

using nbx::String;
using nbx::mrsql::I_DuckDBExtension;
using nbx::mrsql::I_FetchStatus;

namespace {

void NotInUse() {
    std::cerr << "not in use\n";
}

uint32_t RegisterProcedure(mirona_host /*host*/, const mirona_procedure_def* /*def*/) {
    return 0;  // this host has no SQL to call it from
}

void ReportError(void* /*call_or_host*/, const char* text, uint64_t length) {
    std::cerr.write(text, static_cast<std::streamsize>(length)) << '\n';
}

nbx::smart_ptr<I_DuckDBExtension> LoadModule(const char* file) {
    static mirona_extension_api table;
    void (*positions[MIRONA_EXTENSION_API_POSITIONS])();
    std::fill(std::begin(positions), std::end(positions), &NotInUse);
    std::memcpy(&table, positions, sizeof table);
    table.register_procedure = &RegisterProcedure;
    table.report_error = &ReportError;

    void* const module = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    void* const bind_api = module != nullptr ? dlsym(module, "mirona_extension_bind_api") : nullptr;
    void* const init = bind_api != nullptr ? dlsym(module, "mirona_extension_init") : nullptr;
    if (init == nullptr) {
        throw std::runtime_error(dlerror());
    }
    reinterpret_cast<decltype(&mirona_extension_bind_api)>(bind_api)(&table);
    reinterpret_cast<decltype(&mirona_extension_init)>(init)(nullptr);
    auto extension = nbx::mrsql::GetDuckDBExtension();
    if (!extension) {
        throw std::runtime_error("The module refused to start.");
    }
    return extension;
}

void Sum(const char* module, const char* file, const std::string& table, const std::string& column) {
    const auto extension = LoadModule(module);
    // docs: cursor
    const auto database = extension->CreateDatabase(nbx::CreateLocation(String(file)));
    nbx::mrsql::DuckDBDatabaseOptions options;
    options.read_write = false;
    database->put_Options(options);
    database->Open();
    const std::string sql = "SELECT " + column + " FROM " + table;
    const auto cursor = database->SqlSelect(String(sql.c_str()), nbx::mrsql::kServerCursor, nullptr);
    double sum = 0;
    uint64_t count = 0;
    for (; cursor->NextRecord(); ++count) {
        sum += cursor->get_Value(0)->get_Double();  // of NULL: 0
    }
    // docs: end
    const auto* status =
        static_cast<const I_FetchStatus*>(cursor->QueryInterface(nbx::mrsql::kFetchStatusInterfaceId));
    if (!status->get_FetchError().isEmpty()) {
        throw std::runtime_error("The rows end too early.");
    }
    std::cout << std::fixed << std::setprecision(2) << sum << " in " << count << " rows\n";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::cerr << "usage: sum MODULE DATABASE TABLE COLUMN\n";
        return 2;
    }
    int status = 0;
    try {
        Sum(argv[1], argv[2], argv[3], argv[4]);
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        status = 1;
    }
    nbx::mrsql::SetDuckDBExtension(nullptr);  // before the module's own statics are destroyed
    return status;
}
