#include <cmath>
#include <limits>
#include <random>

#include "appender_fixture.h"
#include "support/test_host.h"

namespace mduckdb::test {
namespace {

using Value = smart_ptr<nbx::I_Value>;

/** Appends each value twice, as it is and cast by the column: what DuckDB casts is taken, with its outcome.
 */
class AppenderCasts : public AppenderTest {
  protected:
    void CompareWithDuckDB(const std::string& source_type, const std::string& type,
                           const std::vector<Value>& values) {
        Direct("CREATE OR REPLACE TABLE source (x " + source_type + ")");
        Direct("CREATE OR REPLACE TABLE target (x " + source_type + ", y " + type + ")");
        const Appender source = Open("source");
        const Appender target = Open("target");
        for (const Value& value : values) {
            source->AppendRow(Row({value}));
            const Thrown thrown = Catch([&] { target->AppendRow(Row({value, value})); });
            ASSERT_TRUE(thrown.exception.empty() || thrown.exception == "xDuckDBError") << thrown.exception;
        }
        source->Close();
        target->Close();
        const std::string cast = "TRY_CAST(x AS " + type + ")";
        EXPECT_EQ(Scalar("SELECT count(*) FROM target"),
                  Scalar("SELECT count(*) FROM source WHERE " + cast + " IS NOT NULL"));
        EXPECT_EQ(Direct("SELECT x, y FROM target WHERE y IS DISTINCT FROM " + cast), Table());
        EXPECT_NE(Scalar("SELECT count(y) FROM target"), "0");
    }
};

std::string Digits(int number, int count) {
    const std::string digits = std::to_string(number);
    return std::string(static_cast<std::size_t>(count) - digits.size(), '0') + digits;
}

TEST_F(AppenderCasts, TakeTheTextsOfDatesThatDuckDBTakes) {
    std::vector<Value> values;
    for (const int year : {0, 1, 4, 100, 1900, 1970, 2000, 2023, 2024, 9999}) {
        for (int month = 0; month <= 13; ++month) {
            for (const int day : {0, 1, 9, 10, 28, 29, 30, 31, 32}) {
                values.push_back(Str(Digits(year, 4) + "-" + Digits(month, 2) + "-" + Digits(day, 2)));
            }
        }
    }
    for (const char* text :
         {"2024-1-31", "2024-01-3", "2024/01/31", "2024-01/31", " 2024-01-31", "2024-01-31 ", "+024-01-31",
          "-024-01-31", "20a4-01-31", "2024-0:-31", "2024-01- 1", "20240-01-1", "2024-01-31 BC", "infinity",
          "epoch", "01-31-2024", "2024-01-31 12:34:56", "",
          "\xd9\xa2"
          "024-01-1"}) {
        values.push_back(Str(text));
    }
    CompareWithDuckDB("VARCHAR", "DATE", values);
}

std::vector<Value> DoublesAround(int width, int scale) {
    std::vector<Value> values;
    const auto add = [&](double number) {
        for (const double sign : {1.0, -1.0}) {
            values.push_back(Double(sign * number));
            values.push_back(Double(sign * std::nextafter(number, 0.0)));
            values.push_back(Double(sign * std::nextafter(number, 1e300)));
        }
    };
    const double unit = std::pow(10.0, -scale);
    for (const double ties : {0.0, 0.5, 1.0, 1.5, 2.5, 12345.5, 99.49999}) {
        add(ties * unit);
    }
    const double end = std::pow(10.0, width - scale);
    for (const double before : {0.0, 0.4, 0.5, 0.6, 1.0, 1.5, 2.0}) {
        add(end - before * unit);
    }
    std::minstd_rand random(1);
    std::uniform_real_distribution<double> numbers(-1.1 * end, 1.1 * end);
    for (int i = 0; i < 500; ++i) {
        values.push_back(Double(numbers(random)));
    }
    for (const double number :
         {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(), 1e300, 5e-324}) {
        add(number);
    }
    return values;
}

TEST_F(AppenderCasts, RoundDoublesToDecimalsAsDuckDBDoes) {
    for (const auto& [width, scale] : std::initializer_list<std::pair<int, int>>{
             {1, 0}, {4, 1}, {4, 4}, {9, 2}, {15, 2}, {18, 0}, {18, 18}, {20, 3}}) {
        const std::string type = "DECIMAL(" + std::to_string(width) + ", " + std::to_string(scale) + ")";
        SCOPED_TRACE(type);
        CompareWithDuckDB("DOUBLE", type, DoublesAround(width, scale));
    }
}

}  // namespace
}  // namespace mduckdb::test
