#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

#include "nbx/arrow_c_data.h"
#include "nbx/mrsql/duckdb_arrow.h"

namespace mduckdb {

/** Owns a record of Arrow's C interfaces, as a reader does. */
template <class Record>
class ArrowOwner {
  public:
    ArrowOwner() = default;
    ~ArrowOwner() { Release(); }
    ArrowOwner(ArrowOwner&& other) noexcept : record_(std::exchange(other.record_, Record{})) {}
    ArrowOwner& operator=(ArrowOwner&& other) noexcept {
        std::swap(record_, other.record_);
        return *this;
    }
    ArrowOwner(const ArrowOwner&) = delete;
    ArrowOwner& operator=(const ArrowOwner&) = delete;

    void Release() {
        if (record_.release != nullptr) {
            record_.release(&record_);
            EXPECT_EQ(record_.release, nullptr);
        }
    }
    Record* get() { return &record_; }
    Record& operator*() { return record_; }
    Record* operator->() { return &record_; }
    explicit operator bool() const { return record_.release != nullptr; }

  private:
    Record record_{};
};

using OwnedSchema = ArrowOwner<ArrowSchema>;
using OwnedArray = ArrowOwner<ArrowArray>;

/** A reader of a stream that fails a test when a call fails which it does not expect to fail. */
class ArrowReader {
  public:
    ArrowReader() = default;
    template <class Object>
    explicit ArrowReader(Object& object) {
        Find(object).ExportStream(*stream_);
    }
    template <class Object>
    static nbx::mrsql::I_DuckDBArrow& Find(Object& object) {
        return *static_cast<nbx::mrsql::I_DuckDBArrow*>(
            object.QueryInterface(nbx::mrsql::kDuckDBArrowInterfaceId));
    }

    ArrowArrayStream& get() { return *stream_; }
    OwnedSchema Schema();
    /** Released at the end of the rows. */
    OwnedArray Next();
    /** The failure of the next array: "EIO: text"; "end" at the end, and "rows" if there are some. */
    std::string Fail();
    void Release() { stream_.Release(); }

    /** What each remaining array has, as `Describe`; the numbers of rows go to `count`. */
    std::string Rest(int64_t& count);
    /** The remaining rows of a first column of BIGINT, which are numbers in a row: "FIRST..LAST", or "none".
     */
    std::string RestOfNumbers();

  private:
    ArrowOwner<ArrowArrayStream> stream_;
};

/** The schema with all children, on one line each. */
std::string Describe(const ArrowSchema& schema, int depth = 0);
/** Everything that the array holds, by its schema; rows that are NULL without what their buffers have. */
std::string Describe(const ArrowSchema& schema, const ArrowArray& array);

}  // namespace mduckdb
