#include "backup/cut.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <utility>

#include "backup/facts.h"
#include "backup/files.h"

namespace mduckdb {

namespace {

/** Where a file's two headers end, of which every checkpoint writes one. */
constexpr std::size_t kHeadersSize = std::size_t{3} * 4096;
constexpr int kMostTries = 100;

struct LogState {
    uint64_t log_size = 0;
    std::string headers;
    friend bool operator==(const LogState&, const LogState&) = default;
};

/** While two states are equal, no commit ended between them: a commit lengthens the log, and only a
    checkpoint, which writes a header, shortens it. */
LogState ReadLogState(const std::string& file, int descriptor) {
    LogState state{FileSize(LogOf(file)), std::string(kHeadersSize, '\0')};
    alignas(4096) static thread_local std::array<char, kHeadersSize> headers;
    const ssize_t count = pread(descriptor, headers.data(), headers.size(), 0);
    state.headers.assign(headers.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    return state;
}

/** Two guards of one database at the same time need two names. */
std::string GuardTable() {
    static std::atomic<uint64_t> number{0};
    return "\"mduckdb snapshot guard " + std::to_string(getpid()) + "-" + std::to_string(++number) + "\"";
}

}  // namespace

Cut::Cut(duckdb_database engine, std::string file, bool is_read_only, BackupStop& stop)
    : file_(std::move(file)) {
    if (!is_read_only) {
        Begin(engine, stop);
        return;
    }
    BeginReading(engine, stop);
    log_size_ = FileSize(LogOf(file_));
    is_exact_ = true;
}

Cut::~Cut() {
    EndGuard();
}

void Cut::BeginReading(duckdb_database engine, BackupStop& stop) {
    reader_.emplace(engine, stop);
    PrepareForFacts(*reader_);
    reader_->Run("BEGIN TRANSACTION READ ONLY");
    // A transaction sees what was committed when it first looked at the database.
    reader_->Text("SELECT txid_current()::VARCHAR");
}

void Cut::Begin(duckdb_database engine, BackupStop& stop) {
    const int descriptor = FindOpenDescriptor(file_);
    if (descriptor < 0) {
        throw BackupError(file_ + " is not the file that the database has open: it was renamed or deleted");
    }
    for (int i = 0; i < kMostTries && !is_exact_; ++i) {
        EndGuard();
        reader_.reset();
        const LogState before = ReadLogState(file_, descriptor);
        BeginReading(engine, stop);
        guard_.emplace(engine, stop);
        guard_->Run("BEGIN TRANSACTION");
        guard_->Run("CREATE TABLE " + GuardTable() + " (i INTEGER)");
        const LogState after = ReadLogState(file_, descriptor);
        log_size_ = after.log_size;
        is_exact_ = before == after;
    }
}

void Cut::EndGuard() noexcept {
    if (guard_) {
        guard_->TryRun("ROLLBACK");
        guard_.reset();
    }
}

}  // namespace mduckdb
