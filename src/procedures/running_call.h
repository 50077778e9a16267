#pragma once

#include <duckdb.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "base/census.h"
#include "base/server_waits.h"

namespace mduckdb {

/** A call of a procedure in the census, from its engine's opening until the host closes its cursor. Other
   threads may stop it while its query runs. */
class RunningCall : nbx::noncopyable {
  public:
    /** `procedure_name` is static. `waits`: those of a call that reads from servers, or null. Throws
       `std::bad_alloc`. */
    RunningCall(const char* procedure_name, std::shared_ptr<ServerWaits> waits);
    ~RunningCall();

    /** From now on a cut interrupts the connection. Throws if the call has already been cut. */
    void Connect(duckdb_connection connection, uint64_t engine_number);
    /** Called before the connection closes. */
    void Disconnect() noexcept;
    /** The rows are complete, so the call can no longer be cut. Throws if it has already been cut. */
    void Finish(int64_t rows, int64_t bytes);

    /** Set by a cut: DuckDB forgets an interrupt that comes before it begins a query. */
    const std::atomic<bool>& get_IsCut() const noexcept { return is_cut_; }
    void ThrowIfCut() const;
    /** Null for a call that reads no server's files. */
    const std::shared_ptr<ServerWaits>& get_Waits() const noexcept { return waits_; }
    uint64_t get_Number() const noexcept { return census_.get_Number(); }

    /** Implements `I_DuckDBCensus::CutCall`. */
    static bool Cut(uint64_t number) noexcept;

  private:
    const char* const procedure_name_;
    const std::shared_ptr<ServerWaits> waits_;
    std::atomic<bool> is_cut_{false};
    CensusEntry census_;
    // The mutex of the list of calls guards the fields below.
    bool is_finished_ = false;
    duckdb_connection connection_ = nullptr;
    RunningCall* next_ = nullptr;
    RunningCall* previous_ = nullptr;
};

}  // namespace mduckdb
