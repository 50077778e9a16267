#pragma once

#include <memory>

#include "nbx/arrow_c_data.h"

namespace mduckdb {

/** Where the arrays of an Arrow stream come from. Its calls come one after the other, on any thread and
   without the engine lock; they throw what the cursors throw. */
class ArrowSource {
  public:
    ArrowSource() = default;
    ArrowSource(const ArrowSource&) = delete;
    ArrowSource& operator=(const ArrowSource&) = delete;
    virtual ~ArrowSource() = default;

    virtual void CopySchema(ArrowSchema& out) = 0;
    /** `out` is a released array at the end of the rows. */
    virtual void ReadArray(ArrowArray& out) = 0;
};

/** Makes a stream of the source, which the stream owns until it is released. Nothing that the source throws
    crosses the stream's callbacks. Throws `std::bad_alloc`; then `out` is unchanged. */
void MakeArrowStream(std::unique_ptr<ArrowSource> source, ArrowArrayStream& out);

}  // namespace mduckdb
