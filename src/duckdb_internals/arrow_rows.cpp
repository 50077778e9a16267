#include "duckdb_internals/arrow_rows.h"

#include <duckdb/common/type_visitor.hpp>
#include <duckdb/common/types/data_chunk.hpp>
#include <duckdb/common/vector_operations/vector_operations.hpp>
#include <duckdb/main/capi/capi_internal.hpp>
#include <duckdb/main/client_context.hpp>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "duckdb_internals/arrow_schema.h"
#include "duckdb_internals/column_guard.h"
#include "duckdb_internals/out_of_memory.h"
#include "duckdb_internals/results.h"
#include "duckdb_internals/version_differences.h"

namespace mduckdb {
namespace {

using duckdb::DataChunk;
using duckdb::LogicalType;
using duckdb::LogicalTypeId;
using duckdb::Vector;

struct ErrorDataTraits {
    using Handle = duckdb_error_data;
    static void Destroy(Handle handle) noexcept { duckdb_destroy_error_data(&handle); }
};
using ErrorDataHolder = Holder<ErrorDataTraits>;

/** Throws DuckDB's error, if it is one. Takes ownership of it. DuckDB reports exhausted memory as invalid
   input, with the text of the exception. */
void ThrowError(duckdb_error_data error) {
    const ErrorDataHolder holder(error);
    if (!holder) {
        return;
    }
    const std::string text = duckdb_error_data_message(holder.get());
    if (text == std::bad_alloc().what() ||
        duckdb::ErrorData(text).Type() == duckdb::ExceptionType::OUT_OF_MEMORY) {
        throw std::bad_alloc();
    }
    throw std::runtime_error(text);
}

LogicalType ToExportedType(const LogicalType& type) {
    return duckdb::TypeVisitor::VisitReplace(type, [](const LogicalType& part) {
        return part.id() == LogicalTypeId::VARIANT ? LogicalType::JSON() : part;
    });
}

/** Lets the texts of VARIANTs that are NULL be NULL too: DuckDB casts them to the text `null`. Both vectors
   have the same lists, which a cast does not move. */
void KeepNulls(Vector& source, Vector& texts, idx_t count) {
    if (!duckdb::TypeVisitor::Contains(source.GetType(), LogicalTypeId::VARIANT)) {
        return;
    }
    version::Flatten(source, count);
    version::Flatten(texts, count);
    switch (source.GetType().id()) {
        case LogicalTypeId::VARIANT:
            for (idx_t row = 0; row < count; ++row) {
                if (duckdb::FlatVector::IsNull(source, row)) {
                    duckdb::FlatVector::SetNull(texts, row, true);
                }
            }
            break;
        case LogicalTypeId::LIST:
        case LogicalTypeId::MAP:
            KeepNulls(version::ListChild(source), version::ListChild(texts),
                      duckdb::ListVector::GetListSize(source));
            break;
        case LogicalTypeId::ARRAY:
            KeepNulls(version::ArrayChild(source), version::ArrayChild(texts),
                      count * duckdb::ArrayType::GetSize(source.GetType()));
            break;
        default:  // STRUCT, UNION and types with the same parts
            for (idx_t i = 0; i < duckdb::StructType::GetChildCount(source.GetType()); ++i) {
                KeepNulls(version::StructChild(source, i), version::StructChild(texts, i), count);
            }
    }
}

duckdb::DuckDBResultData& DataOf(duckdb_result& result) {
    auto& data = *static_cast<duckdb::DuckDBResultData*>(result.internal_data);
    if (const duckdb::ErrorData* const error = version::FindError(data)) {
        error->Throw();
    }
    return data;
}

duckdb::ClientProperties LosslessProperties(duckdb::ClientContext& context) {
    duckdb::ClientProperties properties = context.GetClientProperties();
    properties.arrow_lossless_conversion = true;
    return properties;
}

}  // namespace

struct ArrowRows::State {
    explicit State(duckdb_result& result)
        : context(*version::ClientPropertiesOf(DataOf(result)).client_context),
          properties(LosslessProperties(context)),
          options(properties),
          result_types(version::ColumnTypes(DataOf(result))) {}
    ~State() {
        if (schema.release != nullptr) {
            schema.release(&schema);
        }
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    duckdb_arrow_options get_Options() { return reinterpret_cast<duckdb_arrow_options>(&options); }
    void ReadTypes();
    void MakeSchema(duckdb_result& result);
    /** The rows with their VARIANTs as texts. */
    void Cast(DataChunk& rows, DataChunk& cast);

    duckdb::ClientContext& context;
    duckdb::ClientProperties properties;
    duckdb::CClientArrowOptionsWrapper options;
    duckdb::vector<LogicalType> result_types;
    duckdb::vector<LogicalType> types;
    bool has_casts = false;
    ArrowSchema schema{};
};

void ArrowRows::State::ReadTypes() {
    for (const LogicalType& type : result_types) {
        const bool has_variant = duckdb::TypeVisitor::Contains(type, LogicalTypeId::VARIANT);
        types.push_back(has_variant ? ToExportedType(type) : type);
        has_casts = has_casts || has_variant;
    }
}

void ArrowRows::State::MakeSchema(duckdb_result& result) {
    std::vector<std::string> names;
    std::vector<const char*> name_pointers;
    std::vector<duckdb_logical_type> type_handles;
    names.reserve(types.size());
    for (idx_t column = 0; column < types.size(); ++column) {
        names.emplace_back(GetColumnName(result, column).value_or(""));
        name_pointers.push_back(names.back().c_str());
        type_handles.push_back(reinterpret_cast<duckdb_logical_type>(&types[column]));
    }
    ThrowError(duckdb_to_arrow_schema(get_Options(), type_handles.data(), name_pointers.data(), types.size(),
                                      &schema));
}

void ArrowRows::State::Cast(DataChunk& rows, DataChunk& cast) {
    const idx_t count = rows.size();
    cast.InitializeEmpty(types);
    for (idx_t column = 0; column < types.size(); ++column) {
        if (types[column] == result_types[column]) {
            cast.data[column].Reference(rows.data[column]);
        } else {
            cast.data[column].Initialize();
            const auto kept = HideUnreadable(rows.data[column], count, TextParts::variants);
            Vector& source = kept ? *kept : rows.data[column];
            duckdb::VectorOperations::Cast(context, source, cast.data[column], count);
            KeepNulls(source, cast.data[column], count);
        }
    }
    version::SetRowCount(cast, count);
}

ArrowRows::ArrowRows(duckdb_result& result) {
    try {
        state_ = std::make_unique<State>(result);
        state_->ReadTypes();
        state_->MakeSchema(result);
    } catch (const std::exception& error) {
        ThrowIfOutOfMemory();
        throw std::runtime_error(duckdb::ErrorData(error).Message());
    }
}

ArrowRows::ArrowRows(ArrowRows&&) noexcept = default;
ArrowRows& ArrowRows::operator=(ArrowRows&&) noexcept = default;
ArrowRows::~ArrowRows() = default;

void ArrowRows::CopySchema(ArrowSchema& out) const {
    CopyArrowSchema(state_->schema, out);
}

void ArrowRows::Convert(duckdb_data_chunk chunk, ArrowArray& out) const {
    try {
        DataChunk cast;
        if (state_->has_casts) {
            state_->Cast(*reinterpret_cast<DataChunk*>(chunk), cast);
            chunk = reinterpret_cast<duckdb_data_chunk>(&cast);
        }
        ArrowArray array{};
        ThrowError(duckdb_data_chunk_to_arrow(state_->get_Options(), chunk, &array));
        out = array;
    } catch (const std::exception& error) {
        ThrowIfOutOfMemory();
        throw std::runtime_error(duckdb::ErrorData(error).Message());
    }
}

ChunkHolder CopyRows(duckdb_data_chunk chunk, idx_t first) {
    DataChunk& rows = *reinterpret_cast<DataChunk*>(chunk);
    if (first >= rows.size()) {
        return {};
    }
    try {
        auto copy = std::make_unique<DataChunk>();
        copy->Initialize(duckdb::Allocator::DefaultAllocator(), rows.GetTypes());
        rows.Copy(*copy, first);
        return ChunkHolder(reinterpret_cast<duckdb_data_chunk>(copy.release()));
    } catch (const duckdb::OutOfMemoryException&) {
        throw std::bad_alloc();
    }
}

}  // namespace mduckdb
