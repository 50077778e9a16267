// What DuckDB's handles are, here and in the rest of the folder: a `duckdb_value` is a heap `duckdb::Value`,
// a `duckdb_data_chunk` a `duckdb::DataChunk`, a `duckdb_vector` a `duckdb::Vector`, a `duckdb_logical_type`
// a `duckdb::LogicalType`, and the extracted statements are an `ExtractStatementsWrapper`.
#include "duckdb_internals/plain_functions.h"

#include <cstring>
#include <duckdb/common/type_visitor.hpp>
#include <duckdb/common/types/variant.hpp>
#include <duckdb/common/types/vector.hpp>
#include <duckdb/function/scalar/variant_utils.hpp>
#include <duckdb/main/capi/capi_internal.hpp>
#include <new>
#include <string_view>

#include "base/json_text.h"
#include "duckdb_internals/out_of_memory.h"
#include "duckdb_internals/value_guard.h"
#include "duckdb_internals/version_differences.h"
#include "duckdb_internals/version_statements.h"

namespace {

using duckdb::LogicalType;
using duckdb::LogicalTypeId;
using duckdb::Value;
namespace version = mduckdb::version;

const Value* Unwrap(duckdb_value value) {
    return reinterpret_cast<const Value*>(value);
}

duckdb_value Wrap(Value value) {
    return reinterpret_cast<duckdb_value>(new Value(std::move(value)));
}

/** A copy that `duckdb_free` frees, with a terminator. */
char* CopyText(std::string_view text) {
    auto* copy = static_cast<char*>(duckdb_malloc(text.size() + 1));
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

/** The type with every VARIANT in it complete: `duckdb_create_logical_type` creates one without its
    parts. */
LogicalType Complete(const LogicalType& type) {
    const auto is_incomplete = [](const LogicalType& part) {
        return part.id() == LogicalTypeId::VARIANT && !version::HasTypeInfo(part);
    };
    if (!duckdb::TypeVisitor::Contains(type, is_incomplete)) {
        return type;
    }
    return duckdb::TypeVisitor::VisitReplace(
        type, [&](const LogicalType& part) { return is_incomplete(part) ? LogicalType::VARIANT() : part; });
}

/** Whether a value can be cast to the type at all; a cast to one of the others reads invalid memory. */
bool IsCastTarget(const LogicalType& type) {
    return !duckdb::TypeVisitor::Contains(type, [](const LogicalType& part) {
        switch (part.id()) {
            case LogicalTypeId::INVALID:
            case LogicalTypeId::UNKNOWN:
            case LogicalTypeId::ANY:
                return true;
            case LogicalTypeId::DECIMAL:
            case LogicalTypeId::ENUM:
                return !version::HasTypeInfo(part);
            case LogicalTypeId::VARIANT:  // completed later
                return false;
            default:
                return part.IsNested() && !version::HasTypeInfo(part);
        }
    });
}

bool IsJsonText(const Value& value) {
    return value.type().id() == LogicalTypeId::VARCHAR && value.type().IsJSONType();
}

/** Whether the value is or contains JSON text that DuckDB's cast to VARIANT would turn into NULL or recurse
    into without limit. */
bool HoldsRefusedJson(const Value& value) {
    if (value.IsNull()) {
        return false;
    }
    if (IsJsonText(value)) {
        const auto& text = duckdb::StringValue::Get(value);
        if (mduckdb::NestsDeeperThan(text, mduckdb::kDeepestJson)) {
            return true;
        }
        Value variant;
        std::string error;
        return !version::TryCast(value, LogicalType::VARIANT(), variant, error) ||
               (variant.IsNull() && !mduckdb::IsJsonNull(text));
    }
    if (!duckdb::TypeVisitor::Contains(value.type(), [](const LogicalType& t) { return t.IsJSONType(); })) {
        return false;
    }
    const auto& children =
        value.type().InternalType() == duckdb::PhysicalType::STRUCT  ? duckdb::StructValue::GetChildren(value)
        : value.type().InternalType() == duckdb::PhysicalType::ARRAY ? duckdb::ArrayValue::GetChildren(value)
                                                                     : duckdb::ListValue::GetChildren(value);
    for (const auto& child : children) {
        if (HoldsRefusedJson(child)) {
            return true;
        }
    }
    return false;
}

bool ContainsVariant(const LogicalType& type) {
    return duckdb::TypeVisitor::Contains(type, LogicalTypeId::VARIANT);
}

/** A text as a value. DuckDB's own function checks the text and returns no value when it is not valid
    UTF-8, so a damaged file would turn texts into NULL. Checking again what DuckDB checked when it read the
    text also costs more than the copy. */
Value MakeTextValue(const duckdb::string_t& text, const LogicalType& type) {
    Value value = Value::BLOB(reinterpret_cast<duckdb::const_data_ptr_t>(text.GetData()), text.GetSize());
    version::Reinterpret(value, type);
    return value;
}

Value MakeCellValue(const duckdb::DataChunk& chunk, idx_t column, idx_t row) {
    const duckdb::Vector& vector = chunk.data[column];
    if (vector.GetVectorType() == duckdb::VectorType::FLAT_VECTOR &&
        vector.GetType().id() == LogicalTypeId::VARCHAR && !duckdb::FlatVector::IsNull(vector, row)) {
        return MakeTextValue(duckdb::FlatVector::GetData<duckdb::string_t>(vector)[row], vector.GetType());
    }
    return chunk.GetValue(column, row);
}

/** Calls `read(data)` with the value's VARIANT data; returns `nothing` when it is not a readable
    VARIANT. */
template <class Result, class Read>
Result ReadVariant(duckdb_value value, Result nothing, Read read) {
    try {
        const Value* variant = Unwrap(value);
        if (variant == nullptr || variant->IsNull() || variant->type().id() != LogicalTypeId::VARIANT ||
            !version::HasTypeInfo(variant->type())) {
            return nothing;
        }
        duckdb::Vector vector = version::MakeVector(*variant);
        duckdb::RecursiveUnifiedVectorFormat format;
        version::ToUnifiedFormat(vector, 1, format);
        return read(duckdb::UnifiedVariantVectorData(format));
    } catch (...) {
        mduckdb::ThrowIfOutOfMemory();
        return nothing;
    }
}

}  // namespace

duckdb_value duckdb_data_chunk_get_value(duckdb_data_chunk chunk, idx_t column, idx_t row) {
    try {
        const auto* data = reinterpret_cast<const duckdb::DataChunk*>(chunk);
        if (data == nullptr || column >= data->ColumnCount() || row >= data->size()) {
            return nullptr;
        }
        return Wrap(MakeCellValue(*data, column, row));
    } catch (...) {
        mduckdb::ThrowIfOutOfMemory();
        return nullptr;
    }
}

char* duckdb_logical_type_to_string(duckdb_logical_type type) {
    try {
        const auto* logical_type = reinterpret_cast<const LogicalType*>(type);
        return logical_type == nullptr ? nullptr : CopyText(logical_type->ToString());
    } catch (...) {
        mduckdb::ThrowIfOutOfMemory();
        return nullptr;
    }
}

char* duckdb_extracted_statement_sql(duckdb_extracted_statements statements, idx_t index) {
    try {
        const auto* extracted = reinterpret_cast<const duckdb::ExtractStatementsWrapper*>(statements);
        if (extracted == nullptr || index >= extracted->statements.size() || !extracted->statements[index]) {
            return nullptr;
        }
        return CopyText(version::OwnText(*extracted->statements[index]));
    } catch (...) {
        mduckdb::ThrowIfOutOfMemory();
        return nullptr;
    }
}

duckdb_state duckdb_cast_value(duckdb_value value, duckdb_logical_type type, duckdb_value* out_value,
                               char** out_error) {
    if (out_error != nullptr) {
        *out_error = nullptr;
    }
    if (out_value == nullptr) {
        return DuckDBError;
    }
    *out_value = nullptr;
    std::string error;
    try {
        const Value* source = Unwrap(value);
        const auto* asked = reinterpret_cast<const LogicalType*>(type);
        if (source == nullptr || asked == nullptr || !IsCastTarget(*asked) || !mduckdb::IsReadable(value)) {
            return DuckDBError;
        }
        const LogicalType target = Complete(*asked);
        if (ContainsVariant(target) && HoldsRefusedJson(*source)) {
            return DuckDBError;
        }
        Value result;
        if (version::TryCast(*source, target, result, error)) {
            *out_value = Wrap(std::move(result));
            return DuckDBSuccess;
        }
    } catch (const std::exception& thrown) {
        mduckdb::ThrowIfOutOfMemory();
        error = duckdb::ErrorData(thrown).RawMessage();
    } catch (...) {
        error.clear();
    }
    if (out_error != nullptr && !error.empty()) {
        *out_error = CopyText(error);
    }
    return DuckDBError;
}

uint32_t duckdb_value_variant_type(duckdb_value value) {
    return ReadVariant(value, UINT32_MAX, [](const duckdb::UnifiedVariantVectorData& data) {
        return static_cast<uint32_t>(data.GetTypeId(0, 0));
    });
}

duckdb_value duckdb_value_variant_child(duckdb_value value) {
    return ReadVariant(value, duckdb_value(nullptr), [](const duckdb::UnifiedVariantVectorData& data) {
        if (data.GetTypeId(0, 0) == duckdb::VariantLogicalType::VARCHAR) {
            return Wrap(
                MakeTextValue(duckdb::VariantUtils::DecodeStringData(data, 0, 0), LogicalType::VARCHAR));
        }
        return Wrap(duckdb::VariantUtils::ConvertVariantToValue(data, 0, 0));
    });
}

char* duckdb_get_varchar_length(duckdb_value value, idx_t* length) {
    if (length != nullptr) {
        *length = 0;
    }
    try {
        const Value* source = Unwrap(value);
        if (source == nullptr || source->IsNull() || !mduckdb::IsReadable(value)) {
            return nullptr;
        }
        const auto copy = [&](std::string_view text) {
            char* result = CopyText(text);
            if (length != nullptr) {
                *length = text.size();
            }
            return result;
        };
        if (source->type().id() == LogicalTypeId::VARCHAR) {
            return copy(duckdb::StringValue::Get(*source));
        }
        const Value text = source->DefaultCastAs(LogicalType::VARCHAR);
        return text.IsNull() ? nullptr : copy(duckdb::StringValue::Get(text));
    } catch (...) {
        mduckdb::ThrowIfOutOfMemory();
        return nullptr;
    }
}
