#pragma once

#include <optional>
#include <string>

#include "backup/stop.h"
#include "base/deadline.h"
#include "objects/database_link.h"

namespace mduckdb {

/** Sets a deadline for what runs on the connection, or can be stopped, if there is a limit: in milliseconds,
   0 for none. */
void SetDeadline(std::optional<Deadline>& deadline, uint64_t limit, InterruptibleConnection& connection);
void SetDeadline(std::optional<Deadline>& deadline, uint64_t limit, BackupStop& stop);
/** Why a call was cut. */
std::string DescribeCut(uint64_t limit);

/** A call that lets DuckDB work on a database's connection, from the moment at which it has the engine lock.
   A call inside another one is part of it. While it lasts the census shows it, and the database's time limit
    cuts it. An interrupt that came before it is forgotten. */
class Operation : nbx::noncopyable {
  public:
    /** `goes_on`: with a call that has released the engine lock, and that an interrupt ends which came
        meanwhile. */
    enum class Part { begins, goes_on };

    /** `entry` is that of a statement that runs. Throws if a deadline cannot be set. */
    explicit Operation(DatabaseLink& link, CensusEntry* entry = nullptr, Part part = Part::begins)
        NBX_REQUIRES(gEngineLock);
    ~Operation();

    /** Throws if the time limit has cut the call. */
    void ThrowIfCut();
    /** From now on nothing is cut, as before a rollback. */
    void EndDeadline() noexcept;

  private:
    DatabaseLink& link_;
    CensusEntry* const entry_;
    const bool is_outermost_;
    const uint64_t limit_;
    bool is_cut_ = false;
    std::optional<Deadline> deadline_;
};

}  // namespace mduckdb
