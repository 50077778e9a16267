#pragma once

#include <filesystem>
#include <string>

/** A new empty folder that is deleted with everything in it. */
class TempFolder {
  public:
    explicit TempFolder(const std::filesystem::path& place = std::filesystem::temp_directory_path());
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& get_Path() const { return path_; }
    /** The path of a file in the folder, as UTF-8. */
    std::string operator/(const std::string& name) const { return (path_ / name).string(); }

  private:
    std::filesystem::path path_;
};
