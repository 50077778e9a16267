#pragma once

#include <duckdb.h>

#include <concepts>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "base/holders.h"
#include "duckdb_internals/quick_casts.h"

namespace mduckdb {

/** Stores values in one column of one chunk after another.

    `Put` stores a value that has the column's type, a number that the type holds, and what DuckDB casts
    between types with elements of one size. It returns false for all others, which `PutValue` casts as DuckDB
    casts a parameter of an INSERT, and which it reports. A row may be stored again. Not for two threads at
    once. */
class ColumnWriter {
  public:
    /** DuckDB casts with the settings of the connection. The memory of texts and other elements of no fixed
        size is added to `heap_bytes`. Both must outlive this. */
    ColumnWriter(duckdb_connection connection, LogicalTypeHolder type, uint64_t& heap_bytes);
    ColumnWriter(ColumnWriter&&) noexcept;
    ~ColumnWriter();

    duckdb_logical_type get_Type() const noexcept { return type_.get(); }
    /** The type as far as it can be stored without a cast; INVALID for a type with a name of its own, such as
        JSON, which may have rules of its own. */
    duckdb_type get_Plain() const noexcept { return plain_; }
    /** The bytes of an element in a vector. */
    uint64_t get_Width() const;
    /** Selects the vector to store in, which must have the column's type. */
    void Attach(duckdb_vector vector) noexcept;

    // Throw `std::bad_alloc`.

    void PutNull(idx_t row);
    /** The row is not NULL any more; before a row is stored again. */
    void ClearNull(idx_t row) noexcept;
    template <class Value>
    bool Put(idx_t row, Value value) {
        constexpr duckdb_type kType = TypeOf(Value{});
        if constexpr (std::integral<Value> && kType != DUCKDB_TYPE_BOOLEAN) {
            return PutInteger(row, value) || PutCast(kType, row, &value);
        } else {
            return PutIf(kType, row, value) || PutCast(kType, row, &value);
        }
    }
    /** The text must be valid UTF-8. */
    bool PutText(idx_t row, std::string_view text);
    bool PutBlob(idx_t row, const void* data, uint64_t length);
    /** False and DuckDB's text if the value cannot be cast. The value is not NULL. */
    bool PutValue(idx_t row, duckdb_value value, std::string& error);

    class Source;
    /** Stores `count` elements of a vector of another type, from the row on. Returns how many could be
        stored, and DuckDB's text for the one after them. */
    idx_t PutVector(idx_t row, duckdb_vector vector, idx_t count, std::string& error);
    void* get_Data() const noexcept { return data_; }
    duckdb_vector get_Vector() const noexcept { return vector_; }

  private:
    struct PlainCast;
    /** The quick form of the last cast. */
    struct Quick {
        QuickCast cast = nullptr;
        duckdb_type from = DUCKDB_TYPE_INVALID;
        uint32_t slot_size = 0;
        uint8_t width = 0;
        uint8_t scale = 0;
    };

    static constexpr duckdb_type TypeOf(bool) { return DUCKDB_TYPE_BOOLEAN; }
    static constexpr duckdb_type TypeOf(int16_t) { return DUCKDB_TYPE_SMALLINT; }
    static constexpr duckdb_type TypeOf(int32_t) { return DUCKDB_TYPE_INTEGER; }
    static constexpr duckdb_type TypeOf(int64_t) { return DUCKDB_TYPE_BIGINT; }
    static constexpr duckdb_type TypeOf(uint8_t) { return DUCKDB_TYPE_UTINYINT; }
    static constexpr duckdb_type TypeOf(uint16_t) { return DUCKDB_TYPE_USMALLINT; }
    static constexpr duckdb_type TypeOf(uint32_t) { return DUCKDB_TYPE_UINTEGER; }
    static constexpr duckdb_type TypeOf(uint64_t) { return DUCKDB_TYPE_UBIGINT; }
    static constexpr duckdb_type TypeOf(float) { return DUCKDB_TYPE_FLOAT; }
    static constexpr duckdb_type TypeOf(double) { return DUCKDB_TYPE_DOUBLE; }
    static constexpr duckdb_type TypeOf(duckdb_date) { return DUCKDB_TYPE_DATE; }
    static constexpr duckdb_type TypeOf(duckdb_time) { return DUCKDB_TYPE_TIME; }
    static constexpr duckdb_type TypeOf(duckdb_timestamp_ms) { return DUCKDB_TYPE_TIMESTAMP_MS; }

    template <class Slot>
    bool Set(idx_t row, Slot value) noexcept {
        static_cast<Slot*>(data_)[row] = value;
        return true;
    }
    template <class Slot>
    bool PutIf(duckdb_type type, idx_t row, Slot value) noexcept {
        return plain_ == type && Set(row, value);
    }
    template <class Slot, class Number>
    bool SetInRange(idx_t row, Number number) noexcept {
        return std::in_range<Slot>(number) && Set(row, static_cast<Slot>(number));
    }
    template <class Number>
    bool PutInteger(idx_t row, Number number) noexcept {
        switch (plain_) {
            case DUCKDB_TYPE_TINYINT:
                return SetInRange<int8_t>(row, number);
            case DUCKDB_TYPE_SMALLINT:
                return SetInRange<int16_t>(row, number);
            case DUCKDB_TYPE_INTEGER:
                return SetInRange<int32_t>(row, number);
            case DUCKDB_TYPE_BIGINT:
                return SetInRange<int64_t>(row, number);
            case DUCKDB_TYPE_UTINYINT:
                return SetInRange<uint8_t>(row, number);
            case DUCKDB_TYPE_USMALLINT:
                return SetInRange<uint16_t>(row, number);
            case DUCKDB_TYPE_UINTEGER:
                return SetInRange<uint32_t>(row, number);
            case DUCKDB_TYPE_UBIGINT:
                return SetInRange<uint64_t>(row, number);
            case DUCKDB_TYPE_DOUBLE:
                return Set(row, static_cast<double>(number));
            default:
                return false;
        }
    }
    /** Casts an element of the type to the column's; false if DuckDB does not, and for columns whose elements
        have no fixed size. */
    bool PutCast(duckdb_type type, idx_t row, const void* element) {
        return (quick_.cast != nullptr && quick_.from == type &&
                quick_.cast(element, static_cast<char*>(data_) + row * quick_.slot_size, quick_.width,
                            quick_.scale)) ||
               PutPlainCast(type, row, element);
    }
    bool PutPlainCast(duckdb_type type, idx_t row, const void* element);
    void PreparePlainCast(duckdb_type type);
    /** Casts the first elements of the vector and stores them from the row on; false and DuckDB's text on
        failure. */
    bool Cast(duckdb_vector source, idx_t count, idx_t row, std::string& error);
    bool CastOne(duckdb_vector source, idx_t source_row, idx_t row, std::string& error);

    duckdb_connection connection_;
    LogicalTypeHolder type_;
    duckdb_type plain_;
    bool is_plain_;
    uint64_t* heap_bytes_;
    /** Of the last type that was cast. Null before its first use. */
    std::unique_ptr<PlainCast> cast_;
    Quick quick_;
    duckdb_vector vector_ = nullptr;
    void* data_ = nullptr;
};

/** A vector of another type whose elements a column is to store. */
class ColumnWriter::Source {
  public:
    /** Throws `std::bad_alloc`. */
    Source(const ColumnWriter& column, LogicalTypeHolder type, idx_t capacity);
    ~Source();
    ColumnWriter& get_Writer() noexcept { return writer_; }

  private:
    uint64_t heap_bytes_ = 0;
    ColumnWriter writer_;
    duckdb_vector vector_;
};

}  // namespace mduckdb
