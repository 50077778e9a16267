#include "objects/database.h"

#include <utility>

#include "duckdb_internals/statement_pieces.h"
#include "engines/handle_registry.h"
#include "nbx/hooks.h"
#include "nbx/mrsql/registry.h"
#include "objects/appender.h"
#include "objects/statement.h"

namespace mduckdb {

namespace {

/** Whether the host allows the current call to be interrupted. */
bool IsInterruptionAllowed() {
    const auto is_local_call = nbx::mrsql::gpIsLocalSqlCall_PTR;
    return is_local_call != nullptr && (!is_local_call() || nbx::mrsql::IsLocalSqlCancellationAllowed());
}

}  // namespace

DuckDBDatabase::DuckDBDatabase(nbx::smart_ptr<nbx::I_Location> location)
    : link_(std::make_shared<DatabaseLink>(*this, std::move(location))),
      location_(link_->get_Location()),
      path_(location_->get_PathText()) {}

DuckDBDatabase::~DuckDBDatabase() {
    try {
        Close();
    } catch (...) {  // A destructor cannot report.
    }
    link_->Orphan();
}

uint32_t DuckDBDatabase::AddRef() {
    return link_->AddReference();
}

uint32_t DuckDBDatabase::Release() {
    const uint32_t count = link_->ReleaseReference();
    if (count == 0) {
        delete this;
    }
    return count;
}

void* DuckDBDatabase::QueryInterface(uint32_t interface_id) {
    static constexpr nbx::InterfaceItem kTable[] = {
        {nbx::mrsql::kDuckDBDatabaseInterfaceId,
         &nbx::CastToInterface<DuckDBDatabase, nbx::mrsql::I_DuckDBDatabase>},
        {nbx::mrsql::kDuckDBSnapshotInterfaceId,
         &nbx::CastToInterface<DuckDBDatabase, nbx::mrsql::I_DuckDBSnapshot>},
        {nbx::mrsql::kDuckDBTransactionStateInterfaceId,
         &nbx::CastToInterface<DuckDBDatabase, nbx::mrsql::I_DuckDBTransactionState>},
        {nbx::mrsql::kDuckDBDeadlinesInterfaceId,
         &nbx::CastToInterface<DuckDBDatabase, nbx::mrsql::I_DuckDBDeadlines>},
        {nbx::mrsql::kDuckDBProgressInterfaceId,
         &nbx::CastToInterface<DuckDBDatabase, nbx::mrsql::I_DuckDBProgress>},
        {nbx::mrsql::kDuckDBStreamingInterfaceId,
         &nbx::CastToInterface<DuckDBDatabase, nbx::mrsql::I_DuckDBStreaming>},
        {nbx::mrsql::kDuckDBAppendersInterfaceId,
         &nbx::CastToInterface<DuckDBDatabase, nbx::mrsql::I_DuckDBAppenders>},
        {0, nullptr},
    };
    return nbx::InterfaceTableQueryInterface(this, kTable, interface_id);
}

uint32_t DuckDBDatabase::get_RefsCount() const {
    return link_->get_ReferenceCount();
}

void DuckDBDatabase::put_BlockSize(uint32_t block_size) {
    const EngineLockScope lock;
    block_size_ = block_size;
}

uint32_t DuckDBDatabase::get_ConnectionCount() {
    const EngineLockScope lock;
    return HandleRegistry::Get().get_UserCount(location_->get_PathText());
}

bool DuckDBDatabase::get_Exists() {
    const EngineLockScope lock;
    return get_ExistsLocked();
}

bool DuckDBDatabase::get_ExistsLocked() {
    return token_.isEmpty() && !IsInMemory() && location_->get_Exists();
}

bool DuckDBDatabase::get_IsOpen() {
    return is_open_.load();
}

bool DuckDBDatabase::get_IsReadOnly() {
    return is_read_only_.load();
}

nbx::String DuckDBDatabase::get_Path() {
    const EngineLockScope lock;
    return location_->get_Text();
}

nbx::String DuckDBDatabase::get_Key() {
    const EngineLockScope lock;
    return location_->get_PathText();
}

void DuckDBDatabase::put_Credentials(nbx::String token, nbx::String user_agent) {
    const EngineLockScope lock;
    token_ = std::move(token);
    user_agent_ = std::move(user_agent);
}

void DuckDBDatabase::put_StorageVersion(nbx::String version) {
    const EngineLockScope lock;
    storage_version_ = std::move(version);
}

void DuckDBDatabase::put_Options(const nbx::mrsql::DuckDBDatabaseOptions& options) {
    const EngineLockScope lock;
    options_ = options;
    are_options_given_ = are_options_new_ = true;
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBStatement> DuckDBDatabase::CreateStatement(const nbx::String& sql) {
    const EngineLockScope lock;
    if (!engine_) {
        ThrowError("DuckDBDatabase is not open");
    }
    auto statement = MakeStatement(link_, sql);
    link_->get_Children().Add(statement.get());
    return statement;
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBAppender> DuckDBDatabase::CreateAppender(
    const nbx::mrsql::DuckDBAppenderOptions& options) {
    nbx::MironaInit3();
    // The object itself may be closed and destroyed while DuckDB looks the table up.
    const SharedLink link = link_;
    nbx::smart_ptr<DuckDBAppender> appender;
    {
        const EngineLockScope lock;
        link->RequireConnection();
        appender = nbx::MakeObject<DuckDBAppender>(link, engine_, options.in_one_transaction);
    }
    appender->Start(options);
    return appender;
}

void DuckDBDatabase::RemoveStatement(nbx::mrsql::I_DuckDBStatement* statement) {
    const EngineLockScope lock;
    link_->RequireConnection();
    if (!link_->get_Children().Unlist(statement)) {
        ThrowError("DuckDBStatement does not belong to this database");
    }
}

void DuckDBDatabase::AddCursor(nbx::mrsql::I_DuckDBCursor* cursor) {
    const EngineLockScope lock;
    link_->get_Children().Add(cursor);
}

void DuckDBDatabase::RemoveCursor(nbx::mrsql::I_DuckDBCursor* cursor) {
    const EngineLockScope lock;
    link_->get_Children().Unlist(cursor);
}

void DuckDBDatabase::AddQueryResult(nbx::mrsql::I_DuckDBQueryResult* result) {
    const EngineLockScope lock;
    link_->get_Children().Add(result);
}

void DuckDBDatabase::RemoveQueryResult(nbx::mrsql::I_DuckDBQueryResult* result) {
    const EngineLockScope lock;
    link_->get_Children().Unlist(result);
}

bool DuckDBDatabase::get_IsInTransaction() {
    const EngineLockScope lock;
    const SharedConnection connection = link_->get_Connection();
    return connection && IsInTransaction(*connection);
}

void DuckDBDatabase::Interrupt() {
    if (IsInterruptionAllowed()) {
        link_->Interrupt();
        running_stops_.StopAll();
    }
}

bool DuckDBDatabase::IsInMemory() const {
    const auto extension = nbx::mrsql::GetDuckDBExtension();
    return extension ? extension->IsInMemoryPath(path_) : path_ == nbx::String(":memory:");
}

}  // namespace mduckdb
