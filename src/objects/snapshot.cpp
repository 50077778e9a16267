#include "backup/snapshot.h"
#include "backup/error.h"

#include <optional>

#include "backup/export_check.h"
#include "base/errors.h"
#include "base/text.h"
#include "duckdb_internals/failures.h"
#include "objects/database.h"
#include "objects/operation.h"

namespace mduckdb {

namespace {

/** Listed as an export, for which `Close` waits. */
class RunningWork : nbx::noncopyable {
  public:
    explicit RunningWork(ExportGate& gate) NBX_REQUIRES(gEngineLock) : gate_(gate) { gate_.Begin(); }
    ~RunningWork() { gate_.End(); }

  private:
    ExportGate& gate_;
};

}  // namespace

template <class Work>
void DuckDBDatabase::RunBeside(Work work) {
    const nbx::String path = location_->get_Text();
    std::string error;
    bool is_interrupted = false;
    {
        BackupStop stop;
        std::optional<Deadline> deadline;
        const uint64_t limit = link_->get_TimeLimit();
        duckdb_database engine = nullptr;
        std::optional<RunningWork> running;
        {
            const EngineLockScope lock;
            link_->RequireConnection();
            engine = engine_->handle;
            running.emplace(export_gate_);
        }
        try {
            CensusEntry entry(CensusLine::kBackup, link_->get_Census().get_Number());
            entry.Enter();
            entry.BeginRunning();
            const RunningStops::Scope scope(running_stops_, stop);
            SetDeadline(deadline, limit, stop);
            work(engine, stop);
        } catch (const BackupInterrupted&) {
            is_interrupted = !deadline || !deadline->get_HasCut();
            error = is_interrupted ? "" : DescribeCut(limit);
        } catch (const BackupError& failed) {
            error = failed.what();
        }
    }
    // A thread that waited for the end may have closed and destroyed this object by now.
    if (is_interrupted) {
        ThrowInterrupted();
    }
    if (!error.empty()) {
        ThrowDuckDBError(path, FailureOf(error.c_str(), ""));
    }
}

void DuckDBDatabase::Snapshot(nbx::smart_ptr<nbx::I_Location> file) {
    if (!file) {
        throw nbx::xDBError(kNoBackupLocationCode);
    }
    const std::string target = ToPath(file->get_PathText());
    RunBeside([&target](duckdb_database engine, BackupStop& stop) { TakeSnapshot(engine, target, stop); });
}

nbx::String DuckDBDatabase::VerifyBackup(const nbx::I_Location& folder) {
    const std::string path = ToPath(folder.get_PathText());
    std::string text;
    RunBeside([&](duckdb_database engine, BackupStop& stop) {
        for (const std::string& line : CompareExport(engine, path, stop)) {
            text += (text.empty() ? "" : "\n") + line;
        }
    });
    return FromUtf8(text);
}

}  // namespace mduckdb
