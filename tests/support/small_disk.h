#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "support/temp_folder.h"

/** An in-memory file system of the given size, for as long as this object exists. Needs the right to mount;
    tests without it skip. */
class SmallDisk {
  public:
    explicit SmallDisk(std::uint64_t bytes);
    ~SmallDisk();
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    /** Why there is no such file system, or an empty text. */
    const std::string& get_Refusal() const { return refusal_; }
    const std::filesystem::path& get_Path() const { return folder_.get_Path(); }
    void MakeReadOnly();
    /** Fills the file system completely. */
    void Fill();
    void MakeRoom();

  private:
    TempFolder folder_;
    std::string refusal_;
};
