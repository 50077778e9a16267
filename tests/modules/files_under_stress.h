#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "modules/loaded_module.h"
#include "nbx/mrsql/duckdb_database.h"

using DatabasePtr = nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase>;

/** What may happen to a file of the test. */
enum class FileUse {
    /** An object has it open from the first to the last moment, so nobody can drop or replace it. */
    kHeldOpen,
    /** Opened and closed, never dropped. */
    kKept,
    /** Also dropped, recreated and restored. */
    kReplaced,
    /** Restored, and otherwise only opened for a moment, so that it is free most of the time. */
    kRestored,
};

/** A row of the table `t (worker INTEGER, number BIGINT)`: each is inserted at most once. */
using Row = std::pair<int64_t, int64_t>;

/** A database file under two names, and what has been committed to it. */
class StressedFile {
  public:
    StressedFile(const std::string& folder, const std::string& name, FileUse use);

    FileUse get_Use() const { return use_; }
    const std::string& get_Name(std::size_t index) const { return names_[index]; }

    /** A number for a worker's next row. */
    int64_t TakeNumber() { return ++last_number_; }
    /** How often the file has been replaced; ask before the insert. */
    int64_t get_Generation() const { return generation_; }
    void AddCommitted(const Row& row, int64_t generation);
    /** Call after each attempt to drop, create or restore the file. */
    void CountReplacement() { ++generation_; }
    /** Rows of the worker that must be in the file. */
    std::size_t CountCommitted(int64_t worker) const;

    /** Compares the table's rows with what was committed; call it when no thread works any more. */
    void ExpectCommittedRows(const std::vector<Row>& rows) const;

  private:
    const FileUse use_;
    const std::array<std::string, 2> names_;
    std::atomic<int64_t> last_number_{0};
    std::atomic<int64_t> generation_{0};
    mutable std::mutex mutex_;
    std::map<Row, int64_t> committed_;
};
