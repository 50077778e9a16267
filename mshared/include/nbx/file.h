#pragma once

#include <cstdint>
#include <string>

#include "nbx/export.h"
#include "nbx/location.h"
#include "nbx/unknown.h"

namespace nbx {

/** A file at a location. Offsets and sizes are in bytes.

    Operations that the system refuses throw `xException` (`kFileErrorCode`) with the path, the operation and
    the system's reason; those that need an open file also do so when it is closed. A file object is for one
    thread at a time. */
class NBX_API I_File : public I_Unknown {
  public:
    /** The location for the next `Open`, `Create`, `get_Length`, `get_Exists` or `ThrowOut`. */
    virtual void put_Location(smart_ptr<I_Location> location) = 0;
    /** Whether the next `Open` opens for reading only; false by default. */
    virtual void put_IsReadOnly(bool is_read_only) = 0;
    /** Opens an existing file; closes the object's open file first. Throws for a folder and for a missing
        file. Never waits for the other end of a named pipe. Other programs that this process starts do not
        inherit the file. */
    virtual void Open() = 0;
    /** Creates the file, or empties an existing one, and opens it for reading and writing; closes the
        object's open file first. */
    virtual void Create() = 0;
    /** Does nothing if the file is not open. The file counts as closed even if this throws. */
    virtual void Close() = 0;
    /** Size of the file, which must be open. */
    virtual uint64_t get_Size() const = 0;
    /** Size of the file, whether it is open or not. */
    virtual uint64_t get_Length() const = 0;
    /** Whether something other than a folder exists at the location now. Never throws for a missing file. */
    virtual bool get_Exists() const = 0;
    /** Reads up to `count` bytes at `offset` into `buffer` and returns how many it read: fewer than `count`
        only at the end of the file. Does not move a position. */
    virtual uint32_t Read(void* buffer, uint64_t offset, uint32_t count) = 0;
    /** Writes `count` bytes at `offset` and returns `count`. After a failure a part may be written. */
    virtual uint32_t Write(const void* buffer, uint64_t offset, uint32_t count) = 0;
    /** Deletes the file, which this object must not have open. */
    virtual void ThrowOut() = 0;
    /** Waits until the written data is on the disk (`fsync`). The file must be open. */
    virtual void Flush() = 0;
};

/** The host's file. A new one has no location and a reference count of 0. The destructor closes the file and
    ignores errors; callers that need to know call `Flush` and `Close` first. */
class NBX_API File : public Counted<I_File> {
  public:
    File() = default;
    ~File() override;

    void* QueryInterface(uint32_t interface_id) override;

    void put_Location(smart_ptr<I_Location> location) override;
    void put_IsReadOnly(bool is_read_only) override;
    void Open() override;
    void Create() override;
    void Close() override;
    uint64_t get_Size() const override;
    uint64_t get_Length() const override;
    bool get_Exists() const override;
    uint32_t Read(void* buffer, uint64_t offset, uint32_t count) override;
    uint32_t Write(const void* buffer, uint64_t offset, uint32_t count) override;
    void ThrowOut() override;
    void Flush() override;

  private:
    std::string get_NativePath() const;
    [[noreturn]] void Fail(const char* operation, int error_number) const;
    void OpenWith(int flags, const char* operation);

    smart_ptr<I_Location> location_;
    bool is_read_only_ = false;
    int descriptor_ = -1;
};

/** The class that modules instantiate; the name is part of the host's interface. */
class NBX_API FileWin final : public File {};

/** Returns a new, closed file object with the location; the caller owns the reference. Does not touch the
    file system. */
NBX_API smart_ptr<I_File> CreateFile(smart_ptr<I_Location> location);

}  // namespace nbx
