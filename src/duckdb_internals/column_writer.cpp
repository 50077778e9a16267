#include "duckdb_internals/column_writer.h"

#include <cstring>
#include <duckdb/common/types/data_chunk.hpp>
#include <duckdb/common/types/value.hpp>
#include <duckdb/common/types/vector.hpp>
#include <duckdb/common/vector_operations/vector_operations.hpp>
#include <duckdb/function/cast/cast_function_set.hpp>
#include <duckdb/function/cast/default_casts.hpp>
#include <duckdb/main/capi/capi_internal.hpp>
#include <duckdb/main/connection.hpp>
#include <limits>

#include "duckdb_internals/out_of_memory.h"
#include "duckdb_internals/quick_casts.h"
#include "duckdb_internals/version_casts.h"
#include "duckdb_internals/version_vectors.h"

namespace mduckdb {
namespace {

using duckdb::Vector;

Vector& Unwrap(duckdb_vector vector) {
    return *reinterpret_cast<Vector*>(vector);
}

const duckdb::LogicalType& Unwrap(duckdb_logical_type type) {
    return *reinterpret_cast<const duckdb::LogicalType*>(type);
}

duckdb_type PlainType(duckdb_logical_type type) {
    return Unwrap(type).HasAlias() ? DUCKDB_TYPE_INVALID : duckdb_get_type_id(type);
}

/** The memory that elements have besides their places in a flat vector. */
uint64_t HeapBytesOf(Vector& vector, idx_t first, idx_t count) {
    const auto handle = reinterpret_cast<duckdb_vector>(&vector);
    const auto bytes_of_child = [&](duckdb_vector child, idx_t begin, idx_t length) {
        Vector& elements = Unwrap(child);
        return length * duckdb::GetTypeIdSize(elements.GetType().InternalType()) +
               HeapBytesOf(elements, begin, length);
    };
    const uint64_t* const validity = duckdb_vector_get_validity(handle);
    const auto sum = [&](auto bytes_of_one) {
        uint64_t bytes = 0;
        for (idx_t i = first; i < first + count; ++i) {
            bytes += validity == nullptr || (validity[i / 64] >> (i % 64) & 1U) != 0 ? bytes_of_one(i) : 0;
        }
        return bytes;
    };
    switch (vector.GetType().InternalType()) {
        case duckdb::PhysicalType::VARCHAR: {
            const auto* const texts = static_cast<duckdb_string_t*>(duckdb_vector_get_data(handle));
            return sum([&](idx_t i) { return uint64_t{duckdb_string_t_length(texts[i])}; });
        }
        case duckdb::PhysicalType::LIST: {
            const auto* const lists = static_cast<duckdb_list_entry*>(duckdb_vector_get_data(handle));
            const duckdb_vector child = duckdb_list_vector_get_child(handle);
            return sum([&](idx_t i) { return bytes_of_child(child, lists[i].offset, lists[i].length); });
        }
        case duckdb::PhysicalType::ARRAY: {
            const idx_t size = duckdb::ArrayType::GetSize(vector.GetType());
            return bytes_of_child(duckdb_array_vector_get_child(handle), first * size, count * size);
        }
        case duckdb::PhysicalType::STRUCT: {
            uint64_t bytes = 0;
            for (idx_t i = 0; i < duckdb::StructType::GetChildCount(vector.GetType()); ++i) {
                bytes += bytes_of_child(duckdb_struct_vector_get_child(handle, i), first, count);
            }
            return bytes;
        }
        default:
            return 0;
    }
}

/** The message without its kind. */
std::string MessageOf(const std::exception& error) {
    return duckdb::ErrorData(error).RawMessage();
}

duckdb::ClientContext& ContextOf(duckdb_connection connection) {
    return *reinterpret_cast<duckdb::Connection*>(connection)->context;
}

duckdb::BoundCastInfo FindCast(duckdb::ClientContext& context, const duckdb::LogicalType& source,
                               const duckdb::LogicalType& target) {
    duckdb::GetCastFunctionInput input(context);
    return duckdb::CastFunctionSet::Get(context).GetCastFunction(source, target, input);
}

/** A type of the casts that `PlainCast` runs: with elements of one size, cast without a state. */
bool IsPlain(duckdb_type type) {
    switch (type) {
        case DUCKDB_TYPE_BOOLEAN:
        case DUCKDB_TYPE_TINYINT:
        case DUCKDB_TYPE_SMALLINT:
        case DUCKDB_TYPE_INTEGER:
        case DUCKDB_TYPE_BIGINT:
        case DUCKDB_TYPE_UTINYINT:
        case DUCKDB_TYPE_USMALLINT:
        case DUCKDB_TYPE_UINTEGER:
        case DUCKDB_TYPE_UBIGINT:
        case DUCKDB_TYPE_HUGEINT:
        case DUCKDB_TYPE_UHUGEINT:
        case DUCKDB_TYPE_FLOAT:
        case DUCKDB_TYPE_DOUBLE:
        case DUCKDB_TYPE_DECIMAL:
        case DUCKDB_TYPE_DATE:
        case DUCKDB_TYPE_TIME:
        case DUCKDB_TYPE_TIMESTAMP:
        case DUCKDB_TYPE_TIMESTAMP_S:
        case DUCKDB_TYPE_TIMESTAMP_MS:
        case DUCKDB_TYPE_TIMESTAMP_NS:
            return true;
        default:
            return false;
    }
}

}  // namespace

ColumnWriter::ColumnWriter(duckdb_connection connection, LogicalTypeHolder type, uint64_t& heap_bytes)
    : connection_(connection),
      type_(std::move(type)),
      plain_(PlainType(type_.get())),
      is_plain_(IsPlain(plain_)),
      heap_bytes_(&heap_bytes) {}

ColumnWriter::ColumnWriter(ColumnWriter&&) noexcept = default;
ColumnWriter::~ColumnWriter() = default;

uint64_t ColumnWriter::get_Width() const {
    return duckdb::GetTypeIdSize(Unwrap(type_.get()).InternalType());
}

void ColumnWriter::Attach(duckdb_vector vector) noexcept {
    vector_ = vector;
    data_ = duckdb_vector_get_data(vector);
}

void ColumnWriter::PutNull(idx_t row) {
    try {
        duckdb::FlatVector::SetNull(Unwrap(vector_), row, true);
    } catch (const std::exception&) {
        throw std::bad_alloc();
    }
}

void ColumnWriter::ClearNull(idx_t row) noexcept {
    if (uint64_t* const validity = duckdb_vector_get_validity(vector_)) {
        duckdb_validity_set_row_valid(validity, row);
    }
}

bool ColumnWriter::PutText(idx_t row, std::string_view text) {
    if (text.size() > std::numeric_limits<uint32_t>::max()) {
        return false;
    }
    if (plain_ != DUCKDB_TYPE_VARCHAR) {
        const duckdb::string_t element(text.data(), static_cast<uint32_t>(text.size()));
        return PutCast(DUCKDB_TYPE_VARCHAR, row, &element);
    }
    try {
        static_cast<duckdb::string_t*>(data_)[row] =
            duckdb::StringVector::AddStringOrBlob(Unwrap(vector_), text.data(), text.size());
        *heap_bytes_ += text.size();
    } catch (const std::exception&) {
        throw std::bad_alloc();
    }
    return true;
}

bool ColumnWriter::PutBlob(idx_t row, const void* data, uint64_t length) {
    if (plain_ != DUCKDB_TYPE_BLOB || length > std::numeric_limits<uint32_t>::max()) {
        return false;
    }
    try {
        static_cast<duckdb::string_t*>(data_)[row] = duckdb::StringVector::AddStringOrBlob(
            Unwrap(vector_), length == 0 ? "" : static_cast<const char*>(data), length);
        *heap_bytes_ += length;
    } catch (const std::exception&) {
        throw std::bad_alloc();
    }
    return true;
}

/** DuckDB's own cast of one element, which is looked up once: the look-up costs many times the cast. */
struct ColumnWriter::PlainCast {
    PlainCast(duckdb::ClientContext& context, duckdb_type source_type, const duckdb::LogicalType& type)
        : from(source_type),
          source(Unwrap(MakeType(source_type).get()), idx_t{1}),
          target(type, idx_t{1}),
          cast(FindCast(context, source.GetType(), type)),
          source_size(duckdb::GetTypeIdSize(source.GetType().InternalType())),
          target_size(duckdb::GetTypeIdSize(type.InternalType())) {
        version::SetVectorSize(source, 1);
    }

    bool Run(const void* element, void* slot) {
        error.clear();
        duckdb::CastParameters parameters(version::DataOf(cast), false, &error, nullptr);
        std::memcpy(DataIn(source), element, source_size);
        if (!version::RunCast(cast, source, target, 1, parameters) || !error.empty()) {
            duckdb::FlatVector::SetNull(target, 0, false);
            return false;
        }
        std::memcpy(slot, DataIn(target), target_size);
        return true;
    }
    static void* DataIn(Vector& vector) {
        return duckdb_vector_get_data(reinterpret_cast<duckdb_vector>(&vector));
    }

    const duckdb_type from;
    Vector source;
    Vector target;
    duckdb::BoundCastInfo cast;
    const std::size_t source_size;
    const std::size_t target_size;
    std::string error;
};

void ColumnWriter::PreparePlainCast(duckdb_type type) {
    const duckdb::LogicalType& target = Unwrap(type_.get());
    auto cast = std::make_unique<PlainCast>(ContextOf(connection_), type, target);
    const auto slot_size = static_cast<uint32_t>(cast->target_size);
    const QuickCast quick = FindQuickCast(ContextOf(connection_), cast->cast, cast->source.GetType(), target);
    const bool is_decimal = target.id() == duckdb::LogicalTypeId::DECIMAL;
    quick_ = {quick, type, slot_size, is_decimal ? duckdb::DecimalType::GetWidth(target) : uint8_t{0},
              is_decimal ? duckdb::DecimalType::GetScale(target) : uint8_t{0}};
    cast_ = std::move(cast);
}

bool ColumnWriter::PutPlainCast(duckdb_type type, idx_t row, const void* element) {
    if (!is_plain_) {
        return false;
    }
    try {
        if (!cast_ || cast_->from != type) {
            PreparePlainCast(type);
        }
        return cast_->Run(element, static_cast<char*>(data_) + row * cast_->target_size);
    } catch (const std::exception&) {
        ThrowIfOutOfMemory();
        return false;  // `PutValue` reports it.
    }
}

bool ColumnWriter::PutValue(idx_t row, duckdb_value value, std::string& error) {
    try {
        const auto& made = *reinterpret_cast<const duckdb::Value*>(value);
        Vector source(made.type(), idx_t{1});
        source.SetValue(0, made);
        version::SetVectorSize(source, 1);
        return CastOne(reinterpret_cast<duckdb_vector>(&source), 0, row, error);
    } catch (const std::exception& failed) {
        ThrowIfOutOfMemory();
        error = MessageOf(failed);
        return false;
    }
}

bool ColumnWriter::CastOne(duckdb_vector source, idx_t source_row, idx_t row, std::string& error) {
    Vector one(Unwrap(source), source_row, source_row + 1);
    return Cast(reinterpret_cast<duckdb_vector>(&one), 1, row, error);
}

bool ColumnWriter::Cast(duckdb_vector source, idx_t count, idx_t row, std::string& error) {
    try {
        Vector cast(Unwrap(type_.get()), count);
        // Some casts report a failure by the text alone.
        if (!duckdb::VectorOperations::TryCast(ContextOf(connection_), Unwrap(source), cast, count, &error) ||
            !error.empty()) {
            return false;
        }
        duckdb::VectorOperations::Copy(cast, Unwrap(vector_), count, 0, row);
    } catch (const std::exception& failed) {
        ThrowIfOutOfMemory();
        error = MessageOf(failed);
        return false;
    }
    *heap_bytes_ += HeapBytesOf(Unwrap(vector_), row, count);
    return true;
}

idx_t ColumnWriter::PutVector(idx_t row, duckdb_vector vector, idx_t count, std::string& error) {
    version::SetVectorSize(Unwrap(vector), count);
    if (count == 0 || Cast(vector, count, row, error)) {
        return count;
    }
    for (idx_t i = 0; i < count; ++i) {
        error.clear();
        if (!CastOne(vector, i, row + i, error)) {
            return i;
        }
    }
    return count;
}

ColumnWriter::Source::Source(const ColumnWriter& column, LogicalTypeHolder type, idx_t capacity)
    : writer_(column.connection_, std::move(type), heap_bytes_),
      vector_(duckdb_create_vector(writer_.get_Type(), capacity)) {
    if (vector_ == nullptr) {
        throw std::bad_alloc();
    }
    writer_.Attach(vector_);
}

ColumnWriter::Source::~Source() {
    duckdb_destroy_vector(&vector_);
}

}  // namespace mduckdb
