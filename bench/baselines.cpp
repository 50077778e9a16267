#include "baselines.h"

#include <cmath>
#include <cstring>
#include <string>
#include <string_view>

#include "duckdb_internals/plain_functions.h"
#include "measure.h"
#include "stock_value.h"

namespace bench {
namespace {

/** Calls `begin(cells)` with the number of cells, then `per_chunk` with each chunk. */
template <class Begin, class PerChunk>
uint64_t ForEachChunk(duckdb_connection connection, const std::string& sql, Begin begin, PerChunk per_chunk) {
    duckdb_result result;
    if (duckdb_query(connection, sql.c_str(), &result) != DuckDBSuccess) {
        Die(duckdb_result_error(&result));
    }
    const uint64_t cells = duckdb_row_count(&result) * duckdb_column_count(&result);
    begin(cells);
    while (duckdb_data_chunk chunk = duckdb_fetch_chunk(result)) {
        per_chunk(chunk);
        duckdb_destroy_data_chunk(&chunk);
    }
    duckdb_destroy_result(&result);
    return cells;
}

void Nothing(uint64_t /*cells*/) {}

nbx::I_Value* MakeText(const char* text, std::size_t length) {
    const std::string_view view(text, length);
    return nbx::CreateValueString(false, &view, nullptr);
}

nbx::I_Value* MakeNull() {
    nbx::I_Value* value = nbx::CreateValueBoolean(true, nullptr, nullptr);
    value->put_IsNull(true);
    return value;
}

nbx::I_Value* MakeTextOf(duckdb_value value) {
    char* text = duckdb_get_varchar(value);
    nbx::I_Value* made = MakeText(text, std::strlen(text));
    duckdb_free(text);
    return made;
}

template <class T>
nbx::I_Value* MakeNumber(nbx::I_Value* (*factory)(bool, const void*, const void*), T number) {
    return factory(false, &number, nullptr);
}

/** The array in a VARIANT as the host receives it. DuckDB's text of the arrays here has nothing to
    escape. */
nbx::I_Value* MakeEnvelope(duckdb_value array) {
    char* text = duckdb_get_varchar(array);
    std::string envelope = R"({"duckdb_variant":true,"variant_type":"ARRAY","value":")";
    envelope += text;
    envelope += "\"}";
    duckdb_free(text);
    const std::string_view content = envelope;
    return nbx::CreateValueJSON(false, &content, nullptr);
}

nbx::I_Value* FromValue(duckdb_value value);

nbx::I_Value* FromVariant(duckdb_value value) {
    constexpr uint32_t kArray = 30;
    const bool is_array = duckdb_value_variant_type(value) == kArray;
    duckdb_value child = duckdb_value_variant_child(value);
    nbx::I_Value* made = is_array ? MakeEnvelope(child) : FromValue(child);
    duckdb_destroy_value(&child);
    return made;
}

/** The values that the cursors deliver, read with stock calls on a DuckDB value. */
nbx::I_Value* FromValue(duckdb_value value) {
    if (duckdb_is_null_value(value)) {
        return MakeNull();
    }
    switch (duckdb_get_type_id(duckdb_get_value_type(value))) {
        case DUCKDB_TYPE_SMALLINT:
            return MakeNumber(nbx::CreateValueShort, duckdb_get_int16(value));
        case DUCKDB_TYPE_INTEGER:
            return MakeNumber(nbx::CreateValueLong, duckdb_get_int32(value));
        case DUCKDB_TYPE_BIGINT:
            return MakeNumber(nbx::CreateValueLLong, duckdb_get_int64(value));
        case DUCKDB_TYPE_DOUBLE:
        case DUCKDB_TYPE_DECIMAL:
            return MakeNumber(nbx::CreateValueDouble, duckdb_get_double(value));
        case DUCKDB_TYPE_VARIANT:
            return FromVariant(value);
        default:
            return MakeTextOf(value);
    }
}

double GetDecimal(const VectorView& view, idx_t row) {
    switch (view.storage) {
        case DUCKDB_TYPE_SMALLINT:
            return static_cast<const int16_t*>(view.data)[row] / view.scale;
        case DUCKDB_TYPE_INTEGER:
            return static_cast<const int32_t*>(view.data)[row] / view.scale;
        default:
            return static_cast<double>(static_cast<const int64_t*>(view.data)[row]) / view.scale;
    }
}

void PutDigits(char* place, int count, int number) {
    for (int i = count - 1; i >= 0; --i) {
        place[i] = static_cast<char>('0' + number % 10);
        number /= 10;
    }
}

/** For the years 0 to 9999. */
nbx::I_Value* MakeDate(duckdb_date date) {
    const duckdb_date_struct parts = duckdb_from_date(date);
    char text[] = "0000-00-00";
    PutDigits(text, 4, parts.year);
    PutDigits(text + 5, 2, parts.month);
    PutDigits(text + 8, 2, parts.day);
    return MakeText(text, sizeof text - 1);
}

/** The same host values straight from the vector. */
nbx::I_Value* FromVector(const VectorView& view, idx_t row) {
    if (view.IsNull(row)) {
        return MakeNull();
    }
    switch (view.type) {
        case DUCKDB_TYPE_SMALLINT:
            return MakeNumber(nbx::CreateValueShort, static_cast<const int16_t*>(view.data)[row]);
        case DUCKDB_TYPE_INTEGER:
            return MakeNumber(nbx::CreateValueLong, static_cast<const int32_t*>(view.data)[row]);
        case DUCKDB_TYPE_BIGINT:
            return MakeNumber(nbx::CreateValueLLong, static_cast<const int64_t*>(view.data)[row]);
        case DUCKDB_TYPE_DOUBLE:
            return MakeNumber(nbx::CreateValueDouble, static_cast<const double*>(view.data)[row]);
        case DUCKDB_TYPE_DECIMAL:
            return MakeNumber(nbx::CreateValueDouble, GetDecimal(view, row));
        case DUCKDB_TYPE_DATE:
            return MakeDate(static_cast<const duckdb_date*>(view.data)[row]);
        case DUCKDB_TYPE_VARCHAR: {
            duckdb_string_t text = static_cast<const duckdb_string_t*>(view.data)[row];
            return MakeText(duckdb_string_t_data(&text), duckdb_string_t_length(text));
        }
        default:
            Die("no vector reading for this type");
    }
}

template <class Deliver>
void ReadValues(duckdb_data_chunk chunk, Deliver deliver) {
    const idx_t rows = duckdb_data_chunk_get_size(chunk);
    const idx_t columns = duckdb_data_chunk_get_column_count(chunk);
    for (idx_t row = 0; row < rows; ++row) {
        for (idx_t column = 0; column < columns; ++column) {
            duckdb_value value = GetStockValue(chunk, column, row);
            deliver(FromValue(value));
            duckdb_destroy_value(&value);
        }
    }
}

template <class Deliver>
void ReadVectors(duckdb_data_chunk chunk, Deliver deliver) {
    const std::vector<VectorView> vectors = GetVectors(chunk);
    const idx_t rows = duckdb_data_chunk_get_size(chunk);
    for (idx_t row = 0; row < rows; ++row) {
        for (const VectorView& view : vectors) {
            deliver(FromVector(view, row));
        }
    }
}

void UseAndRelease(nbx::I_Value* value) {
    Consume(value->get_TypeCode());
    value->Release();
}

}  // namespace

std::vector<VectorView> GetVectors(duckdb_data_chunk chunk) {
    std::vector<VectorView> views;
    for (idx_t column = 0; column < duckdb_data_chunk_get_column_count(chunk); ++column) {
        duckdb_vector vector = duckdb_data_chunk_get_vector(chunk, column);
        duckdb_logical_type type = duckdb_vector_get_column_type(vector);
        VectorView view{duckdb_get_type_id(type), DUCKDB_TYPE_INVALID, 1, duckdb_vector_get_data(vector),
                        duckdb_vector_get_validity(vector)};
        if (view.type == DUCKDB_TYPE_DECIMAL) {
            view.storage = duckdb_decimal_internal_type(type);
            view.scale = std::pow(10.0, duckdb_decimal_scale(type));
        }
        views.push_back(view);
        duckdb_destroy_logical_type(&type);
    }
    return views;
}

uint64_t Drain(duckdb_connection connection, const std::string& sql) {
    return ForEachChunk(connection, sql, Nothing, [](duckdb_data_chunk) {});
}

uint64_t ValueLoop(duckdb_connection connection, const std::string& sql) {
    return ForEachChunk(connection, sql, Nothing,
                        [](duckdb_data_chunk chunk) { ReadValues(chunk, UseAndRelease); });
}

uint64_t VectorLoop(duckdb_connection connection, const std::string& sql) {
    return ForEachChunk(connection, sql, Nothing,
                        [](duckdb_data_chunk chunk) { ReadVectors(chunk, UseAndRelease); });
}

uint64_t ValueLoopKept(duckdb_connection connection, const std::string& sql, KeptValues& kept) {
    return ForEachChunk(
        connection, sql, [&kept](uint64_t cells) { kept.Reserve(cells); },
        [&kept](duckdb_data_chunk chunk) {
            ReadValues(chunk, [&kept](nbx::I_Value* value) { kept.Keep(value); });
        });
}

uint64_t VectorLoopKept(duckdb_connection connection, const std::string& sql, KeptValues& kept) {
    return ForEachChunk(
        connection, sql, [&kept](uint64_t cells) { kept.Reserve(cells); },
        [&kept](duckdb_data_chunk chunk) {
            ReadVectors(chunk, [&kept](nbx::I_Value* value) { kept.Keep(value); });
        });
}

}  // namespace bench
