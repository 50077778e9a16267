#pragma once

#include <cstdint>
#include <string>

#include "nbx/export.h"
#include "nbx/location.h"
#include "nbx/unknown.h"

namespace nbx {

/** A file at a location. Operations throw `xException` when the system refuses; for one thread at a time. */
class NBX_API I_File : public I_Unknown {
  public:
    virtual void put_Location(smart_ptr<I_Location> location) = 0;
    /** Decides how `Open` opens; false by default. */
    virtual void put_IsReadOnly(bool is_read_only) = 0;
    /** Opens a file that is there. */
    virtual void Open() = 0;
    /** Makes the file, emptied when it is there, and opens it for writing. */
    virtual void Create() = 0;
    /** No error when the file is not open. */
    virtual void Close() = 0;
    /** Bytes in the file, which must be open. */
    virtual uint64_t get_Size() const = 0;
    /** The same number as `get_Size`, for a file that need not be open. */
    virtual uint64_t get_Length() const = 0;
    virtual bool get_Exists() const = 0;
    /** Reads up to `count` bytes at `offset`; gives how many there were. */
    virtual uint32_t Read(void* buffer, uint64_t offset, uint32_t count) = 0;
    /** Writes `count` bytes at `offset`; gives `count`. */
    virtual uint32_t Write(const void* buffer, uint64_t offset, uint32_t count) = 0;
    /** Deletes the file, which must be closed. */
    virtual void ThrowOut() = 0;
    /** Hands what was written to the disk. */
    virtual void Flush() = 0;
};

/** The host's file. Starts without a location and with a reference count of 0. */
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

/** The name under which the module makes files. */
class NBX_API FileWin final : public File {};

/** A new file on the location, with one reference for the caller. */
NBX_API smart_ptr<I_File> CreateFile(smart_ptr<I_Location> location);

}  // namespace nbx
