#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "mirona/extension_api.h"

namespace mduckdb::test {

/** A value of the fake host: its type and, as text, what the module stored or may read. */
struct FakeValue {
    std::uint32_t type = MIRONA_TYPE_NULL;
    std::string text;
    std::int64_t number = 0;
    std::vector<FakeValue*> items{};
};

/** A host behind the function table, one at a time: it is bound to the procedures during its lifetime. Values
    live as long as the host; cursors are closed with it. */
class FakeHost {
  public:
    FakeHost();
    FakeHost(const FakeHost&) = delete;
    FakeHost& operator=(const FakeHost&) = delete;
    ~FakeHost();

    const mirona_extension_api& get_Api() const { return api_; }
    mirona_call get_Call() { return this; }

    FakeValue* Null();
    FakeValue* Text(std::string text);
    FakeValue* Int(std::int64_t number);
    FakeValue* Array(std::vector<FakeValue*> items);
    FakeValue* Make(std::uint32_t type, std::string text);

    /** What the procedure returns for these arguments. */
    template <class Procedure>
    mirona_cursor Call(std::vector<FakeValue*> arguments);

    std::uint32_t argument_count = 0;
    std::vector<std::string> reports;
    std::vector<std::string> registered;
    std::uint32_t register_status = 0;
    /** Whether the host's provider of DuckDB was registered at the first report. */
    bool had_extension_at_report = false;
    mirona_cursor_def cursor{};
    bool has_cursor = false;

    void CloseCursor();
    /** Destroys the values. No call may use them any more. */
    void Forget();
    /** The cell as the host stored it, NULL for none. */
    std::string Cell(std::int32_t column);

  private:
    mirona_extension_api api_{};
    std::deque<FakeValue> values_;
};

}  // namespace mduckdb::test

#include "procedures/handler.h"

namespace mduckdb::test {

template <class Procedure>
mirona_cursor FakeHost::Call(std::vector<FakeValue*> arguments) {
    CloseCursor();
    std::vector<mirona_value> handles(arguments.begin(), arguments.end());
    argument_count = static_cast<std::uint32_t>(handles.size());
    return HandleCall<Procedure>(get_Call(), handles.data());
}

}  // namespace mduckdb::test
