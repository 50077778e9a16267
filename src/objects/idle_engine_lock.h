#pragma once

#include <chrono>
#include <optional>
#include <thread>

#include "objects/database_link.h"
#include "objects/export_gate.h"

namespace mduckdb {

/** Takes the engine lock to close a database, at a moment when no export of it runs. From here on its
    appenders begin nothing; what they are storing is awaited too, and what they are reading, unless this
    thread reads for one of them or has the lock already: the host's values may wait for the lock. It is not
    held while waiting, unless this thread held it before. */
class NBX_SCOPED_CAPABILITY IdleEngineLockScope : nbx::noncopyable {
  public:
    IdleEngineLockScope(ExportGate& gate, DatabaseLink& link)
        NBX_ACQUIRE(gEngineLock) NBX_NO_THREAD_SAFETY_ANALYSIS {
        {
            const EngineLockScope lock;
            link.get_Children().CutSides();
        }
        const bool has_lock = nbx::gIsGlobalLockTaken.get() || nbx::gIsThisDiagnoseMTThread.get();
        for (;;) {
            lock_.reset();
            gate.Wait();
            link.get_Appends().Wait();
            lock_.emplace();
            if (!has_lock && link.get_Children().IsReadElsewhere()) {
                // Rare and short: a row is not worth a signal that each would have to give.
                lock_.reset();
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            } else if (!gate.IsBusy()) {
                return;
            }
        }
    }
    ~IdleEngineLockScope() NBX_RELEASE() NBX_NO_THREAD_SAFETY_ANALYSIS {}

  private:
    std::optional<EngineLockScope> lock_;
};

}  // namespace mduckdb
