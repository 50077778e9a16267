#pragma once

#include <duckdb.h>

#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace mduckdb {

/** The database files that engines of this process have open.

    On Linux the lock on a file belongs to the process, not to the engine: closing any engine on a file
    drops the lock of all of them, and two engines that write to one file lose data. So a file has one
    writing engine at most, and an engine that is given up while others use the same file stays open
    until the last of them is given up; then all are closed, the writing one first. An idle reading
    engine is handed to the next reader with the same configuration instead of opening one more.

    Files are told apart by their canonical path; a path text means the same file for as long as an
    engine announced under it is open. All calls may come from any thread. */
class EngineFiles {
  public:
    /** `dead`: an engine that an internal error has made useless, but that others still refer to. */
    enum class Access { reading, writing, dead };

    static EngineFiles& Get();

    /** Announces that an engine is about to be opened on the file, which need not be there yet. False,
        and nothing announced, when another engine of this process holds the file for writing. A writing
        announcement is accepted while there are only readers. */
    bool TryHold(const std::string& path, Access access);
    /** Takes the announcement back: nothing was opened. */
    void CancelHold(const std::string& path, Access access) noexcept;
    /** Turns a hold into a `dead` one: a new engine may be opened, the file stays in use. */
    void Retire(const std::string& path, Access access) noexcept;
    /** Gives up an engine that was announced; it is closed now or when its file is no longer used. */
    void GiveUp(const std::string& path, Access access, std::string configuration,
                duckdb_database engine) noexcept;
    /** An idle reading engine with this configuration that sees the present content of the file and
        works, now held by the caller, or null. */
    duckdb_database TakeIdleReader(const std::string& path, const std::string& configuration);
    /** The idle writing engine of the file, if it works, now held by the caller for writing, or null. Two
        engines must never write, so it is taken whatever its configuration. */
    duckdb_database TakeIdleWriter(const std::string& path);
    /** Closes the idle engines of a file that is about to be deleted: a writing one would go on to its log,
        by a name that may be another file's by then. */
    void CloseIdle(const std::string& path);
    /** Whether an engine of this process holds the file for writing. */
    bool IsHeldForWriting(const std::string& path);
    /** Whether any engine of this process has the file open: then opening and closing the file by other
        means would drop the process's lock on it. */
    bool IsInUse(const std::string& path);
    /** Engines that wait to be closed; for tests and diagnosis. */
    std::size_t get_IdleCount();

  private:
    /** What tells whether a file and its write-ahead log are still as they were. */
    struct Fingerprint {
        long long device = 0, inode = 0, size = -1, changed = 0, log_size = -1, log_changed = 0;
        friend bool operator==(const Fingerprint&, const Fingerprint&) = default;
    };
    struct Idle {
        Access access;
        /** Whether a reader may be handed out again. */
        bool is_current;
        std::string configuration;
        duckdb_database engine;
    };
    struct File {
        std::size_t readers = 0, writers = 0, dead = 0;
        /** Something wrote since the oldest present reader was announced. */
        bool is_stale = false;
        /** As of the announcement of the readers that are here. */
        Fingerprint fingerprint;
        std::vector<Idle> idle;

        std::size_t& Count(Access access);
        bool IsUsed() const { return readers + writers + dead > 0; }
        /** No reader that is here now, active or idle, may be handed out again. */
        void OutdateReaders();
    };
    struct Name {
        std::string canonical;
        std::size_t holds = 0;
    };
    using Files = std::map<std::string, File>;

    static std::string Canonical(const std::string& path);
    static Fingerprint ReadFingerprint(const std::string& path);
    /** The canonical path by which the path text is known now. */
    std::string Resolve(const std::string& path);
    void AddHold(const std::string& path, const std::string& canonical, File& file, Access access);
    /** Announces an idle engine again and takes it out of the list. */
    duckdb_database Reuse(const std::string& path, const std::string& canonical, File& file,
                          const Idle& idle);
    /** The writer first. Not under the mutex, since closing may take long. */
    static void CloseAll(std::vector<Idle> engines) noexcept;
    /** Takes one hold away; gives the engines to be closed when it was the last. */
    std::vector<Idle> Leave(const std::string& path, Access access, Idle* given_up) noexcept;

    std::mutex mutex_;
    Files files_;
    std::map<std::string, Name> names_;
};

/** Whether queries run on the engine: false after an internal error has ended it. */
bool IsEngineAlive(duckdb_database engine);

}  // namespace mduckdb
