// DECIMALs with more digits than their width, as files of other programs contain them.
#include <cstring>

#include "cursor_fixture.h"
#include "support/overfull_decimals.h"

namespace mduckdb {
namespace {

class OverfullDecimals : public testing::Test {
  protected:
    OverfullDecimals() { AppendOverfullDecimals(database_.get_Connection()); }

    std::vector<std::string> ReadAll(const std::string& expression, uint32_t location) {
        const Cursor cursor = database_.Select("SELECT " + expression + " FROM raw", location);
        std::vector<std::string> fields;
        while (cursor->NextRecord()) {
            fields.push_back(DescribeField(*cursor, 0));
        }
        EXPECT_EQ(fields.size(), 3U);
        return fields;
    }

    OpenedDatabase database_;
};

TEST_F(OverfullDecimals, AreTheDoublesOfDuckDBsCast) {
    for (const uint32_t location : {kServerCursor, kClientCursor}) {
        for (const std::string column : {"x", "y"}) {
            EXPECT_EQ(ReadAll(column, location), ReadAll(column + "::DOUBLE", location));
        }
    }
}

TEST_F(OverfullDecimals, InsideListsStructsAndMapsAreDuckDBsTexts) {
    for (const uint32_t location : {kServerCursor, kClientCursor}) {
        for (const std::string column : {"x", "y"}) {
            for (const std::string& nested :
                 {"[" + column + "]", "{'a': " + column + "}", "MAP {1: " + column + "}"}) {
                EXPECT_EQ(ReadAll(nested, location), ReadAll("(" + nested + ")::VARCHAR", location))
                    << nested;
            }
        }
    }
}

TEST_F(OverfullDecimals, InsideAVARIANTAreEnvelopesWithDuckDBsText) {
    for (const uint32_t location : {kServerCursor, kClientCursor}) {
        for (const std::string column : {"x", "y"}) {
            const auto texts = ReadAll(column + "::VARCHAR", location);
            const auto envelopes = ReadAll(column + "::VARIANT", location);
            for (std::size_t row = 0; row < 3; ++row) {
                const std::string text = texts[row].substr(std::strlen("String "));
                EXPECT_NE(envelopes[row].find("\"DECIMAL\",\"value\":\"" + text + "\""), std::string::npos)
                    << envelopes[row] << " " << text;
            }
        }
    }
}

}  // namespace
}  // namespace mduckdb
