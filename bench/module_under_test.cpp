#include "module_under_test.h"

#include <dlfcn.h>

#include <map>

#include "host_table.h"
#include "measure.h"
#include "nbx/mrsql/duckdb_streaming.h"
#include "nbx/mrsql/registry.h"

namespace bench {
namespace {

template <class F>
F GetSymbol(void* library, const char* name) {
    void* symbol = dlsym(library, name);
    if (symbol == nullptr) {
        Die(std::string("the module lacks ") + name);
    }
    return reinterpret_cast<F>(symbol);
}

nbx::mrsql::DuckDBDatabaseOptions OneThread(bool read_write) {
    nbx::mrsql::DuckDBDatabaseOptions options;
    options.read_write = read_write;
    options.threads = 1;
    return options;
}

}  // namespace

void LoadModule(const std::string& file) {
    static std::string loaded;
    if (loaded == file) {
        return;
    }
    if (!loaded.empty()) {
        Die("a process can have one module only: " + loaded);
    }
    loaded = file;
    // Never unloaded: its objects and callbacks live as long as the process.
    void* library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        Die(dlerror());
    }
    GetSymbol<void (*)(const mirona_extension_api*)>(library, "mirona_extension_bind_api")(&GetHostTable());
    GetSymbol<void (*)(mirona_host)>(library, "mirona_extension_init")(nullptr);
}

mirona_procedure_handler GetProcedure(const std::string& name) {
    const mirona_procedure_handler handler = FindProcedure(name);
    if (handler == nullptr) {
        Die("no procedure " + name);
    }
    return handler;
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBExtension> GetExtension() {
    return nbx::mrsql::GetDuckDBExtension();
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> MakeDatabase(const std::string& path) {
    return GetExtension()->CreateDatabase(nbx::CreateLocation(nbx::String(path.c_str())));
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> OpenDatabase(const std::string& path, bool read_write) {
    nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> database = MakeDatabase(path);
    database->put_Options(OneThread(read_write || path == ":memory:"));
    database->Open();
    return database;
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBStatement> PrepareInModule(nbx::mrsql::I_DuckDBDatabase& database,
                                                              const std::string& sql) {
    nbx::smart_ptr<nbx::mrsql::I_DuckDBStatement> statement =
        database.CreateStatement(nbx::String(sql.c_str()));
    statement->PrepareNext();
    return statement;
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> OpenStream(nbx::mrsql::I_DuckDBDatabase& database,
                                                      const nbx::String& sql) {
    return static_cast<nbx::mrsql::I_DuckDBStreaming*>(
               database.QueryInterface(nbx::mrsql::kDuckDBStreamingInterfaceId))
        ->OpenStream(sql, nullptr);
}

void RequireSameRows(const std::string& what, const BareDuckDB& bare, nbx::mrsql::I_DuckDBDatabase& database,
                     const std::string& table) {
    // The sum over all rows, each by the hash of its text; small enough for a BIGINT.
    const std::string sql =
        "SELECT coalesce(sum(hash(t::VARCHAR) % 1000000007), 0)::BIGINT FROM " + table + " t";
    const nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> cursor =
        database.SqlSelect(nbx::String(sql.c_str()), nbx::mrsql::kServerCursor, nullptr);
    cursor->NextRecord();
    const int64_t sum = cursor->get_Value(0)->get_LLong();
    if (sum == 0 || sum != bare.GetNumber(sql)) {
        Die(what + ": the rows differ");
    }
}

}  // namespace bench
