#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/** Watches the calls that the module makes to DuckDB, and makes chosen ones fail.

    A program that uses this calls `mduckdb_watch_duckdb(target)` in its CMakeLists.txt: the linker then
    routes every call of a function listed in duckdb_calls.def, from the module's objects or the test itself,
    through this code. Add a line there to watch one more function.

    All counts are process-wide and may be read from any thread. A failing call does nothing and returns
    what duckdb_calls.def says. */
namespace duckdb_faults {

/** Forgets all counts, the log, the live handles and the requested failures. Handles that are open stay
    open. */
void Reset();

/** Calls of the function since `Reset`, failed ones included. */
uint64_t CountCalls(std::string_view function);
/** Makes the n-th call from now on fail, counted from 1; may be called for several. */
void FailCall(std::string_view function, uint64_t n);

/** Handles received and not yet destroyed, all kinds that have a pair in duckdb_calls.def taken together:
    configurations, engines, connections, results, extracted, prepared and pending statements, chunks. */
int64_t CountLiveHandles();
/** The same for the handles that one function returns, such as "duckdb_open_ext". */
int64_t CountLiveHandles(std::string_view creating_function);

/** The calls with their texts, in order: "duckdb_set_config threads=8", "duckdb_query SELECT 1",
    "duckdb_disconnect". */
std::vector<std::string> get_Log();
/** Forgets only the log; for tests of many calls. */
void ClearLog();
/** The lines of the log that start with the text. */
std::vector<std::string> get_Log(std::string_view start);

}  // namespace duckdb_faults
