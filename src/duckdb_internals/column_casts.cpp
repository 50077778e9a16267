#include "duckdb_internals/column_casts.h"

#include <duckdb/common/types/data_chunk.hpp>
#include <duckdb/common/vector_operations/vector_operations.hpp>
#include <string>

#include "duckdb_internals/column_guard.h"
#include "duckdb_internals/out_of_memory.h"
#include "duckdb_internals/version_differences.h"
#include "duckdb_internals/version_vectors.h"

namespace mduckdb {
namespace {

using duckdb::Vector;

/** DuckDB throws for some values that their type does not allow; the other rows may still be fine. Each is
    copied, because a slice of one row still has the elements of all lists, and DuckDB casts these at once. */
void CastRows(duckdb::ClientContext& context, Vector& source, Vector& target, idx_t count) {
    std::string ignored;
    for (idx_t row = 0; row < count; ++row) {
        Vector one(source.GetType(), idx_t{1});
        duckdb::VectorOperations::Copy(source, one, row + 1, row, 0);
        Vector cast(target.GetType(), idx_t{1});
        try {
            duckdb::VectorOperations::TryCast(context, one, cast, 1, &ignored);
        } catch (const std::exception&) {
            ThrowIfOutOfMemory();
            duckdb::FlatVector::SetNull(cast, 0, true);
            version::SetVectorSize(cast, 1);
        }
        duckdb::VectorOperations::Copy(cast, target, 1, 0, row);
    }
    version::SetVectorSize(target, count);
}

std::unique_ptr<Vector> CastReadable(duckdb::ClientContext& context, Vector& source, duckdb_type type,
                                     idx_t count) {
    const duckdb::LogicalType target_type(duckdb::LogicalTypeIdFromC(type));
    auto target = std::make_unique<Vector>(target_type, count);
    try {
        std::string ignored;
        duckdb::VectorOperations::TryCast(context, source, *target, count, &ignored);
        version::Flatten(*target, count);
    } catch (const std::exception&) {
        ThrowIfOutOfMemory();
        target = std::make_unique<Vector>(target_type, count);
        CastRows(context, source, *target, count);
    }
    return target;
}

std::unique_ptr<Vector> Cast(duckdb::ClientContext& context, Vector& source, duckdb_type type, idx_t count) {
    // The casts to other targets, which start from plain numbers, are safe for any number.
    const auto kept = type == DUCKDB_TYPE_VARCHAR ? HideUnreadable(source, count, TextParts::all) : nullptr;
    return CastReadable(context, kept ? *kept : source, type, count);
}

}  // namespace

ColumnCasts::ColumnCasts(duckdb_connection connection, const std::vector<duckdb_type>& targets)
    : context_(reinterpret_cast<duckdb::Connection*>(connection)->context.get()),
      targets_(targets),
      columns_(targets.size()) {}

ColumnCasts::ColumnCasts(ColumnCasts&&) noexcept = default;
ColumnCasts& ColumnCasts::operator=(ColumnCasts&&) noexcept = default;
ColumnCasts::~ColumnCasts() = default;

void ColumnCasts::Apply(duckdb::DataChunk& chunk) {
    for (idx_t i = 0; i < targets_.size(); ++i) {
        if (targets_[i] != DUCKDB_TYPE_INVALID) {
            columns_[i].reset();
            columns_[i] = Cast(*context_, chunk.data[i], targets_[i], chunk.size());
        }
    }
}

}  // namespace mduckdb
