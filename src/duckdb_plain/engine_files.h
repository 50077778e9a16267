#pragma once

#include <duckdb.h>

#include <string>

namespace duckdb_plain {

/** The database files that engines of this process have open.

    On Linux the lock on a file belongs to the process, not to the engine: closing any engine on a file
    drops the lock of all of them, and two engines that write to one file lose data. So a file has one
    writing engine at most, and an engine that is given up while others use the same file stays open
    until the last of them is given up; then all are closed, the writing one first. An idle reading
    engine is handed to the next reader with the same configuration instead of opening one more.

    Files are told apart by their canonical path. All calls may come from any thread. */
class EngineFiles {
  public:
    enum class Access { reading, writing };

    static EngineFiles& Get();

    /** Announces that an engine is about to be opened on the file, which need not be there yet. False,
        and nothing announced, when another engine of this process holds the file for writing. A writing
        announcement is accepted while there are only readers. */
    bool TryHold(const std::string& path, Access access);
    /** Takes the announcement back: nothing was opened. */
    void CancelHold(const std::string& path, Access access);
    /** Gives up an engine that was announced; it is closed now or when its file is no longer used. */
    void GiveUp(const std::string& path, Access access, const std::string& configuration,
                duckdb_database engine);
    /** An idle reading engine with this configuration that sees the present content of the file and
        works, now held by the caller, or null. */
    duckdb_database TakeIdleReader(const std::string& path, const std::string& configuration);
    /** Whether an engine of this process holds the file for writing. */
    bool IsHeldForWriting(const std::string& path);
    /** Engines that wait to be closed; for tests and diagnosis. */
    std::size_t get_IdleCount();
};

}  // namespace duckdb_plain
