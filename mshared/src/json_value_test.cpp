#include <string>
#include <thread>
#include <vector>

#include "mshared/test_support.h"

namespace nbx {
namespace {

ValuePtr MakeJson(std::string_view content) {
    return TakeValue(CreateValueJSON(true, &content, nullptr));
}

const I_JSONValue& Members(const ValuePtr& value) {
    return ViewOf<I_JSONValue>(value, kJSONInterfaceId);
}

TEST(JSONValue, KeepsItsTextUnchanged) {
    const std::string text = R"({ "a" : 1.10 })";
    const ValuePtr value = MakeJson(text);
    EXPECT_EQ(value->get_TypeCode(), static_cast<uint32_t>(ValueType::JSON));
    EXPECT_EQ(Narrow(value->get_Text()), text);
    EXPECT_EQ(Narrow(MakeJson("no json")->get_Text()), "no json");
}

TEST(JSONValue, ReturnsEachMemberInItsKind) {
    const ValuePtr value = MakeJson(
        R"({"t":"text","n":1.10,"big":12345678901234567890123,"yes":true,"no":false,"null":null,"j":[1,{}]})");
    const I_JSONValue& json = Members(value);
    EXPECT_TRUE(json.get_IsObject());
    const auto expect = [&json](const char* key, ValueType type, const char* text) {
        const ValuePtr member = json.get_Member(key);
        ASSERT_TRUE(member) << key;
        EXPECT_EQ(member->get_TypeCode(), static_cast<uint32_t>(type)) << key;
        EXPECT_EQ(Narrow(member->get_Text()), text) << key;
        EXPECT_EQ(member->get_RefsCount(), 1U) << key;
    };
    expect("t", ValueType::String, "text");
    expect("n", ValueType::String, "1.10");
    expect("big", ValueType::String, "12345678901234567890123");
    expect("yes", ValueType::Boolean, "true");
    expect("no", ValueType::Boolean, "false");
    expect("null", ValueType::Boolean, "");
    expect("j", ValueType::JSON, "[1,{}]");
    EXPECT_TRUE(json.get_Member("null")->get_IsNull());
    EXPECT_FALSE(json.get_Member("no")->get_IsNull());
    EXPECT_FALSE(json.get_Member("missing"));
    EXPECT_TRUE(json.HasMember("null"));
    EXPECT_FALSE(json.HasMember("missing"));
}

TEST(JSONValue, KeepsTheLastOfDuplicateMembers) {
    const ValuePtr value = MakeJson(R"({"a":1,"b":2,"a":3})");
    EXPECT_EQ(Members(value).get_Member("a")->get_LLong(), 3);
}

TEST(JSONValue, HasNoMembersWhenItIsNotAnObject) {
    for (const char* const text : {"", "[{\"a\":1}]", "\"a\"", "{\"a\":1", "{\"a\":1} 2"}) {
        const ValuePtr value = MakeJson(text);
        EXPECT_FALSE(Members(value).get_IsObject()) << text;
        EXPECT_FALSE(Members(value).HasMember("a")) << text;
        EXPECT_FALSE(Members(value).get_Member("a")) << text;
    }
    const ValuePtr with_nul = MakeJson(std::string_view("{\"a\":1}\0", 8));
    EXPECT_FALSE(Members(with_nul).get_IsObject());
}

TEST(JSONValue, ForgetsTheMembersOfAFormerText) {
    const ValuePtr value = MakeJson(R"({"a":1})");
    EXPECT_TRUE(Members(value).HasMember("a"));
    value->put_Text(Wide(R"({"b":1})"));
    EXPECT_FALSE(Members(value).HasMember("a"));
    EXPECT_TRUE(Members(value).HasMember("b"));
    value->put_IsNull(true);
    EXPECT_FALSE(Members(value).get_IsObject());
}

TEST(JSONValue, IsReadByManyThreadsAtOnce) {
    const ValuePtr value = MakeJson(R"({"a":"x"})");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(
            [&value] { EXPECT_EQ(Narrow(Members(value).get_Member("a")->get_Text()), "x"); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
}  // namespace nbx
