#include <stdexcept>
#include <utility>

#include "base/errors.h"
#include "base/text.h"
#include "duckdb_internals/arrow_rows.h"
#include "objects/arrow_stream.h"
#include "objects/duckdb_cursor_imp.h"

namespace mduckdb {

/** The rows of a cursor for one stream. Keeps the cursor, and belongs to the stream. */
class DuckDBCursor_imp::ArrowReader final : public ArrowSource {
  public:
    /** The caller holds the engine lock, and the cursor is valid. */
    explicit ArrowReader(DuckDBCursor_imp& cursor)
        : cursor_(&cursor),
          rows_(*cursor.result_.get()),
          start_(cursor.FindArrowStart()),
          scan_(start_.is_from_first_row ? cursor.AddArrowScan() : cursor.scan_) {}
    ~ArrowReader() override {
        if (&scan_ != &cursor_->scan_) {
            cursor_->RemoveArrowScan(scan_);
        }
    }

    void CopySchema(ArrowSchema& out) override { rows_.CopySchema(out); }
    void ReadArray(ArrowArray& out) override;

  private:
    /** Lets `start_.rows` be the next rows of the stream, or null at their end. They stay there until they
       are converted, so that a failure in between loses none. The conversion copies them, so they may be in
       the result's memory. */
    void FetchRows();
    /** False at the end of the rows. */
    bool FetchChunk();

    const nbx::smart_ptr<DuckDBCursor_imp> cursor_;
    const ArrowRows rows_;
    ArrowStart start_;
    ResultScanHolder& scan_;
};

void DuckDBCursor_imp::ArrowReader::ReadArray(ArrowArray& out) {
    const nbx::MutexLock lock(cursor_->result_mutex_);
    if (!cursor_->result_) {
        ThrowDetachedError("The cursor of this Arrow stream was closed");
    }
    FetchRows();
    if (start_.rows) {
        rows_.Convert(start_.rows.get(), out);
        start_.rows.Reset();
    }
}

void DuckDBCursor_imp::ArrowReader::FetchRows() {
    while (start_.rows || FetchChunk()) {
        const uint64_t count = duckdb_data_chunk_get_size(start_.rows.get());
        if (start_.passed_rows == 0) {
            return;
        }
        if (start_.passed_rows < count) {
            start_.rows = CopyRows(start_.rows.get(), start_.passed_rows);
            start_.passed_rows = 0;
            return;
        }
        start_.rows.Reset();
        start_.passed_rows -= count;
    }
}

bool DuckDBCursor_imp::ArrowReader::FetchChunk() {
    start_.rows = cursor_->ReadChunk(scan_, RowsAre::of_result);
    if (start_.rows && duckdb_data_chunk_get_size(start_.rows.get()) == 0) {
        start_.rows.Reset();
    }
    if (!start_.rows && !cursor_->get_FetchError().isEmpty()) {
        cursor_->ThrowError(ToUtf8(cursor_->get_FetchError()).c_str());
    }
    return static_cast<bool>(start_.rows);
}

void ArrowExport::ExportStream(ArrowArrayStream& stream) {
    cursor_.ExportArrowStream(stream);
}

void DuckDBCursor_imp::ExportArrowStream(ArrowArrayStream& stream) {
    const EngineLockScope lock;
    RequireValid();
    try {
        MakeArrowStream(std::make_unique<ArrowReader>(*this), stream);
    } catch (const std::runtime_error& error) {
        ThrowError(error.what());
    }
    HandOverRows();
}

ResultScanHolder& DuckDBCursor_imp::AddArrowScan() {
    const nbx::MutexLock lock(result_mutex_);
    return arrow_scans_.emplace_back();
}

void DuckDBCursor_imp::RemoveArrowScan(const ResultScanHolder& scan) noexcept {
    const nbx::MutexLock lock(result_mutex_);
    arrow_scans_.remove_if([&scan](const ResultScanHolder& each) { return &each == &scan; });
}

}  // namespace mduckdb
