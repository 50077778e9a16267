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

/** What stands behind a `mirona_value`. Elements of an array are values of their own. */
struct HostValue {
    explicit HostValue(Datum content);

    Datum datum;
    std::vector<HostValue> elements;
    /** What `value_text` gave out, if it was asked. */
    std::string text;
};

/** Whoever the module may report an error to: the host while the module is initialised, afterwards the
    call of a procedure. Both kinds of handle are pointers to this class. */
class ErrorTarget {
  public:
    virtual ~ErrorTarget();
    virtual void ReportError(std::string_view text) = 0;
};

/** A cursor as the host holds it. */
class HostCursor {
  public:
    virtual ~HostCursor();
    virtual const std::vector<Column>& get_Columns() const = 0;
    virtual uint64_t get_RowCount() const = 0;
    /** Steps to the next row and reads it; false at the end. */
    virtual bool NextRow(Row& row) = 0;
    /** Steps to a row, counted from 0, and reads it; false when there is no such row. */
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

/** One call of a procedure, from its arguments to the closing of its cursor. Owns every value that was
    made during the call; those of a row die with the next row. For one thread. */
class ProcedureCall final : public ErrorTarget {
  public:
    ProcedureCall(const Procedure& procedure, std::vector<Datum> arguments);
    ~ProcedureCall() override;
    ProcedureCall(const ProcedureCall&) = delete;
    ProcedureCall& operator=(const ProcedureCall&) = delete;

    /** Runs the procedure. Null when it reported an error. The cursor lives as long as the call. */
    HostCursor* Run();
    /** The text that the procedure reported; of several ones, a line each. */
    const std::string& get_Error() const noexcept { return error_; }

    void ReportError(std::string_view text) override;

    // What the function table needs.
    uint32_t get_ArgumentCount() const noexcept { return static_cast<uint32_t>(arguments_.size()); }
    HostValue* MakeValue(Datum datum);
    /** Forgets the values made since the last call. */
    void ReleaseValues() noexcept { used_values_ = 0; }
    HostCursor* AddCursor(std::unique_ptr<HostCursor> cursor);

  private:
    const Procedure& procedure_;
    std::deque<HostValue> arguments_;
    // Addresses must stay, so that a handle stays good; the first `used_values_` are in use.
    std::deque<HostValue> values_;
    std::size_t used_values_ = 0;
    std::vector<std::unique_ptr<HostCursor>> cursors_;
    std::string error_;
};

/** A cursor over the module's callbacks. Copies the record; closes its state when it goes. */
std::unique_ptr<HostCursor> MakeCallbackCursor(ProcedureCall& call, const mirona_cursor_def& def);
/** A cursor over rows that are there already. */
std::unique_ptr<HostCursor> MakeTableCursor(std::vector<Column> columns, std::vector<Row> rows);

}  // namespace mduckdb_host
