#include "nbx/exception.h"

#include <exception>
#include <string>

#include "mshared/test_support.h"

namespace nbx {
namespace {

TEST(xException, CarriesACodeAndUpToFourTexts) {
    const xException error(0x99000, "one", nullptr,
                           "thr\xC3\xA9"
                           "e",
                           "four");
    EXPECT_EQ(error.get_Code(), 0x99000U);
    EXPECT_EQ(error.get_Text(0), Wide("one"));
    EXPECT_EQ(error.get_Text(1), String());
    EXPECT_EQ(error.get_Text(2).get_View(), u"thr\u00E9e");
    EXPECT_EQ(error.get_Text(3), Wide("four"));
    EXPECT_EQ(error.get_Text(4), String());
    EXPECT_STREQ(error.what(),
                 "0x99000: one: thr\xC3\xA9"
                 "e: four");
}

TEST(xException, NeedsNoTexts) {
    EXPECT_STREQ(xException(0x51501).what(), "0x51501");
}

TEST(xException, IsCopiedWithItsTexts) {
    const xException original(1, "path", "message");
    xException copy = original;
    EXPECT_STREQ(copy.what(), original.what());
    copy = xException(2);
    EXPECT_EQ(copy.get_Code(), 2U);
    EXPECT_EQ(copy.get_Text(0), String());
    EXPECT_EQ(original.get_Text(1), Wide("message"));
}

template <class Thrown, class Caught>
void ExpectCaughtAs(const Thrown& thrown) {
    EXPECT_THROW(throw thrown, Caught);
    try {
        throw thrown;
    } catch (const Caught& caught) {
        EXPECT_STREQ(caught.what(), thrown.what());
    }
}

TEST(Exceptions, AreCaughtByTheirClassAndByTheRoots) {
    ExpectCaughtAs<xDBError, xException>(xDBError(0x66000));
    ExpectCaughtAs<xDBError, std::exception>(xDBError(0x66000, u"wide"));
    ExpectCaughtAs<xFeatureError, xException>(xFeatureError(3, "narrow"));
    ExpectCaughtAs<xInterruptError, xException>(xInterruptError(0x57501));
    ExpectCaughtAs<mrsql::xDuckDBError, mrsql::xMRSQLException>(mrsql::xDuckDBError(0x72501, "p", "m"));
    ExpectCaughtAs<mrsql::xDuckDBError, xException>(mrsql::xDuckDBError(0x72501, u"p", u"m"));
}

TEST(Exceptions, AcceptTextsOfEitherWidth) {
    EXPECT_EQ(xDBError(1, u"a", nullptr, u"c").get_Text(2), Wide("c"));
    EXPECT_EQ(xInterruptError(1, u"a", u"b", u"c", u"d").get_Text(3), Wide("d"));
    EXPECT_EQ(xFeatureError(1, "a", "b").get_Text(1), Wide("b"));
}

TEST(xDuckDBError, NamesTheDatabaseAndTheMessage) {
    const mrsql::xDuckDBError narrow(0x72501, "unknown", "DuckDBCursor is invalid");
    EXPECT_EQ(narrow.get_DatabasePath(), Wide("unknown"));
    EXPECT_EQ(narrow.get_Message(), Wide("DuckDBCursor is invalid"));
    const mrsql::xDuckDBError wide(0x72501, u"/d\u00E4ta.db", nullptr);
    EXPECT_EQ(wide.get_DatabasePath().get_View(), u"/d\u00E4ta.db");
    EXPECT_EQ(wide.get_Message(), String());
    EXPECT_STREQ(mrsql::xDuckDBError(0x72501).what(), "0x72501");
}

}  // namespace
}  // namespace nbx
