#include "objects/duckdb_cursor_imp.h"

#include "base/errors.h"
#include "base/text.h"
#include "duckdb_internals/plain_functions.h"

namespace mduckdb {
namespace {

nbx::String ToHostText(const char* text) {
    return text != nullptr ? FromUtf8(text) : nbx::String();
}

nbx::String ReadTypeName(duckdb_result* result, idx_t column) {
    const LogicalTypeHolder type(duckdb_column_logical_type(result, column));
    const TextHolder name(duckdb_logical_type_to_string(type.get()));
    return ToHostText(name.get());
}

template <class Names>
const nbx::String& ItemOrEmpty(const Names& names, uint32_t index) {
    return index < names.size() ? names[index] : nbx::String::sEmpty();
}

}  // namespace

void FetchStatus::KeepErrorOf(duckdb_result* result) {
    if (error_.isEmpty()) {
        error_ = ToHostText(duckdb_result_error(result));
    }
}

DuckDBCursor_imp::DuckDBCursor_imp(SharedLink link, ResultHolder result)
    : tie_(std::move(link)), result_(std::move(result)), has_result_(static_cast<bool>(result_)) {
    const EngineLockScope lock;
    RequireValid();
    ReadDescription();
    // Last, since nothing that fails from here on leaves the object in the list.
    tie_.get_Siblings().Add(this);
}

DuckDBCursor_imp::~DuckDBCursor_imp() {
    LeaveSiblings();
}

void DuckDBCursor_imp::LeaveSiblings() noexcept {
    try {
        const EngineLockScope lock;
        tie_.get_Siblings().Remove(this);
        result_.Reset();
    } catch (...) {
    }
}

uint32_t DuckDBCursor_imp::Release() {
    return ReleaseWith([this]() noexcept {
        LeaveSiblings();
        delete this;
    });
}

void* DuckDBCursor_imp::QueryInterface(uint32_t interface_id) {
    static constexpr nbx::InterfaceItem kTable[] = {
        {nbx::mrsql::kDuckDBCursorInterfaceId,
         nbx::CastToInterface<DuckDBCursor_imp, nbx::mrsql::I_DuckDBCursor>},
        {nbx::mrsql::kFetchStatusInterfaceId,
         [](void* object) -> void* {
             nbx::mrsql::I_FetchStatus* status = &static_cast<DuckDBCursor_imp*>(object)->fetch_status_;
             return status;
         }},
        {0, nullptr},
    };
    return nbx::InterfaceTableQueryInterface(this, kTable, interface_id);
}

const nbx::String& DuckDBCursor_imp::get_ColumnName(uint32_t column_index) const {
    return ItemOrEmpty(column_names_, column_index);
}

const nbx::String& DuckDBCursor_imp::get_ColumnTypeName(uint32_t column_index) const {
    return ItemOrEmpty(column_type_names_, column_index);
}

uint32_t DuckDBCursor_imp::get_ColumnType(uint32_t column_index) const {
    return column_index < column_types_.size() ? column_types_[column_index] : 0;
}

void DuckDBCursor_imp::Close() {
    const EngineLockScope lock;
    tie_.Cut();
    DropResult();
}

void DuckDBCursor_imp::DropResult() noexcept {
    has_result_.store(false);
    result_.Reset();
}

void DuckDBCursor_imp::Detach() {
    DropResult();
    tie_.get_Siblings().Remove(this);
    tie_.Cut();
}

void DuckDBCursor_imp::ThrowInvalid() {
    ThrowDetachedError("DuckDBCursor is invalid");
}

void DuckDBCursor_imp::ThrowError(const char* message) const {
    tie_.get_Link()->ThrowError(message);
}

ChunkHolder DuckDBCursor_imp::FetchChunk(ResultHolder& result) {
    ChunkHolder chunk(duckdb_fetch_chunk(*result));
    if (!chunk) {
        fetch_status_.KeepErrorOf(result.get());
    }
    return chunk;
}

void DuckDBCursor_imp::ReadDescription() {
    const idx_t count = duckdb_column_count(result_.get());
    column_names_.reserve(count);
    column_type_names_.reserve(count);
    column_types_.reserve(count);
    for (idx_t column = 0; column < count; ++column) {
        column_names_.push_back(ToHostText(duckdb_column_name(result_.get(), column)));
        column_types_.push_back(duckdb_column_type(result_.get(), column));
        column_type_names_.push_back(ReadTypeName(result_.get(), column));
    }
}

}  // namespace mduckdb
