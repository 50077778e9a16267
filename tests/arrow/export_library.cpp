// A host in a library, which a program in another language loads to read Arrow streams of the built module in
// its own process. Each function returns null or the text of what went wrong, valid until the next call.
#include <dlfcn.h>
#include <mirona/extension_api.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

#include "nbx/exception.h"
#include "nbx/location.h"
#include "nbx/mrsql/duckdb_arrow.h"
#include "nbx/mrsql/duckdb_database.h"
#include "nbx/mrsql/duckdb_extension.h"
#include "nbx/mrsql/duckdb_streaming.h"
#include "nbx/mrsql/registry.h"

namespace {

using nbx::FromUtf8;
using nbx::mrsql::I_DuckDBArrow;
using nbx::mrsql::kDuckDBArrowInterfaceId;

nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase> gDatabase;
nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor> gCursor;
nbx::smart_ptr<nbx::mrsql::I_DuckDBQueryResult> gResult;
std::string gError;

void UnusedPosition() {}

mirona_extension_api MakeTable() {
    mirona_extension_api table;
    void (*positions[sizeof table / sizeof(void (*)())])();
    for (auto& position : positions) {
        position = &UnusedPosition;
    }
    std::memcpy(&table, positions, sizeof table);
    table.register_procedure = [](mirona_host, const mirona_procedure_def*) { return uint32_t{0}; };
    return table;
}

void Load(const char* file) {
    static const mirona_extension_api kTable = MakeTable();
    void* const module = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        throw std::runtime_error(dlerror());
    }
    reinterpret_cast<decltype(&mirona_extension_bind_api)>(dlsym(module, "mirona_extension_bind_api"))(
        &kTable);
    reinterpret_cast<decltype(&mirona_extension_init)>(dlsym(module, "mirona_extension_init"))(nullptr);
}

/** An object with the rows of the query: a client cursor (1), a server cursor (2), a cursor of rows that are
   computed while they are read (3), or a query result (4). */
I_DuckDBArrow& Open(const char* sql, int32_t kind, int64_t passed_rows) {
    const nbx::String text = FromUtf8(sql);
    if (kind == 4) {
        gResult = gDatabase->SqlQuery(text, nbx::mrsql::kServerCursor, nullptr);
        gCursor = gResult->get_Cursor();
    } else if (kind == 3) {
        gCursor = static_cast<nbx::mrsql::I_DuckDBStreaming*>(
                      gDatabase->QueryInterface(nbx::mrsql::kDuckDBStreamingInterfaceId))
                      ->OpenStream(text, nullptr);
    } else {
        gCursor = gDatabase->SqlSelect(text, static_cast<uint32_t>(kind), nullptr);
    }
    while (passed_rows-- > 0) {
        gCursor->NextRecord();
    }
    void* const arrow = kind == 4 ? gResult->QueryInterface(kDuckDBArrowInterfaceId)
                                  : gCursor->QueryInterface(kDuckDBArrowInterfaceId);
    return *static_cast<I_DuckDBArrow*>(arrow);
}

template <class Action>
const char* Try(Action action) {
    try {
        action();
        return nullptr;
    } catch (const std::exception& error) {
        gError = error.what();
        return gError.c_str();
    }
}

}  // namespace

extern "C" {

NBX_API const char* open_database(const char* module) {
    return Try([=] {
        Load(module);
        gDatabase =
            nbx::mrsql::GetDuckDBExtension()->CreateDatabase(nbx::CreateLocation(FromUtf8(":memory:")));
        gDatabase->Open();
    });
}

NBX_API const char* execute(const char* sql) {
    return Try([=] { gDatabase->SqlExecute(FromUtf8(sql), nullptr); });
}

NBX_API const char* export_stream(const char* sql, int32_t kind, int64_t passed_rows, ArrowArrayStream* out) {
    return Try([=] { Open(sql, kind, passed_rows).ExportStream(*out); });
}

NBX_API const char* close_cursor() {
    return Try([] { gCursor->Close(); });
}

NBX_API const char* close_database() {
    return Try([] {
        gDatabase->Close();
        gCursor = nullptr;
        gResult = nullptr;
        gDatabase = nullptr;
    });
}
}
