#include "modules/files_under_stress.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

StressedFile::StressedFile(const std::string& folder, const std::string& name, FileUse use)
    : use_(use), names_{folder + "/" + name, folder + "/linked_" + name} {
    std::filesystem::create_symlink(names_[0], names_[1]);
}

void StressedFile::AddCommitted(const Row& row, int64_t generation) {
    const std::scoped_lock lock(mutex_);
    committed_[row] = generation;
}

std::size_t StressedFile::CountCommitted(int64_t worker) const {
    const std::scoped_lock lock(mutex_);
    return static_cast<std::size_t>(
        std::count_if(committed_.begin(), committed_.end(), [this, worker](const auto& entry) {
            return entry.first.first == worker && entry.second == generation_;
        }));
}

void StressedFile::ExpectCommittedRows(const std::vector<Row>& rows) const {
    const std::set<Row> found(rows.begin(), rows.end());
    EXPECT_EQ(found.size(), rows.size()) << names_[0] << " has a row twice";
    for (const auto& [row, generation] : committed_) {
        if (generation == generation_) {
            EXPECT_EQ(found.count(row), 1U)
                << names_[0] << " lost row " << row.second << " of worker " << row.first;
        }
    }
    for (const Row& row : rows) {
        EXPECT_LE(row.second, last_number_) << names_[0] << " has a row that nobody inserted";
    }
}
