#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "data/datum.h"
#include "mirona/extension_api.h"

namespace mduckdb_host {

/** The object that a `mirona_value` points to. Each element of an array is a value of its own. */
struct HostValue {
    explicit HostValue(Datum content);

    Datum datum;
    std::vector<HostValue> elements;
    /** The text that `value_text` returned, which must stay valid. */
    std::string text;
};

/** Receives the errors that the module reports: during initialisation the host, afterwards the call of a
    procedure. Both kinds of handle are pointers to this class. */
class ErrorTarget {
  public:
    virtual ~ErrorTarget();
    virtual void ReportError(std::string_view text) = 0;
};

/** The host's side of a cursor. */
class HostCursor {
  public:
    virtual ~HostCursor();
    virtual const std::vector<Column>& get_Columns() const = 0;
    virtual uint64_t get_RowCount() const = 0;
    /** Moves to the next row and reads it; false at the end. */
    virtual bool NextRow(Row& row) = 0;
    /** Moves to a row, counted from 0, and reads it; false when there is no such row. */
    virtual bool GoToRow(int64_t number, Row& row) = 0;
};

/** A procedure that the module registered. */
struct Procedure {
    std::string name;
    uint32_t min_args = 0;
    uint32_t max_args = 0;
    std::string signature;
    std::string description;
    mirona_procedure_handler handler = nullptr;
};

/** One call of a procedure, from its arguments to the end of its cursor. Owns every value created during the
    call; the values of a row are valid until the next row. For one thread. */
class ProcedureCall final : public ErrorTarget {
  public:
    ProcedureCall(const Procedure& procedure, std::vector<Datum> arguments);
    ~ProcedureCall() override;
    ProcedureCall(const ProcedureCall&) = delete;
    ProcedureCall& operator=(const ProcedureCall&) = delete;

    /** Runs the procedure. Returns null when it reported an error. The cursor lives as long as the call. */
    HostCursor* Run();
    /** The errors that the procedure reported, one per line. */
    const std::string& get_Error() const noexcept { return error_; }

    void ReportError(std::string_view text) override;

    // For the function table.
    uint32_t get_ArgumentCount() const noexcept { return static_cast<uint32_t>(arguments_.size()); }
    HostValue* MakeValue(Datum datum);
    /** Marks the values created since the last call as free for reuse. */
    void ReleaseValues() noexcept { used_values_ = 0; }
    HostCursor* AddCursor(std::unique_ptr<HostCursor> cursor);

  private:
    const Procedure& procedure_;
    std::deque<HostValue> arguments_;
    // A deque keeps addresses, which handles rely on. The first `used_values_` are in use.
    std::deque<HostValue> values_;
    std::size_t used_values_ = 0;
    std::vector<std::unique_ptr<HostCursor>> cursors_;
    std::string error_;
};

/** A cursor over the module's callbacks. Copies the record; its destructor calls `close`. */
std::unique_ptr<HostCursor> MakeCallbackCursor(ProcedureCall& call, const mirona_cursor_def& def);
/** A cursor over rows in memory. */
std::unique_ptr<HostCursor> MakeTableCursor(std::vector<Column> columns, std::vector<Row> rows);

}  // namespace mduckdb_host
