#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "support/temp_folder.h"

/** A file system of its own with so many bytes, in memory, until this goes. Only for tests that run with the
    right to mount; the others skip. */
class SmallDisk {
  public:
    explicit SmallDisk(std::uint64_t bytes);
    ~SmallDisk();
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    /** Why there is none, or an empty text. */
    const std::string& get_Refusal() const { return refusal_; }
    const std::filesystem::path& get_Path() const { return folder_.get_Path(); }
    void MakeReadOnly();
    /** Leaves no byte free. */
    void Fill();
    void MakeRoom();

  private:
    TempFolder folder_;
    std::string refusal_;
};
