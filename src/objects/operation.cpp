#include "objects/operation.h"

#include <algorithm>

#include "base/errors.h"
#include "duckdb_internals/statement_pieces.h"
#include "objects/rollback.h"

namespace mduckdb {

namespace {

Deadline::Clock::time_point EndOf(uint64_t limit) {
    // More would not fit into the clock.
    constexpr uint64_t kLongest = 1'000'000'000'000;
    return Deadline::Clock::now() + std::chrono::milliseconds(std::min(limit, kLongest));
}

}  // namespace

void SetDeadline(std::optional<Deadline>& deadline, uint64_t limit, InterruptibleConnection& connection) {
    if (limit > 0) {
        deadline.emplace(
            EndOf(limit), [](void* target) noexcept { static_cast<InterruptibleConnection*>(target)->Cut(); },
            &connection);
    }
}

void SetDeadline(std::optional<Deadline>& deadline, uint64_t limit, BackupStop& stop) {
    if (limit > 0) {
        deadline.emplace(
            EndOf(limit), [](void* target) noexcept { static_cast<BackupStop*>(target)->Stop(); }, &stop);
    }
}

std::string DescribeCut(uint64_t limit) {
    return "The time limit of " + std::to_string(limit) + " ms is over: the statement was cut";
}

Operation::Operation(DatabaseLink& link, CensusEntry* entry, Part part)
    : link_(link), entry_(entry), is_outermost_(link.operation_ == nullptr), limit_(link.get_TimeLimit()) {
    if (!is_outermost_) {
        return;
    }
    if (part == Part::begins) {
        link_.connection_.ClearInterrupted();
    }
    link_.connection_.ApplyTracking();
    SetDeadline(deadline_, limit_, link_.connection_);
    link_.operation_ = this;
    link_.census_.BeginRunning();
    if (entry_ != nullptr) {
        entry_->BeginRunning();
    }
}

Operation::~Operation() NBX_NO_THREAD_SAFETY_ANALYSIS {
    if (!is_outermost_) {
        return;
    }
    deadline_.reset();
    link_.operation_ = nullptr;
    if (entry_ != nullptr) {
        entry_->EndRunning();
    }
    link_.census_.EndRunning();
    const SharedConnection connection = link_.get_Connection();
    link_.census_.put_Flag(CensusLine::kIsInTransaction, connection && IsInTransaction(*connection));
}

void Operation::EndDeadline() noexcept {
    is_cut_ = is_cut_ || (deadline_ && deadline_->get_HasCut());
    deadline_.reset();
}

void Operation::ThrowIfCut() {
    if (is_cut_ || (deadline_ && deadline_->get_HasCut())) {
        link_.ThrowError(DescribeCut(limit_));
    }
}

// What the link does depends on the operation that runs, so it is here.

void DatabaseLink::ThrowIfInterrupted() NBX_NO_THREAD_SAFETY_ANALYSIS {
    if (connection_.TakeInterrupted()) {
        ThrowInterrupted();
    }
    // Only the thread of the operation comes here.
    if (operation_ != nullptr) {
        operation_->ThrowIfCut();
    }
}

void DatabaseLink::Rollback() noexcept NBX_NO_THREAD_SAFETY_ANALYSIS {
    if (operation_ != nullptr) {
        operation_->EndDeadline();
    }
    if (const SharedConnection connection = get_Connection()) {
        mduckdb::Rollback(*connection);
    }
}

}  // namespace mduckdb
