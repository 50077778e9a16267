#pragma once

#include <cstdint>

/** Lets allocations of the module and of mshared fail. A program that is linked with this has the allocation
    functions replaced as a whole; those of DuckDB, of the standard library for itself and of other threads
    never fail. */
namespace allocation_faults {

/** From now on the allocations of this thread are counted, and the n-th fails, counted from 1; 0: none. */
void FailNth(uint64_t n) noexcept;
/** The same, and those after it fail too. */
void FailFrom(uint64_t n) noexcept;
/** Ends that; returns how many allocations were counted, the failed ones included. */
uint64_t Stop() noexcept;
/** Whether the allocation was reached since `FailNth`. */
bool HasFailed() noexcept;

/** For what a test, or the host that it plays, does meanwhile: neither counts nor fails in a scope. */
class Pause {
  public:
    Pause() noexcept;
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

  private:
    bool was_counting_;
};

/** Calls the function, which allocates for the test only. */
template <class Function>
decltype(auto) Quietly(Function function) {
    const Pause pause;
    return function();
}

}  // namespace allocation_faults
