#pragma once

#include <cstdint>

#include "nbx/export.h"

namespace nbx {

/** How the file system identifies a file. An existing file is identified by its device and inode, whatever
    path leads to it; one that does not exist yet, by the place where it would be: its folder and its name
    there. */
struct FileIdentity {
    bool exists;
    uint64_t device;
    uint64_t inode;
    uint64_t folder_device;
    uint64_t folder_inode;
    /** NUL-terminated. */
    const char* name;
};

/** A database engine that has a file open. The fields belong to the thread that has the file's turn; those
   that `ListEngines` shows are changed through the list alone. */
struct OpenEngine {
    enum : uint32_t {
        kWriting = 0,
        kReading = 1,
        /** An internal error ended it, but some of its users still refer to it. */
        kDead = 2,
    };

    OpenEngine* next;
    void* handle;
    /** Which loaded copy of the engine's library the handle belongs to. */
    const void* library;
    uint32_t access;
    /** An engine without users stays open while the file has others: closing it would drop their lock. */
    uint32_t users;
    /** What the file and its log looked like when the engine was opened. */
    int64_t stamp[4];
    /** Equal texts mean equal engines. The list owns the text, which may hold NUL characters. */
    const char* configuration;
    uint64_t configuration_length;
    /** Counts from 1 in its list and is never used again. */
    uint64_t number;
    /** When the record was made, in milliseconds of the system's monotonic clock. */
    int64_t begun_ms;
    /** UTF-8, NUL-terminated; the list owns it. */
    const char* path;
};

/** A file on the list. */
struct OpenFile {
    OpenEngine* engines;
};

/** The files that this process has open as databases, for every module that it has loaded.

    One thread at a time has the turn on a file; only that thread looks at the file's engines, and opens,
   closes, deletes or replaces the file. The list's own lock is held for look-ups alone, so work on one file
    never holds up another. A file leaves the list when nobody has its turn and it has no engine. */
class I_OpenFiles {
  public:
    /** Waits for the turn on the file and takes it; a thread that has it takes it once more. Throws
        `std::bad_alloc`. */
    virtual OpenFile* Take(const FileIdentity& identity) = 0;
    /** The same for a file on which the caller has an engine. */
    virtual void TakeAgain(OpenFile* file) noexcept = 0;
    /** Ends the turn. */
    virtual void Release(OpenFile* file) noexcept = 0;
    /** Whether `Take` would wait for this file; false when another file has taken the path meanwhile. */
    virtual bool Matches(const OpenFile* file, const FileIdentity& identity) noexcept = 0;
    /** Until the turn ends, threads that ask for the file's place wait too: the file there is about to be
       deleted or replaced. Throws `std::bad_alloc`. */
    virtual void ClaimPlace(OpenFile* file, const FileIdentity& identity) = 0;
    /** The file at the claimed place exists now, or is another one. */
    virtual void SetIdentity(OpenFile* file, const FileIdentity& identity) noexcept = 0;
    /** A record without a handle and without users: a dead engine. Throws `std::bad_alloc`. */
    virtual OpenEngine* AddEngine(OpenFile* file, const char* path, const char* configuration,
                                  uint64_t configuration_length) = 0;
    virtual void SetHandle(OpenEngine* engine, void* handle, uint32_t access) noexcept = 0;
    virtual void SetAccess(OpenEngine* engine, uint32_t access) noexcept = 0;
    virtual void SetUsers(OpenEngine* engine, uint32_t users) noexcept = 0;
    virtual void RemoveEngine(OpenFile* file, OpenEngine* engine) noexcept = 0;
    /** For tests and diagnostics. */
    virtual uint64_t CountEngines() noexcept = 0;
    /** Shows every engine to `visit`, which must return soon and not call the list. No engine is closed
        meanwhile. The handle is null while an engine is being opened or closed. What `visit` throws passes.
     */
    virtual void ListEngines(void (*visit)(void* context, const OpenEngine& engine), void* context) = 0;

  protected:
    ~I_OpenFiles() = default;
};

/** Creates a separate list, which is never destroyed. Not exported: every library that needs one is linked
    with the code. */
I_OpenFiles& MakeOpenFiles();

}  // namespace nbx

/** The process's list; the child of a fork has a new one. The number is the version of everything above: a
   change to it is a new function. A weak reference, so that a module also loads with an older foundation that
   lacks it; there it is null. */
extern "C" NBX_API nbx::I_OpenFiles* nbx_open_files_1() __attribute__((weak));
