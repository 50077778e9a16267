#include "base/errors.h"

#include <gtest/gtest.h>

#include "base/text.h"

namespace mduckdb {
namespace {

struct Case {
    const char* text;
    const char* message;
    const char* type;
    int64_t position;
};

class DuckDBErrorText : public testing::TestWithParam<Case> {};

TEST_P(DuckDBErrorText, IsReadIntoMessageTypeAndPosition) {
    const DuckDBErrorInfo info = ReadDuckDBError(GetParam().text);
    EXPECT_EQ(ToUtf8(info.message), GetParam().message);
    EXPECT_EQ(ToUtf8(info.type), GetParam().type);
    EXPECT_EQ(info.position, GetParam().position);
}

const Case kCases[] = {
    {nullptr, "", "", -1},
    {"", "", "", -1},
    {R"({"exception_type":"Catalog","exception_message":"no table","position":"14"})", "no table", "Catalog",
     14},
    {R"({"exception_type":"Catalog","exception_message":"no table"})", "no table", "Catalog", -1},
    {R"({"exception_message":"m","position":""})", "m", "", -1},
    {R"({"position":"3"})", "", "", 3},
    {R"({"position":3})", "", "", 3},
    {R"({})", "", "", -1},
    {R"({"exception_message":null,"exception_type":null,"position":null})", "", "", -1},
    {R"({"exception_message":"Gr\u00f6\u00dfe \"x\""})", "Größe \"x\"", "", -1},
    {"Invalid Input Error: plain text", "Invalid Input Error: plain text", "", -1},
    {R"(Parser Error: {"exception_type":"Parser"})", R"(Parser Error: {"exception_type":"Parser"})", "", -1},
    {R"({"exception_message":"cut)", R"({"exception_message":"cut)", "", -1},
    {"Größe", "Größe", "", -1},
};

INSTANTIATE_TEST_SUITE_P(All, DuckDBErrorText, testing::ValuesIn(kCases));

TEST(TextOr, ReturnsDuckDBsTextWhenThereIsOne) {
    EXPECT_EQ(TextOr("theirs", "ours"), "theirs");
    EXPECT_EQ(TextOr("", "ours"), "ours");
    EXPECT_EQ(TextOr(nullptr, "ours"), "ours");
}

TEST(ThrowDuckDBError, CarriesCodePathAndMessage) {
    try {
        ThrowDuckDBError(FromUtf8("/pfad/ä.db"), "Größe");
        FAIL();
    } catch (const nbx::mrsql::xDuckDBError& error) {
        EXPECT_EQ(error.get_Code(), 468225u);
        EXPECT_EQ(ToUtf8(error.get_DatabasePath()), "/pfad/ä.db");
        EXPECT_EQ(ToUtf8(error.get_Message()), "Größe");
        EXPECT_TRUE(error.get_Text(2).isEmpty());
        EXPECT_TRUE(error.get_Text(3).isEmpty());
    }
}

TEST(ThrowDetachedError, NamesTheDatabaseUnknown) {
    try {
        ThrowDetachedError("lost");
        FAIL();
    } catch (const nbx::mrsql::xDuckDBError& error) {
        EXPECT_EQ(error.get_Code(), 0x72501u);
        EXPECT_EQ(ToUtf8(error.get_DatabasePath()), "unknown");
        EXPECT_EQ(ToUtf8(error.get_Message()), "lost");
    }
}

}  // namespace
}  // namespace mduckdb
