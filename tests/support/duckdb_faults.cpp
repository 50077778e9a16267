#include "support/duckdb_faults.h"

#include <duckdb.h>

#include <map>
#include <mutex>
#include <set>
#include <type_traits>

/** The module's own, as its plain functions declare it. */
struct duckdb_result_scan_data;

namespace duckdb_faults {

namespace {

struct State {
    std::mutex mutex;
    std::map<std::string, uint64_t, std::less<>> calls;
    std::map<std::string, std::set<uint64_t>, std::less<>> failing;
    std::map<std::string, int64_t, std::less<>> live;
    std::vector<std::string> log;
};

State& GetState() {
    static auto* state = new State;
    return *state;
}

/** The functions that return a handle or a result, with the function that frees it. */
const std::set<std::string, std::less<>> kCreating = {
    "duckdb_create_config",
    "duckdb_open_ext",
    "duckdb_connect",
    "duckdb_query",
    "duckdb_prepare",
    "duckdb_prepare_extracted_statement",
    "duckdb_fetch_chunk",
    "duckdb_scan_result_chunk",
    "duckdb_extract_statements",
    "duckdb_execute_prepared",
    "duckdb_execute_pending",
    "duckdb_pending_prepared_managed",
    "duckdb_pending_prepared_stream",
    "duckdb_column_logical_type",
    "duckdb_create_logical_type",
    "duckdb_create_decimal_type",
    "duckdb_create_varchar_length",
    "duckdb_create_int32",
    "duckdb_create_null_value",
    "duckdb_create_list_value",
    "duckdb_create_blob",
    "duckdb_create_uuid",
};

/** Handles by address, so that the destroying call finds the function that returned them. */
std::map<const void*, std::string>& GetOwners() {
    static auto* owners = new std::map<const void*, std::string>;
    return *owners;
}

std::string Text(const char* text) {
    return text == nullptr ? "(null)" : text;
}

[[maybe_unused]] std::string Join(const char* key, const char* value) {
    return Text(key) + "=" + Text(value);
}

/** Counts the call and returns whether it must fail. */
bool Enter(const char* function, const std::string& text) {
    State& state = GetState();
    const std::scoped_lock lock(state.mutex);
    const uint64_t number = ++state.calls[function];
    state.log.push_back(text.empty() ? function : std::string(function) + " " + text);
    const auto failing = state.failing.find(function);
    return failing != state.failing.end() && failing->second.erase(number) > 0;
}

void NoteCreated(const char* function, const void* handle) {
    if (handle != nullptr && kCreating.count(function) > 0) {
        State& state = GetState();
        const std::scoped_lock lock(state.mutex);
        GetOwners()[handle] = function;
        ++state.live[function];
    }
}

void NoteDestroyed(const void* handle) {
    State& state = GetState();
    const std::scoped_lock lock(state.mutex);
    const auto owner = GetOwners().find(handle);
    if (owner != GetOwners().end()) {
        --state.live[owner->second];
        GetOwners().erase(owner);
    }
}

/** A parameter that is the address of a handle, which the call fills or empties. */
template <class T>
concept HandleAddress =
    std::is_pointer_v<T> && std::is_pointer_v<std::remove_pointer_t<T>> && !std::is_same_v<T, char**>;

const void* FindHandle() {
    return nullptr;
}
template <class First, class... Rest>
const void* FindHandle(First first, Rest... rest) {
    if constexpr (HandleAddress<First>) {
        return first == nullptr ? nullptr : *first;
    } else if constexpr (std::is_same_v<First, duckdb_result*>) {
        return first == nullptr ? nullptr : first->internal_data;
    } else {
        return FindHandle(rest...);
    }
}

/** One watched call. `fail` returns the result of a failing one. */
template <class Real, class Fail, class... Args>
auto Watch(const char* function, Real real, Fail fail, const std::string& text, Args... args) {
    using Result = decltype(real(args...));
    if (Enter(function, text)) {
        return fail();
    }
    if constexpr (std::is_void_v<Result>) {
        NoteDestroyed(FindHandle(args...));
        real(args...);
    } else {
        Result result = real(args...);
        if constexpr (std::is_pointer_v<Result>) {
            NoteCreated(function, result);
        } else {
            NoteCreated(function, FindHandle(args...));
        }
        return result;
    }
}

}  // namespace

void Reset() {
    State& state = GetState();
    const std::scoped_lock lock(state.mutex);
    state.calls.clear();
    state.failing.clear();
    state.live.clear();
    state.log.clear();
    GetOwners().clear();
}

uint64_t CountCalls(std::string_view function) {
    State& state = GetState();
    const std::scoped_lock lock(state.mutex);
    const auto calls = state.calls.find(function);
    return calls == state.calls.end() ? 0 : calls->second;
}

void FailCall(std::string_view function, uint64_t n) {
    State& state = GetState();
    const std::scoped_lock lock(state.mutex);
    state.failing[std::string(function)].insert(state.calls[std::string(function)] + n);
}

int64_t CountLiveHandles() {
    State& state = GetState();
    const std::scoped_lock lock(state.mutex);
    int64_t total = 0;
    for (const auto& [function, count] : state.live) {
        total += count;
    }
    return total;
}

int64_t CountLiveHandles(std::string_view creating_function) {
    State& state = GetState();
    const std::scoped_lock lock(state.mutex);
    const auto live = state.live.find(creating_function);
    return live == state.live.end() ? 0 : live->second;
}

void ClearLog() {
    State& state = GetState();
    const std::scoped_lock lock(state.mutex);
    state.log.clear();
}

std::vector<std::string> get_Log() {
    return get_Log("");
}

std::vector<std::string> get_Log(std::string_view start) {
    State& state = GetState();
    const std::scoped_lock lock(state.mutex);
    std::vector<std::string> lines;
    for (const std::string& line : state.log) {
        if (line.compare(0, start.size(), start) == 0) {
            lines.push_back(line);
        }
    }
    return lines;
}

}  // namespace duckdb_faults

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
#define CALL(result, name, parameters, arguments, failure, text) \
    extern "C" result __real_##name parameters;                  \
    extern "C" result __wrap_##name parameters;
#include "support/duckdb_calls.def"
#undef CALL

/** A query that DuckDB has begun runs nevertheless: 1.5.6 leaks memory when a begun query is dropped. */
static duckdb_state FailAfterRunning(duckdb_pending_result pending) {
    duckdb_result result;
    __real_duckdb_execute_pending(pending, &result);
    __real_duckdb_destroy_result(&result);
    return DuckDBError;
}

#define UNPACK(...) __VA_OPT__(, ) __VA_ARGS__
#define CALL(result, name, parameters, arguments, failure, text)                                \
    extern "C" result __wrap_##name parameters {                                                \
        using namespace duckdb_faults;                                                          \
        return Watch(                                                                           \
            #name, &__real_##name, [&]() -> result { return failure; }, text UNPACK arguments); \
    }
#include "support/duckdb_calls.def"
// NOLINTEND(bugprone-reserved-identifier)
