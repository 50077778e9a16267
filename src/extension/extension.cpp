#include "extension/extension.h"

#include <duckdb.h>

#include <utility>

#include "base/errors.h"
#include "base/text.h"
#include "engines/budget.h"
#include "engines/engine_files.h"
#include "engines/handle_registry.h"
#include "extension/census.h"
#include "extension/file_probe.h"
#include "extension/procedure_limits.h"
#include "extension/restore.h"
#include "extension/restore_snapshot.h"
#include "nbx/mrsql/duckdb_census.h"
#include "nbx/mrsql/duckdb_snapshot.h"
#include "objects/cursor.h"
#include "objects/database.h"
#include "procedures/running_call.h"

namespace mduckdb {

namespace {

using nbx::I_Location;
using nbx::smart_ptr;
using nbx::mrsql::I_DuckDBCursor;
using nbx::mrsql::I_DuckDBDatabase;
using nbx::mrsql::I_DuckDBExtension;

class DuckDBExtension final : public nbx::Counted<I_DuckDBExtension>,
                              public nbx::mrsql::I_DuckDBRestore,
                              public nbx::mrsql::I_DuckDBBudget,
                              public nbx::mrsql::I_DuckDBCensus,
                              public nbx::mrsql::I_DuckDBProcedureLimits {
  public:
    void* QueryInterface(uint32_t interface_id) override {
        static constexpr nbx::InterfaceItem kTable[] = {
            {nbx::mrsql::kDuckDBExtensionInterfaceId,
             &nbx::CastToInterface<DuckDBExtension, I_DuckDBExtension>},
            {nbx::mrsql::kDuckDBRestoreInterfaceId,
             &nbx::CastToInterface<DuckDBExtension, nbx::mrsql::I_DuckDBRestore>},
            {nbx::mrsql::kDuckDBBudgetInterfaceId,
             &nbx::CastToInterface<DuckDBExtension, nbx::mrsql::I_DuckDBBudget>},
            {nbx::mrsql::kDuckDBCensusInterfaceId,
             &nbx::CastToInterface<DuckDBExtension, nbx::mrsql::I_DuckDBCensus>},
            {nbx::mrsql::kDuckDBProcedureLimitsInterfaceId,
             &nbx::CastToInterface<DuckDBExtension, nbx::mrsql::I_DuckDBProcedureLimits>},
            {0, nullptr},
        };
        return nbx::InterfaceTableQueryInterface(this, kTable, interface_id);
    }

    const char* get_LibraryVersion() override { return duckdb_library_version(); }
    smart_ptr<I_DuckDBDatabase> CreateDatabase(smart_ptr<I_Location> location) override {
        if (!location) {
            throw nbx::xDBError(kNoDatabaseLocationCode);
        }
        const EngineLockScope lock;
        return nbx::MakeObject<DuckDBDatabase>(std::move(location));
    }
    smart_ptr<nbx::ValueRows> get_ClientCursorRows(smart_ptr<I_DuckDBCursor> cursor) override {
        return GetClientCursorRows(cursor.get());
    }
    bool IsClientCursor(smart_ptr<I_DuckDBCursor> cursor) override {
        return mduckdb::IsClientCursor(cursor.get());
    }
    bool IsDatabaseOpen(const nbx::String& path) override {
        const EngineLockScope lock;
        return HandleRegistry::Get().Contains(path);
    }
    bool IsDuckDBFile(smart_ptr<I_Location> location) override {
        return LooksLikeDuckDBFile(std::move(location));
    }
    bool IsInMemoryPath(const nbx::String& path) override {
        static const nbx::String kInMemoryPath(":memory:", -1, nullptr, 0);
        return path == kInMemoryPath;
    }
    smart_ptr<I_DuckDBDatabase> RestoreDatabase(smart_ptr<I_Location> database_location,
                                                smart_ptr<I_Location> backup_folder) override {
        return mduckdb::RestoreDatabase(database_location, backup_folder);
    }
    smart_ptr<I_DuckDBDatabase> RestoreSnapshot(smart_ptr<I_Location> database_location,
                                                smart_ptr<I_Location> snapshot) override {
        return mduckdb::RestoreSnapshot(database_location, snapshot);
    }
    nbx::String VerifyBackup(smart_ptr<I_DuckDBDatabase> database,
                             smart_ptr<I_Location> backup_folder) override {
        return mduckdb::VerifyBackup(database, backup_folder);
    }
    uint64_t get_MemoryBudget() override { return Budget::get_MemoryMb(); }
    uint32_t get_ThreadBudget() override { return Budget::get_Threads(); }
    void put_Budget(uint64_t memory_mb, uint32_t threads) override { Budget::Put(memory_mb, threads); }
    nbx::mrsql::DuckDBBudgetFigures get_Figures() override { return Budget::get_Figures(); }
    void List(nbx::mrsql::I_DuckDBCensusReader& reader) override {
        for (const CensusLine& line : TakeCensus()) {
            reader.Add(line);
        }
    }
    bool CutCall(uint64_t number) override { return RunningCall::Cut(number); }
    void put_Limits(const nbx::mrsql::DuckDBProcedureLimits& limits) override { PutProcedureLimits(limits); }
    nbx::mrsql::DuckDBProcedureLimits get_Limits() override { return GetProcedureLimits(); }
};

}  // namespace

smart_ptr<I_DuckDBExtension> MakeExtension() {
    return nbx::MakeObject<DuckDBExtension>();
}

}  // namespace mduckdb
