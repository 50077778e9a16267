#include "procedures/running_call.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace mduckdb {

namespace {

/** Held for a few instructions, including `duckdb_interrupt`, but never while DuckDB works. */
constinit nbx::Mutex gCallsMutex;
RunningCall* gFirstCall = nullptr;

}  // namespace

RunningCall::RunningCall(const char* procedure_name, std::shared_ptr<ServerWaits> waits)
    : procedure_name_(procedure_name),
      waits_(std::move(waits)),
      census_(CensusLine::kCall, 0, procedure_name) {
    {
        const nbx::MutexLock lock(gCallsMutex);
        next_ = gFirstCall;
        if (next_ != nullptr) {
            next_->previous_ = this;
        }
        gFirstCall = this;
    }
    census_.Enter();
    census_.BeginRunning();
}

RunningCall::~RunningCall() {
    census_.Leave();
    const nbx::MutexLock lock(gCallsMutex);
    (previous_ != nullptr ? previous_->next_ : gFirstCall) = next_;
    if (next_ != nullptr) {
        next_->previous_ = previous_;
    }
}

void RunningCall::Connect(duckdb_connection connection, uint64_t engine_number) {
    census_.put_Parent(engine_number);
    {
        const nbx::MutexLock lock(gCallsMutex);
        connection_ = connection;
    }
    ThrowIfCut();
}

void RunningCall::Disconnect() noexcept {
    const nbx::MutexLock lock(gCallsMutex);
    connection_ = nullptr;
}

void RunningCall::Finish(int64_t rows, int64_t bytes) {
    {
        const nbx::MutexLock lock(gCallsMutex);
        is_finished_ = true;
    }
    ThrowIfCut();
    census_.EndRunning();
    census_.put_Size(rows, bytes);
}

void RunningCall::ThrowIfCut() const {
    if (is_cut_.load()) {
        throw std::runtime_error(std::string(procedure_name_) + " was cut by the host.");
    }
}

bool RunningCall::Cut(uint64_t number) noexcept {
    const nbx::MutexLock lock(gCallsMutex);
    for (RunningCall* call = gFirstCall; call != nullptr; call = call->next_) {
        if (call->census_.get_Number() == number && !call->is_finished_) {
            call->is_cut_.store(true);
            if (call->connection_ != nullptr) {
                duckdb_interrupt(call->connection_);
            }
            if (call->waits_) {
                call->waits_->End();
            }
            return true;
        }
    }
    return false;
}

}  // namespace mduckdb
