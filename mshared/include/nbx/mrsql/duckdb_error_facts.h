#pragma once

#include <cstdint>
#include <exception>

#include "nbx/export.h"
#include "nbx/string.h"

namespace nbx::mrsql {

/** DuckDB's kinds of error. The numbers are those of `duckdb_error_type` of its C API; a later DuckDB may
   report others. */
enum class DuckDBErrorKind : uint32_t {
    unspecified = 0,
    out_of_range = 1,
    conversion = 2,
    unknown_type = 3,
    decimal = 4,
    mismatched_type = 5,
    division_by_zero = 6,
    object_size = 7,
    invalid_type = 8,
    serialization = 9,
    transaction = 10,
    not_implemented = 11,
    expression = 12,
    catalog = 13,
    parser = 14,
    planner = 15,
    scheduler = 16,
    executor = 17,
    constraint = 18,
    index = 19,
    statistics = 20,
    connection = 21,
    syntax = 22,
    settings = 23,
    binder = 24,
    network = 25,
    optimizer = 26,
    null_pointer = 27,
    io = 28,
    interrupt = 29,
    /** The engine cannot be used any more. */
    fatal = 30,
    /** A mistake of DuckDB's own; the engine cannot be used any more. */
    internal = 31,
    invalid_input = 32,
    out_of_memory = 33,
    permission = 34,
    parameter_not_resolved = 35,
    parameter_not_allowed = 36,
    dependency = 37,
    http = 38,
    missing_extension = 39,
    autoload = 40,
    sequence = 41,
    invalid_configuration = 42,
};

/** What DuckDB states about an error besides its text: part of the exceptions that report an error of DuckDB
   or an interrupt. Find it with `FindDuckDBErrorFacts`.

    The references are valid as long as the exception, of which they are a part; a copy of the exception as
   one of its base classes has no facts. May be read by several threads, like the exception's texts. */
class NBX_API I_DuckDBErrorFacts {
  public:
    virtual ~I_DuckDBErrorFacts();

    virtual DuckDBErrorKind get_Kind() const noexcept = 0;
    /** DuckDB's word for the kind, for example "Parser" or "Out of Memory". */
    virtual const String& get_KindName() const noexcept = 0;
    /** DuckDB's message without the kind and without JSON around it. */
    virtual const String& get_PlainMessage() const noexcept = 0;
    /** DuckDB's finer kind, for example "SYNTAX_ERROR" or "COLUMN_NOT_FOUND"; empty if DuckDB states none. */
    virtual const String& get_Subtype() const noexcept = 0;
    /** Byte offset of the error in the UTF-8 SQL text; -1 if DuckDB states none. */
    virtual int64_t get_Position() const noexcept = 0;
    /** Anything else that DuckDB states, by DuckDB's name for it: "name" is the object in question,
       "candidates" those with similar names. Empty if DuckDB does not state it. */
    virtual const String& get_Detail(const char* name) const noexcept = 0;
};

/** The facts of an exception, or null: the library's own errors have none, and neither has an error for whose
   facts there was no memory. Valid as long as the exception. */
inline const I_DuckDBErrorFacts* FindDuckDBErrorFacts(const std::exception& error) noexcept {
    return dynamic_cast<const I_DuckDBErrorFacts*>(&error);
}

}  // namespace nbx::mrsql
