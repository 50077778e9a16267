#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace mduckdb {

/** The files of a folder as they were at one moment, without the files' contents. */
class FolderStamp {
  public:
    /** Throws `std::bad_alloc`. */
    explicit FolderStamp(const std::string& folder);

    /** Whether a change after this stamp is certain to show in the next one. File systems record times in
        steps of up to two seconds, so two changes that follow each other may look like one. */
    bool get_IsSettled() const noexcept { return is_settled_; }
    /** Whether the same files are there, as far as the stamps show. */
    friend bool operator==(const FolderStamp& a, const FolderStamp& b) noexcept {
        return a.entries_ == b.entries_;
    }

  private:
    struct Entry {
        std::string name;
        uint64_t device = 0;
        uint64_t inode = 0;
        int64_t size = 0;
        int64_t modified_ns = 0;
        int64_t changed_ns = 0;

        friend bool operator==(const Entry&, const Entry&) = default;
    };

    void Add(int folder, const char* name);

    /** By name; first the folder itself. Empty when there is no folder. */
    std::vector<Entry> entries_;
    int64_t newest_ns_ = INT64_MIN;
    bool is_settled_ = true;
};

/** What an engine takes over from the process and the disk, at its opening or with its first query, and keeps
    while it is open. */
class Surroundings {
  public:
    /** Throws `std::bad_alloc`. */
    explicit Surroundings(const std::string& secrets_folder);

    /** Whether an engine that was opened in these surroundings is as one that is opened now. */
    bool AreUnchanged() const;

  private:
    std::string secrets_folder_;
    FolderStamp secrets_;
    std::string environment_;
};

}  // namespace mduckdb
