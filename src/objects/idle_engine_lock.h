#pragma once

#include <optional>

#include "objects/database_link.h"
#include "objects/export_gate.h"

namespace mduckdb {

/** Takes the engine lock to close a database, at a moment when no export of it runs. From here on its
    appenders begin nothing; what they are storing is awaited too. The lock is not held while waiting, unless
    this thread held it before. */
class NBX_SCOPED_CAPABILITY IdleEngineLockScope : nbx::noncopyable {
  public:
    IdleEngineLockScope(ExportGate& gate, DatabaseLink& link)
        NBX_ACQUIRE(gEngineLock) NBX_NO_THREAD_SAFETY_ANALYSIS {
        {
            const EngineLockScope lock;
            link.get_Children().CutSides();
        }
        do {
            lock_.reset();
            gate.Wait();
            link.get_Appends().Wait();
            lock_.emplace();
        } while (gate.IsBusy());
    }
    ~IdleEngineLockScope() NBX_RELEASE() NBX_NO_THREAD_SAFETY_ANALYSIS {}

  private:
    std::optional<EngineLockScope> lock_;
};

}  // namespace mduckdb
