#pragma once

#include <duckdb.h>

#include <string_view>
#include <utility>

namespace mduckdb {

/** Owns one DuckDB handle and destroys it with the function of its trait. Move-only; null after a move.
    Connections and engine handles have no holder: other code decides who closes them and when. */
template <class Traits>
class Holder {
  public:
    using Handle = typename Traits::Handle;

    Holder() noexcept = default;
    explicit Holder(Handle handle) noexcept : handle_(handle) {}
    Holder(Holder&& other) noexcept : handle_(other.Detach()) {}
    Holder& operator=(Holder&& other) noexcept {
        if (this != &other) {
            Reset(other.Detach());
        }
        return *this;
    }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    ~Holder() { Reset(); }

    Handle get() const noexcept { return handle_; }
    explicit operator bool() const noexcept { return handle_ != nullptr; }
    /** Passes ownership of the handle to the caller. */
    Handle Detach() noexcept { return std::exchange(handle_, nullptr); }
    void Reset(Handle handle = nullptr) noexcept {
        if (Handle old = std::exchange(handle_, handle)) {
            Traits::Destroy(old);
        }
    }
    /** Destroys the held handle and returns the address for a new one, as DuckDB's out parameters need it. */
    Handle* Receive() noexcept {
        Reset();
        return &handle_;
    }

  private:
    Handle handle_ = nullptr;
};

struct ValueTraits {
    using Handle = duckdb_value;
    static void Destroy(Handle handle) noexcept { duckdb_destroy_value(&handle); }
};
struct LogicalTypeTraits {
    using Handle = duckdb_logical_type;
    static void Destroy(Handle handle) noexcept { duckdb_destroy_logical_type(&handle); }
};
struct ChunkTraits {
    using Handle = duckdb_data_chunk;
    static void Destroy(Handle handle) noexcept { duckdb_destroy_data_chunk(&handle); }
};
struct PreparedTraits {
    using Handle = duckdb_prepared_statement;
    static void Destroy(Handle handle) noexcept { duckdb_destroy_prepare(&handle); }
};
struct PendingTraits {
    using Handle = duckdb_pending_result;
    static void Destroy(Handle handle) noexcept { duckdb_destroy_pending(&handle); }
};
struct ExtractedTraits {
    using Handle = duckdb_extracted_statements;
    static void Destroy(Handle handle) noexcept { duckdb_destroy_extracted(&handle); }
};
struct ConfigTraits {
    using Handle = duckdb_config;
    static void Destroy(Handle handle) noexcept { duckdb_destroy_config(&handle); }
};
/** Text that DuckDB allocated. */
struct TextTraits {
    using Handle = char*;
    static void Destroy(Handle handle) noexcept { duckdb_free(handle); }
};

using ValueHolder = Holder<ValueTraits>;
using LogicalTypeHolder = Holder<LogicalTypeTraits>;
using ChunkHolder = Holder<ChunkTraits>;
using PreparedHolder = Holder<PreparedTraits>;
using PendingHolder = Holder<PendingTraits>;
using ExtractedHolder = Holder<ExtractedTraits>;
using ConfigHolder = Holder<ConfigTraits>;
using TextHolder = Holder<TextTraits>;

/** A VARCHAR value of UTF-8 text, which may hold NUL characters. Empty for text that is not UTF-8. */
inline ValueHolder MakeTextValue(std::string_view text) {
    return ValueHolder(duckdb_create_varchar_length(text.data(), text.size()));
}

inline LogicalTypeHolder MakeType(duckdb_type type) {
    return LogicalTypeHolder(duckdb_create_logical_type(type));
}

/** Owns a `duckdb_result`, which is a record and not a handle. */
class ResultHolder {
  public:
    ResultHolder() noexcept = default;
    /** Takes ownership of the result; the caller must no longer destroy its copy. */
    explicit ResultHolder(duckdb_result result) noexcept : result_(result), is_held_(true) {}
    ResultHolder(ResultHolder&& other) noexcept
        : result_(other.result_), is_held_(std::exchange(other.is_held_, false)) {}
    ResultHolder& operator=(ResultHolder&& other) noexcept {
        if (this != &other) {
            Reset();
            result_ = other.result_;
            is_held_ = std::exchange(other.is_held_, false);
        }
        return *this;
    }
    ResultHolder(const ResultHolder&) = delete;
    ResultHolder& operator=(const ResultHolder&) = delete;
    ~ResultHolder() { Reset(); }

    explicit operator bool() const noexcept { return is_held_; }
    /** For the calls that take the address; the result must be held. */
    duckdb_result* get() noexcept { return &result_; }
    const duckdb_result& operator*() const noexcept { return result_; }
    /** Destroys the held result and returns the address of a zeroed one, which this object then owns. */
    duckdb_result* Receive() noexcept {
        Reset();
        result_ = {};
        is_held_ = true;
        return &result_;
    }
    /** Passes ownership of the result to the caller, who destroys it. */
    duckdb_result Detach() noexcept {
        is_held_ = false;
        return result_;
    }
    void Reset() noexcept {
        if (std::exchange(is_held_, false)) {
            duckdb_destroy_result(&result_);
        }
    }

  private:
    duckdb_result result_{};
    bool is_held_ = false;
};

}  // namespace mduckdb
