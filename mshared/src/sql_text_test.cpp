#include "nbx/sql_text.h"

#include <gtest/gtest.h>

namespace nbx {
namespace {

TEST(Quoting, DoublesItsOwnQuoteAndNoOther) {
    EXPECT_EQ("'it''s \"x\"'", QuoteLiteral("it's \"x\""));
    EXPECT_EQ("\"say \"\"it's\"\"\"", QuoteIdentifier("say \"it's\""));
    EXPECT_EQ("''", QuoteLiteral(""));
    EXPECT_EQ("\"\"", QuoteIdentifier(""));
}

}  // namespace
}  // namespace nbx
