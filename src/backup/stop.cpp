#include "backup/stop.h"

#include "backup/error.h"

namespace mduckdb {

void BackupStop::Stop() noexcept {
    const std::scoped_lock lock(mutex_);
    is_stopped_.store(true);
    for (const duckdb_connection connection : connections_) {
        duckdb_interrupt(connection);
    }
}

void BackupStop::Check() const {
    if (is_stopped_.load()) {
        throw BackupInterrupted();
    }
}

void BackupStop::Add(duckdb_connection connection) {
    const std::scoped_lock lock(mutex_);
    connections_.push_back(connection);
}

void BackupStop::Remove(duckdb_connection connection) noexcept {
    const std::scoped_lock lock(mutex_);
    std::erase(connections_, connection);
}

RunningStops::Scope::Scope(RunningStops& stops, BackupStop& stop) : stops_(stops), stop_(stop) {
    const std::scoped_lock lock(stops_.mutex_);
    stops_.stops_.push_back(&stop_);
}

RunningStops::Scope::~Scope() {
    const std::scoped_lock lock(stops_.mutex_);
    std::erase(stops_.stops_, &stop_);
}

void RunningStops::StopAll() noexcept {
    const std::scoped_lock lock(mutex_);
    for (BackupStop* const stop : stops_) {
        stop->Stop();
    }
}

}  // namespace mduckdb
