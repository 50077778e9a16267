#pragma once

#include <duckdb.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "base/census.h"
#include "base/process.h"
#include "engines/configuration.h"
#include "engines/file_system.h"
#include "nbx/open_files.h"

namespace mduckdb {

class EngineFiles;

/** One use of an open engine: by a database object, or by a cursor of a procedure. Released once, at the
   latest by the destructor. */
struct Engine : nbx::noncopyable {
    enum class Access { writing, reading };

    ~Engine();
    /** Its number in the census. */
    uint64_t get_Number() const noexcept;
    /** Whether a fork has copied it from the parent, which alone may use and close it. */
    bool IsInherited() const noexcept { return process != get_ProcessNumber(); }

    duckdb_database handle = nullptr;
    Access access = Access::writing;
    EngineFiles* files = nullptr;
    nbx::OpenFile* file = nullptr;
    nbx::OpenEngine* record = nullptr;
    const uint32_t process = get_ProcessNumber();
};

/** An engine that may pass from the code that opened it to its user. */
using SharedEngine = std::shared_ptr<Engine>;

/** Releases a use of an engine, which closes with the last use of its file. In the child of a fork, an engine
   of the parent stays as it is: closing it would fold the log, which the parent still writes. */
void GiveUpEngine(Engine& engine) noexcept;

/** The database files that engines of this process have open.

    On Linux the lock on a file belongs to the process, not to the engine: closing any engine on a file drops
    the lock of all of them, and two engines that write to one file lose data. A reading engine fails when
    another one writes. So a file has either one writing engine, which all users in this process share, or
    reading engines; and an engine that is released while others use the same file stays open until the last
    of them is released. The next reader with the same configuration gets an idle reading engine.
    `nbx::FileIdentity` decides which paths mean the same file. */
class EngineFiles : nbx::noncopyable {
  public:
    explicit EngineFiles(nbx::I_OpenFiles& files, const FileSystem& system = FileSystem::Get())
        : files_(files), system_(system) {}
    /** The list of the process, shared by its modules. The child of a fork has a list of its own. */
    static EngineFiles& Get();
    /** Engines without a file, which belong to this module and are known by name. */
    static EngineFiles& Nameless();

    /** Whether any engine of this process has the file open. */
    bool IsInUse(const std::string& path);
    /** For tests and diagnostics. */
    std::size_t get_EngineCount() { return files_.CountEngines(); }
    /** Has the function called after each opening and closing of an engine of this module; null for none. It
        must not use the lists' turns. From any thread. */
    static void put_ChangeHandler(void (*handler)() noexcept) noexcept { gChangeHandler.store(handler); }
    /** As `nbx::I_OpenFiles::ListEngines` has it. */
    void Visit(void (*visit)(void* context, const nbx::OpenEngine& engine), void* context) {
        files_.ListEngines(visit, context);
    }
    /** Adds a line of the census for each engine. Throws `std::bad_alloc`. */
    void List(std::vector<CensusLine>& lines);

  private:
    friend class FileTurn;
    friend void GiveUpEngine(Engine& engine) noexcept;

    static void ReportChange() noexcept;

    static std::atomic<void (*)() noexcept> gChangeHandler;

    nbx::I_OpenFiles& files_;
    const FileSystem& system_;
};

/** The turn on a file: while it lasts, no other thread of this process opens, closes, deletes or replaces it
    through this module. Engines are closed at the end of a turn after which the file has no user. */
class FileTurn : nbx::noncopyable {
  public:
    /** Waits for the turn on the file that the path (UTF-8) means now. Throws `std::bad_alloc`. */
    FileTurn(EngineFiles& files, const std::string& path);
    /** For an engine without a file: a name instead of the path. */
    static FileTurn OfName(const std::string& name) { return FileTurn(name); }
    ~FileTurn();

    /** Number of users in this process, under any name of the file, including the cursors of procedures. */
    uint32_t get_UserCount() const;
    /** The file that the path means now. */
    const FileLook& get_Look() const { return look_; }
    bool get_Exists() const { return look_.exists; }
    /** Whether something that is not on the list, such as an ATTACH, has the file open as a database in this
        process, and would lose its lock if the file were opened and closed again. */
    bool IsOpenByOtherMeans() const;
    /** Why an engine must not be opened now; empty when it may be opened. */
    std::string get_Refusal(Engine::Access access) const;

    /** Whether the file is open for writing in this process, by an engine on the list. */
    bool HasWriter() const { return Find(nbx::OpenEngine::kWriting) != nullptr; }
    /** A use of the writing engine, which may have failed; null when there is none. */
    SharedEngine JoinWriter();
    /** A use of an idle reading engine that works, has this configuration and sees the present content, or
     * null. */
    SharedEngine TakeIdleReader(const Configuration& configuration);
    /** Opens an engine for writing; null and the reason (DuckDB's text, which may be empty) on failure. */
    SharedEngine OpenWriter(const std::string& path, const Configuration& configuration, std::string& error);
    /** The same for reading. */
    SharedEngine OpenReader(const std::string& path, const Configuration& configuration, std::string& error);
    /** Releases a use. */
    void GiveUp(Engine& engine) noexcept;
    /** Releases a use of an engine that an internal error has ended: nobody gets it any more. */
    void Retire(Engine& engine) noexcept;

    /** Called before the file is deleted or replaced: threads that use its path wait for this turn. */
    void ClaimPlace() { files_.files_.ClaimPlace(file_, look_.get_Identity()); }
    /** Called afterwards: looks at the file again. */
    void LookAgain() noexcept;
    /** After the file was deleted, instead of that. */
    void MarkDeleted() noexcept;

  private:
    explicit FileTurn(const std::string& name);
    FileTurn(EngineFiles& files, nbx::OpenFile* file);
    friend void GiveUpEngine(Engine& engine) noexcept;

    nbx::OpenEngine* Find(uint32_t access) const;
    uint32_t CountReaders() const;
    SharedEngine Use(nbx::OpenEngine& record);
    void Bind(Engine& engine, nbx::OpenEngine& record) noexcept;
    SharedEngine Open(const std::string& path, const Configuration& configuration, Engine::Access access,
                      std::string& error);
    void CloseUnused() noexcept;

    EngineFiles& files_;
    FileLook look_;
    nbx::OpenFile* file_ = nullptr;
    bool is_file_ = true;
};

/** Distinguishes the copy of DuckDB that this module is linked with from others that the process may have
    loaded. */
const void* get_DuckDBLibrary() noexcept;

/** Whether queries run on the engine: false after an internal error has ended it. */
bool IsEngineAlive(duckdb_database engine);

}  // namespace mduckdb
