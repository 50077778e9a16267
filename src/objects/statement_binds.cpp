#include <exception>
#include <new>
#include <string>
#include <utility>

#include "base/text.h"
#include "duckdb_internals/failures.h"
#include "duckdb_internals/out_of_memory.h"
#include "duckdb_internals/value_guard.h"
#include "objects/statement.h"
#include "values/host_value_binding.h"
#include "values/parameter_binding.h"

namespace mduckdb {

namespace {

std::string FailureText(const char* type_word) {
    return std::string("Failed to bind ") + type_word + " statement parameter";
}

/** The given value is not valid for its type, so DuckDB was not called. */
struct NotAValue : std::exception {};

void Require(bool is_value) {
    if (!is_value) {
        throw NotAValue();
    }
}

/** DuckDB dereferences the pointer even for a length of 0. */
const uint8_t* Bytes(const void* data, uint64_t length) {
    static const uint8_t kNoBytes[1] = {0};
    Require(data != nullptr || length == 0);
    return data != nullptr ? static_cast<const uint8_t*>(data) : kNoBytes;
}

}  // namespace

void DuckDBStatement::ClearPreparedBindings() {
    if (prepared_.ClearBindings() != DuckDBSuccess) {
        ThrowStatementError("Failed to clear statement bindings");
    }
}

void DuckDBStatement::ClearBindings() {
    EngineLockScope lock;
    RequireDatabase();
    DropStoredValues();
    if (prepared_) {
        ClearPreparedBindings();
    }
}

bool DuckDBStatement::BeginTypedBind() {
    RequireDatabase();
    if (HasStoredValues()) {
        if (!prepared_) {
            DropStoredValues();
            return false;
        }
        ClearPreparedBindings();
    }
    return static_cast<bool>(prepared_);
}

void DuckDBStatement::DropStoredValues() noexcept {
    parameters_.reset();
    parameter_rows_.reset();
}

void DuckDBStatement::EndFailedBind() {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        throw;  // An execution binds the stored values again.
    } catch (...) {
        DropStoredValues();
        throw;
    }
}

void DuckDBStatement::put_Parameters(nbx::smart_ptr<nbx::ValueRow> values) {
    RefuseInnerCall();
    // These outlive the mutex: releasing them runs the host's code.
    nbx::smart_ptr<nbx::ValueRow> old_values = values;
    nbx::smart_ptr<nbx::ValueRows> old_rows;
    {
        const nbx::MutexLock lock(detach_mutex_);
        RequireDatabase();
        parameters_.swap(old_values);
        parameter_rows_.swap(old_rows);
    }
    try {
        bool takes_values = false;
        {
            const nbx::MutexLock lock(detach_mutex_);
            takes_values = BeginStoredBind();
        }
        if (takes_values) {
            // Without the mutex, for which a database that closes waits with the engine lock: a value may
            // wait for that lock.
            const ParameterValues read = ReadValues(values.get());
            const nbx::MutexLock lock(detach_mutex_);
            BindOnly(read);
        }
    } catch (const std::bad_alloc&) {
        // An execution must not take the new ones: the caller was told that there was no room for them.
        const nbx::MutexLock lock(detach_mutex_);
        parameters_.swap(old_values);
        parameter_rows_.swap(old_rows);
        throw;
    }
}

void DuckDBStatement::put_ParameterRows(nbx::smart_ptr<nbx::ValueRows> rows) {
    RefuseInnerCall();
    nbx::smart_ptr<nbx::ValueRow> old_values;
    nbx::smart_ptr<nbx::ValueRows> old_rows;
    const nbx::MutexLock lock(detach_mutex_);
    RequireDatabase();
    parameters_.swap(old_values);
    parameter_rows_.swap(old_rows);
    if (prepared_) {
        ClearPreparedBindings();
    }
    parameter_rows_.swap(rows);
}

void DuckDBStatement::ApplyParameters(nbx::smart_ptr<nbx::ValueRow> values) {
    RequireDatabase();
    parameters_ = std::move(values);
    if (prepared_) {
        BindStoredParameters();
    }
}

void DuckDBStatement::BindStoredParameters() {
    RefuseInnerCall();
    if (BeginStoredBind()) {
        // A reference of its own: a value may call what releases the row.
        const nbx::smart_ptr<nbx::ValueRow> row = parameters_;
        BindOnly(ReadValues(row.get()));
    }
}

bool DuckDBStatement::BeginStoredBind() {
    if (!prepared_) {
        return false;
    }
    ClearPreparedBindings();
    // When DuckDB expands a statement, only the pieces that have the parameters get them.
    return pieces_end_ - pieces_begin_ <= 1 || duckdb_nparams(prepared_.get()) > 0;
}

ParameterValues DuckDBStatement::ReadValues(const nbx::ValueRow* row) {
    const HostValueReading::Scope reading(reading_);
    return ParameterValues(row);
}

void DuckDBStatement::BindOnly(const ParameterValues& values) {
    RequireDatabase();  // a value may have closed it
    values.Bind(prepared_.get(), tie_.get_Link()->get_ErrorPath());
}

/** One typed bind: `bind` calls DuckDB for the prepared statement. When DuckDB throws, the bind's error has
    DuckDB's text; when DuckDB was not called, it has the module's own. */
template <class Bind>
void DuckDBStatement::BindTyped(const char* type_word, Bind&& bind) {
    EngineLockScope lock;
    if (!BeginTypedBind()) {
        return;
    }
    try {
        try {
            if (bind() == DuckDBSuccess) {
                if (HasStoredValues()) {
                    DropStoredValues();
                }
                return;
            }
        } catch (const NotAValue&) {
            ThrowError({FailureText(type_word), nullptr});
        } catch (const std::exception& error) {
            ThrowIfOutOfMemory();
            ThrowError(FailureOf(error.what(), ""));
        }
        ThrowStatementError(FailureText(type_word).c_str());
    } catch (...) {
        EndFailedBind();
    }
}

/** The same for functions of DuckDB that accept the arguments unchanged. */
template <auto kBind, class... Arguments>
void DuckDBStatement::BindDirect(const char* type_word, uint32_t index, Arguments... arguments) {
    BindTyped(type_word, [&] { return prepared_.Bind<kBind>(index, arguments...); });
}

/** The same for types that DuckDB accepts only as a `duckdb_value`. */
template <class MakeValue>
void DuckDBStatement::BindMadeValue(const char* type_word, uint32_t index, MakeValue&& make_value) {
    BindTyped(type_word, [&] {
        const ValueHolder value(make_value());
        Require(static_cast<bool>(value));
        return duckdb_bind_value(prepared_.get(), index, value.get());
    });
}

void DuckDBStatement::BindNull(uint32_t index) {
    BindTyped("NULL", [&] { return duckdb_bind_null(prepared_.get(), index); });
}

void DuckDBStatement::BindBoolean(uint32_t index, bool value) {
    BindDirect<duckdb_bind_boolean>("BOOLEAN", index, value);
}

void DuckDBStatement::BindTinyInt(uint32_t index, int8_t value) {
    BindDirect<duckdb_bind_int8>("TINYINT", index, value);
}

void DuckDBStatement::BindUTinyInt(uint32_t index, uint8_t value) {
    BindDirect<duckdb_bind_uint8>("UTINYINT", index, value);
}

void DuckDBStatement::BindSmallInt(uint32_t index, int16_t value) {
    BindDirect<duckdb_bind_int16>("SMALLINT", index, value);
}

void DuckDBStatement::BindUSmallInt(uint32_t index, uint16_t value) {
    BindDirect<duckdb_bind_uint16>("USMALLINT", index, value);
}

void DuckDBStatement::BindInteger(uint32_t index, int32_t value) {
    BindDirect<duckdb_bind_int32>("INTEGER", index, value);
}

void DuckDBStatement::BindUInteger(uint32_t index, uint32_t value) {
    BindDirect<duckdb_bind_uint32>("UINTEGER", index, value);
}

void DuckDBStatement::BindBigInt(uint32_t index, int64_t value) {
    BindDirect<duckdb_bind_int64>("BIGINT", index, value);
}

void DuckDBStatement::BindUBigInt(uint32_t index, uint64_t value) {
    BindDirect<duckdb_bind_uint64>("UBIGINT", index, value);
}

void DuckDBStatement::BindHugeInt(uint32_t index, uint64_t lower, int64_t upper) {
    BindDirect<duckdb_bind_hugeint>("HUGEINT", index, duckdb_hugeint{lower, upper});
}

void DuckDBStatement::BindUHugeInt(uint32_t index, uint64_t lower, uint64_t upper) {
    BindDirect<duckdb_bind_uhugeint>("UHUGEINT", index, duckdb_uhugeint{lower, upper});
}

void DuckDBStatement::BindDecimal(uint32_t index, uint8_t width, uint8_t scale, uint64_t lower,
                                  int64_t upper) {
    BindTyped("DECIMAL", [&] {
        const duckdb_hugeint number{lower, upper};
        Require(IsValidDecimal(width, scale, number));
        return prepared_.Bind<duckdb_bind_decimal>(index, duckdb_decimal{width, scale, number});
    });
}

void DuckDBStatement::BindFloat(uint32_t index, float value) {
    BindDirect<duckdb_bind_float>("FLOAT", index, value);
}

void DuckDBStatement::BindDouble(uint32_t index, double value) {
    BindDirect<duckdb_bind_double>("DOUBLE", index, value);
}

void DuckDBStatement::BindDate(uint32_t index, int32_t year, int8_t month, int8_t day) {
    BindTyped("DATE", [&] {
        return prepared_.Bind<duckdb_bind_date>(index, duckdb_to_date(duckdb_date_struct{year, month, day}));
    });
}

void DuckDBStatement::BindTime(uint32_t index, int64_t micros) {
    BindTyped("TIME", [&] {
        Require(IsValidTime(micros));
        return prepared_.Bind<duckdb_bind_time>(index, duckdb_time{micros});
    });
}

void DuckDBStatement::BindTimeNs(uint32_t index, int64_t nanos) {
    BindMadeValue("TIME_NS", index, [&] {
        Require(IsValidTimeNs(nanos));
        return duckdb_create_time_ns(duckdb_time_ns{nanos});
    });
}

void DuckDBStatement::BindTimeTz(uint32_t index, int64_t micros, int32_t offset) {
    BindMadeValue("TIME_TZ", index, [&] {
        Require(IsValidTimeTz(micros, offset));
        return duckdb_create_time_tz_value(duckdb_create_time_tz(micros, offset));
    });
}

void DuckDBStatement::BindTimestamp(uint32_t index, int64_t micros) {
    BindDirect<duckdb_bind_timestamp>("TIMESTAMP", index, duckdb_timestamp{micros});
}

void DuckDBStatement::BindTimestampTz(uint32_t index, int64_t micros) {
    BindDirect<duckdb_bind_timestamp_tz>("TIMESTAMP_TZ", index, duckdb_timestamp{micros});
}

void DuckDBStatement::BindTimestampS(uint32_t index, int64_t seconds) {
    BindMadeValue("TIMESTAMP_S", index,
                  [&] { return duckdb_create_timestamp_s(duckdb_timestamp_s{seconds}); });
}

void DuckDBStatement::BindTimestampMs(uint32_t index, int64_t millis) {
    BindMadeValue("TIMESTAMP_MS", index,
                  [&] { return duckdb_create_timestamp_ms(duckdb_timestamp_ms{millis}); });
}

void DuckDBStatement::BindTimestampNs(uint32_t index, int64_t nanos) {
    BindMadeValue("TIMESTAMP_NS", index,
                  [&] { return duckdb_create_timestamp_ns(duckdb_timestamp_ns{nanos}); });
}

void DuckDBStatement::BindInterval(uint32_t index, int32_t months, int32_t days, int64_t micros) {
    BindDirect<duckdb_bind_interval>("INTERVAL", index, duckdb_interval{months, days, micros});
}

void DuckDBStatement::BindVarchar(uint32_t index, const nbx::String& value) {
    BindTyped("VARCHAR", [&] {
        const std::string text = ToUtf8(value);
        return prepared_.Bind<duckdb_bind_varchar_length>(index, text.c_str(), idx_t{text.size()});
    });
}

void DuckDBStatement::BindBlob(uint32_t index, const void* data, uint64_t length) {
    BindTyped("BLOB", [&] {
        const void* bytes = Bytes(data, length);
        return prepared_.Bind<duckdb_bind_blob>(index, bytes, idx_t{length});
    });
}

void DuckDBStatement::BindBit(uint32_t index, const void* data, uint64_t length) {
    BindMadeValue("BIT", index, [&] {
        const uint8_t* bytes = Bytes(data, length);
        Require(IsValidBit(bytes, length));
        return duckdb_create_bit(duckdb_bit{const_cast<uint8_t*>(bytes), length});
    });
}

void DuckDBStatement::BindBignum(uint32_t index, const void* data, uint64_t length, uint8_t is_negative) {
    BindMadeValue("BIGNUM", index, [&] {
        const uint8_t* bytes = Bytes(data, length);
        Require(IsValidBignum(bytes, length));
        return duckdb_create_bignum(duckdb_bignum{const_cast<uint8_t*>(bytes), length, is_negative != 0});
    });
}

void DuckDBStatement::BindUuid(uint32_t index, uint64_t lower, uint64_t upper) {
    BindMadeValue("UUID", index, [&] { return duckdb_create_uuid(duckdb_uhugeint{lower, upper}); });
}

void DuckDBStatement::BindValue(uint32_t index, nbx::smart_ptr<nbx::I_Value> value) {
    EngineLockScope lock;
    RefuseInnerCall();
    if (!BeginTypedBind()) {
        return;
    }
    try {
        const ValueHolder made = [&] {
            const HostValueReading::Scope reading(reading_);
            return HostValueToDuckDB(value.get());
        }();
        RequireDatabase();
        const BindOutcome outcome = BindParameter(prepared_.get(), index, made);
        if (outcome == BindOutcome::refused_by_duckdb) {
            ThrowStatementError(kBindFailureText);
        }
        if (outcome == BindOutcome::no_value) {
            ThrowError({kBindFailureText, nullptr});
        }
        DropStoredValues();
    } catch (...) {
        EndFailedBind();
    }
}

}  // namespace mduckdb
