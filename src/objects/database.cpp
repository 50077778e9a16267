#include "objects/database.h"

#include <utility>

#include "base/errors.h"
#include "base/text.h"
#include "engines/handle_registry.h"
#include "nbx/mrsql/registry.h"
#include "objects/statement.h"

namespace mduckdb {

DuckDBDatabase::DuckDBDatabase(nbx::smart_ptr<nbx::I_Location> location)
    : location_(std::move(location)),
      path_(location_->get_PathText()),
      children_(std::make_shared<ChildLists>()) {}

DuckDBDatabase::~DuckDBDatabase() {
    try {
        Close();
    } catch (...) {  // Nobody is left to tell.
    }
    children_->Orphan();
}

uint32_t DuckDBDatabase::AddRef() {
    return refs_.Increment();
}

uint32_t DuckDBDatabase::Release() {
    const uint32_t count = refs_.Decrement();
    if (count == 0) {
        delete this;
    }
    return count;
}

void* DuckDBDatabase::QueryInterface(uint32_t interface_id) {
    static const nbx::InterfaceItem kTable[] = {{0, nullptr}};
    return nbx::InterfaceTableQueryInterface(this, kTable, interface_id);
}

uint32_t DuckDBDatabase::get_RefsCount() const {
    return refs_.get_Value();
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
    are_options_given_ = true;
}

nbx::smart_ptr<nbx::mrsql::I_DuckDBStatement> DuckDBDatabase::CreateStatement(const nbx::String& sql) {
    const EngineLockScope lock;
    if (!engine_) {
        ThrowError("DuckDBDatabase is not open");
    }
    auto statement = MakeStatement(*this, sql);
    children_->Add(statement.get());
    return statement;
}

void DuckDBDatabase::RemoveStatement(nbx::mrsql::I_DuckDBStatement* statement) {
    const EngineLockScope lock;
    RequireConnection();
    if (!children_->Remove(statement)) {
        ThrowError("DuckDBStatement does not belong to this database");
    }
}

void DuckDBDatabase::AddCursor(nbx::mrsql::I_DuckDBCursor* cursor) {
    const EngineLockScope lock;
    children_->Add(cursor);
}

void DuckDBDatabase::RemoveCursor(nbx::mrsql::I_DuckDBCursor* cursor) {
    const EngineLockScope lock;
    children_->Remove(cursor);
}

void DuckDBDatabase::AddQueryResult(nbx::mrsql::I_DuckDBQueryResult* result) {
    const EngineLockScope lock;
    children_->Add(result);
}

void DuckDBDatabase::RemoveQueryResult(nbx::mrsql::I_DuckDBQueryResult* result) {
    const EngineLockScope lock;
    children_->Remove(result);
}

SharedConnection DuckDBDatabase::RequireConnection() {
    SharedConnection connection = get_Connection();
    if (!engine_ || !connection) {
        ThrowError("DuckDBDatabase is not open");
    }
    return connection;
}

std::string DuckDBDatabase::ToSql(const nbx::String& sql) const {
    std::string text = ToUtf8(sql);
    if (text.find('\0') != std::string::npos) {
        ThrowError("SQL text must not contain NUL characters");
    }
    return text;
}

void DuckDBDatabase::ThrowError(std::string_view message) const {
    ThrowDuckDBError(get_ErrorPath(), message);
}

bool DuckDBDatabase::IsInMemory() const {
    const auto extension = nbx::mrsql::GetDuckDBExtension();
    return extension ? extension->IsInMemoryPath(path_) : path_ == nbx::String(":memory:");
}

std::string DuckDBDatabase::get_EngineFile() const {
    return IsInMemory() ? std::string() : ToUtf8(path_);
}

}  // namespace mduckdb
