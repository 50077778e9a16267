#pragma once

#include <sys/types.h>

#include <utility>

namespace mduckdb {

/** The time for which a call uses an engine without a file, its own or one that was handed on. Move-only. */
class EngineUse {
  public:
    EngineUse() = default;
    EngineUse(EngineUse&& other) noexcept
        : state_(std::exchange(other.state_, State::none)), process_(other.process_) {}
    EngineUse& operator=(EngineUse&&) = delete;
    ~EngineUse() { End(); }

    /** The query has ended: once the host has read the rows, the engine is free. */
    void Finish() noexcept;

  private:
    friend class IdleList;
    enum class State { none, running, finished };

    void End() noexcept;

    State state_ = State::none;
    /** The child of a fork does not count what its parent uses. */
    pid_t process_ = 0;
};

}  // namespace mduckdb
