#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "mshared/test_support.h"
#include "nbx/json.h"
#include "nbx/mrsql/registry.h"

namespace nbx::mrsql {
namespace {

/** A cursor over the rows of a test; moves with `NextRecord` only, like a server cursor. */
class FakeCursor final : public Counted<I_DuckDBCursor> {
  public:
    FakeCursor(std::vector<String> names, std::vector<std::vector<ValuePtr>> rows)
        : names_(std::move(names)), rows_(std::move(rows)) {}

    void* QueryInterface(uint32_t /*interface_id*/) override { return nullptr; }

    uint32_t get_ColumnCount() const override { return static_cast<uint32_t>(names_.size()); }
    const String& get_ColumnName(uint32_t column_index) const override { return names_[column_index]; }
    const String& get_ColumnTypeName(uint32_t /*column_index*/) const override { return String::sEmpty(); }
    uint32_t get_ColumnType(uint32_t /*column_index*/) const override { return 0; }
    uint32_t get_RecordCount() override { return Refuse(); }
    uint32_t get_CurrentRecord() override { return Refuse(); }
    bool put_CurrentRecord(uint32_t /*record*/) override { return Refuse() != 0; }
    smart_ptr<I_DuckDBDatabase> get_Database() override { return nullptr; }
    void Close() override {}
    bool FirstRecord() override { return Refuse() != 0; }
    bool LastRecord() override { return Refuse() != 0; }
    bool NextRecord() override { return record_ < rows_.size() && ++record_ <= rows_.size(); }
    bool PrevRecord() override { return Refuse() != 0; }
    smart_ptr<I_Value> get_Value(uint32_t column_index) override { return rows_[record_ - 1][column_index]; }
    void Detach() override {}

  private:
    static uint32_t Refuse() { throw std::logic_error("Only NextRecord may move the cursor"); }

    std::vector<String> names_;
    std::vector<std::vector<ValuePtr>> rows_;
    std::size_t record_ = 0;
};

std::string ToJson(std::vector<String> names, std::vector<std::vector<ValuePtr>> rows) {
    return Narrow(CursorToJSON(MakeObject<FakeCursor>(std::move(names), std::move(rows))));
}

ValuePtr MakeLong(int32_t content) {
    return TakeValue(CreateValueLong(false, &content, nullptr));
}

ValuePtr MakeDouble(double content) {
    return TakeValue(CreateValueDouble(false, &content, nullptr));
}

ValuePtr MakeText(std::string_view content) {
    return TakeValue(CreateValueString(false, &content, nullptr));
}

ValuePtr MakeJson(std::string_view content) {
    return TakeValue(CreateValueJSON(false, &content, nullptr));
}

ValuePtr MakeNull() {
    ValuePtr value = TakeValue(CreateValueBoolean(true, nullptr, nullptr));
    value->put_IsNull(true);
    return value;
}

TEST(CursorToJSON, WritesAnObjectForEachRow) {
    EXPECT_EQ(
        ToJson({Wide("id"), Wide("name")}, {{MakeLong(1), MakeText("one")}, {MakeLong(-2), MakeNull()}}),
        R"([{"id":1,"name":"one"},{"id":-2,"name":null}])");
}

TEST(CursorToJSON, WritesAnEmptyArrayWithoutRows) {
    EXPECT_EQ(ToJson({Wide("id")}, {}), "[]");
    EXPECT_EQ(Narrow(CursorToJSON(nullptr)), "[]");
}

TEST(CursorToJSON, ContinuesFromTheCursorsPosition) {
    const auto cursor = MakeObject<FakeCursor>(
        std::vector<String>{Wide("a")},
        std::vector<std::vector<ValuePtr>>{{MakeLong(1)}, {MakeLong(2)}, {MakeLong(3)}});
    EXPECT_TRUE(cursor->NextRecord());
    EXPECT_EQ(Narrow(CursorToJSON(cursor)), R"([{"a":2},{"a":3}])");
}

TEST(CursorToJSON, WritesEachKindInItsForm) {
    const bool yes = true;
    const uint64_t largest = UINT64_MAX;
    const float fraction = 0.1F;
    const DateContent date{2024, 1, 31};
    const std::string_view bytes("\x01\xFF", 2);
    const std::vector<std::pair<ValuePtr, std::string>> cases{
        {TakeValue(CreateValueBoolean(false, &yes, nullptr)), "true"},
        {TakeValue(CreateValueULLong(false, &largest, nullptr)), "18446744073709551615"},
        {TakeValue(CreateValueFloat(false, &fraction, nullptr)), "0.1"},
        {MakeDouble(1e300), "1e+300"},
        {MakeDouble(HUGE_VAL), "\"inf\""},
        {MakeDouble(-HUGE_VAL), "\"-inf\""},
        {MakeDouble(std::nan("")), "\"nan\""},
        {TakeValue(CreateValueDate(false, &date, nullptr)), "\"2024-01-31\""},
        {TakeValue(CreateValueFixedBinary(false, &bytes, nullptr)), "\"01ff\""},
        {MakeJson("{\"a\": [1.10]}"), "{\"a\": [1.10]}"},
        {MakeJson("{\"a\": "), "\"{\\\"a\\\": \""},
        {MakeJson(""), "\"\""},
        {MakeJson("\xEF\xBB\xBF{}"), "\"\xEF\xBB\xBF{}\""},
        {MakeText("\"\\/\b\n\x1F\x7F\xE2\x82\xAC"), "\"\\\"\\\\/\\u0008\\u000a\\u001f\x7F\xE2\x82\xAC\""},
        {MakeText(std::string_view("a\0b", 3)), "\"a\\u0000b\""},
        {nullptr, "null"},
    };
    for (const auto& [value, expected] : cases) {
        const std::string json = ToJson({Wide("v")}, {{value}});
        EXPECT_EQ(json, "[{\"v\":" + expected + "}]");
        EXPECT_TRUE(Json(json.c_str()).isValid()) << json;
    }
}

TEST(CursorToJSON, IsValidJsonForAnyNamesAndTexts) {
    const char16_t lone_surrogate[] = {u'a', 0xD800, u'b'};
    const ValuePtr value = MakeText("");
    value->put_Text(String(lone_surrogate, 3));
    const std::string json = ToJson({Wide("say \"x\"\n"), String(lone_surrogate, 3)}, {{MakeLong(1), value}});
    EXPECT_EQ(json,
              "[{\"say \\\"x\\\"\\u000a\":1,\"a\xEF\xBF\xBD"
              "b\":\"a\xEF\xBF\xBD"
              "b\"}]");
    EXPECT_TRUE(Json(json.c_str()).isValid());
}

}  // namespace
}  // namespace nbx::mrsql
