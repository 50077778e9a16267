#include "extension/extension.h"

#include <duckdb.h>

#include <cstring>
#include <utility>

#include "base/errors.h"
#include "base/text.h"
#include "engines/engine_files.h"
#include "engines/handle_registry.h"
#include "extension/file_probe.h"
#include "extension/restore.h"
#include "objects/cursor.h"
#include "objects/database.h"

namespace mduckdb {

namespace {

using nbx::I_Location;
using nbx::smart_ptr;
using nbx::mrsql::I_DuckDBCursor;
using nbx::mrsql::I_DuckDBDatabase;
using nbx::mrsql::I_DuckDBExtension;

class DuckDBExtension final : public I_DuckDBExtension, nbx::noncopyable {
  public:
    uint32_t AddRef() override { return refs_.Increment(); }
    uint32_t Release() override {
        const uint32_t count = refs_.Decrement();
        if (count == 0) {
            delete this;
        }
        return count;
    }
    void* QueryInterface(uint32_t interface_id) override {
        static const nbx::InterfaceItem kTable[] = {{0, nullptr}};
        return nbx::InterfaceTableQueryInterface(this, kTable, interface_id);
    }
    uint32_t get_RefsCount() const override { return refs_.get_Value(); }

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
        return mduckdb::RestoreDatabase(std::move(database_location), std::move(backup_folder));
    }

  private:
    nbx::RefCount refs_;
};

}  // namespace

smart_ptr<I_DuckDBExtension> MakeExtension() {
    return nbx::MakeObject<DuckDBExtension>();
}

}  // namespace mduckdb
