#include <functional>
#include <map>

#include "statement_fixture.h"
#include "values/host_value_walk.h"
#include "values/parameter_binding.h"

namespace mduckdb::test {

namespace {

using Seen = std::pair<std::string, std::string>;

const Thrown kEnumRefusal = DuckDBError("value", "Mirona enum values are not supported by DuckDB binding");

Value OfType(uint32_t type_code) {
    return Value::Adopt(nbx::CreateValueOfType(type_code, true));
}

/** The DuckDB type of a host type code: alone, and as the declared element type of an array. */
struct CodeFacts {
    const char* type;
    const char* element_type;
};

const std::map<uint32_t, CodeFacts>& CodesWithARow() {
    static const std::map<uint32_t, CodeFacts> kCodes = {
        {2, {"BOOLEAN", "BOOLEAN"}},
        {3, {"UTINYINT", "UTINYINT"}},
        {4, {"SMALLINT", "SMALLINT"}},
        {5, {"USMALLINT", "USMALLINT"}},
        {6, {"INTEGER", "INTEGER"}},
        {7, {"UINTEGER", "UINTEGER"}},
        {8, {"INTEGER", "INTEGER"}},
        {9, {"UINTEGER", "UINTEGER"}},
        {10, {"BIGINT", "BIGINT"}},
        {11, {"UBIGINT", "UBIGINT"}},
        {12, {"FLOAT", "FLOAT"}},
        {13, {"DOUBLE", "DOUBLE"}},
        {14, {"DOUBLE", "DOUBLE"}},
        {15, {"DOUBLE", "DOUBLE"}},
        {16, {"DATE", "DATE"}},
        {17, {"TIME", "TIME"}},
        {18, {"TIMESTAMP_MS", "TIMESTAMP_MS"}},
        {21, {"BLOB", "BLOB"}},
        {22, {"BLOB", "BLOB"}},
        {23, {"BLOB", "BLOB"}},
        {25, {"BLOB", "BLOB"}},
        {38, {"\"NULL\"", "VARCHAR"}},
        {39, {"VARCHAR[]", "VARCHAR"}},
    };
    return kCodes;
}

CodeFacts FactsOf(uint32_t code) {
    const auto found = CodesWithARow().find(code);
    return found == CodesWithARow().end() ? CodeFacts{"VARCHAR", "VARCHAR"} : found->second;
}

bool IsEnum(uint32_t code) {
    return code == 33 || code == 34;
}

/** A value of the type that DuckDB accepts, such as a valid date. */
Value Sensible(uint32_t code) {
    switch (code) {
        case 16:
            return Date(2024, 2, 29);
        case 18:
            return DateTime({2024, 2, 29}, {1, 2, 3, 250});
        default:
            return OfType(code);
    }
}

}  // namespace

using HostValuesTest = StatementTest;

TEST_F(HostValuesTest, NullPointersAndNullValuesOfEveryKindAreNull) {
    EXPECT_EQ(SeenOf(nullptr).second, "NULL");
    for (uint32_t code = 0; code <= 50; ++code) {
        EXPECT_EQ(SeenOf(NullOf(code)).second, "NULL") << code;
    }
}

TEST_F(HostValuesTest, EveryTypeCodeHasItsDuckDBType) {
    for (uint32_t code = 0; code <= 50; ++code) {
        SCOPED_TRACE(code);
        if (IsEnum(code)) {
            EXPECT_EQ(Catch([&] { SeenOf(OfType(code)); }), kEnumRefusal);
        } else {
            EXPECT_EQ(SeenOf(Sensible(code)).first, FactsOf(code).type);
        }
    }
}

TEST_F(HostValuesTest, EveryTypeCodeInsideAnArrayIsAListOfItsElementType) {
    for (uint32_t code = 0; code <= 50; ++code) {
        SCOPED_TRACE(code);
        if (IsEnum(code)) {
            EXPECT_EQ(Catch([&] { SeenOf(Array(code, {})); }), kEnumRefusal);
            EXPECT_EQ(Catch([&] { SeenOf(Array(8, {OfType(code)})); }), kEnumRefusal);
        } else {
            const std::string list = std::string(FactsOf(code).element_type) + "[]";
            EXPECT_EQ(SeenOf(Array(code, {Sensible(code), nullptr})).first, list);
            EXPECT_EQ(SeenOf(Array(code, {})), Seen(list, "[]"));
        }
    }
}

TEST_F(HostValuesTest, EveryTypeCodeNestedThreeDeepArrivesAsText) {
    // An array's own code has no element type: what is inside an inner array becomes its text.
    for (uint32_t code = 0; code <= 50; ++code) {
        SCOPED_TRACE(code);
        const auto nested = [&] { return Array(39, {Array(39, {Array(code, {Sensible(code)})})}); };
        if (IsEnum(code)) {
            EXPECT_EQ(Catch([&] { SeenOf(nested()); }), kEnumRefusal);
        } else {
            EXPECT_EQ(SeenOf(nested()).first, "VARCHAR[]");
        }
    }
    EXPECT_EQ(SeenOf(Array(39, {Array(39, {Array(8, {Long(1), Long(2)})})})),
              Seen("VARCHAR[]", R"(['[\'[1, 2]\']'])"));
}

TEST_F(HostValuesTest, NumbersArriveWholeAtTheEndsOfTheirRange) {
    const auto signed_of = [](uint32_t code, int64_t number) {
        Value value = OfType(code);
        value->put_LLong(number);
        return value;
    };
    const auto unsigned_of = [](uint32_t code, uint64_t number) {
        Value value = OfType(code);
        value->put_ULLong(number);
        return value;
    };
    EXPECT_EQ(SeenOf(unsigned_of(3, 255)), Seen("UTINYINT", "255"));
    EXPECT_EQ(SeenOf(signed_of(4, -32768)), Seen("SMALLINT", "-32768"));
    EXPECT_EQ(SeenOf(unsigned_of(5, 65535)), Seen("USMALLINT", "65535"));
    EXPECT_EQ(SeenOf(signed_of(8, INT32_MIN)), Seen("INTEGER", "-2147483648"));
    EXPECT_EQ(SeenOf(unsigned_of(9, UINT32_MAX)), Seen("UINTEGER", "4294967295"));
    EXPECT_EQ(SeenOf(signed_of(10, INT64_MIN)), Seen("BIGINT", "-9223372036854775808"));
    EXPECT_EQ(SeenOf(unsigned_of(11, UINT64_MAX)), Seen("UBIGINT", "18446744073709551615"));
    EXPECT_EQ(SeenOf(Double(1.5)), Seen("DOUBLE", "1.5"));
    EXPECT_EQ(SeenOf(Boolean(true)), Seen("BOOLEAN", "true"));
    EXPECT_EQ(SeenOf(Boolean(false)), Seen("BOOLEAN", "false"));
}

TEST_F(HostValuesTest, BytesArriveWholeWithTheirNuls) {
    EXPECT_EQ(SeenOf(Bytes(std::string_view("a\0\xff", 3))), Seen("BLOB", "a\\x00\\xFF"));
    EXPECT_EQ(SeenOf(Bytes("")), Seen("BLOB", ""));
    EXPECT_EQ(SeenOf(Array(21, {Bytes("ab"), Bytes("")})), Seen("BLOB[]", "[ab, '']"));
}

TEST_F(HostValuesTest, TextsArriveWhole) {
    EXPECT_EQ(SeenOf(Str("")), Seen("VARCHAR", ""));
    EXPECT_EQ(SeenOf(Str("aé€😀")), Seen("VARCHAR", "aé€😀"));
    auto statement = Prepared("INSERT INTO seen SELECT length($1), 'x'");
    statement->BindValue(1, Str(std::string_view("a\0b", 3)));
    statement->Execute();
    EXPECT_EQ(Scalar("SELECT max(type) FROM seen WHERE text = 'x'"), "3");
}

TEST_F(HostValuesTest, TextIsConvertedByDuckDBToTheTypeOfTheParameter) {
    Direct("CREATE TABLE typed (a DATE, b DECIMAL(6,2))");
    auto statement = Prepared("INSERT INTO typed VALUES ($1, $2)");
    statement->put_Parameters(Row({Str("2024-02-29"), Str("12.50")}));
    EXPECT_EQ(statement->Execute(), 1);
    EXPECT_EQ(Direct("SELECT * FROM typed"), (Table{{"2024-02-29", "12.50"}}));
}

TEST_F(HostValuesTest, ADateTimeWithAnInvalidTimeIsRefused) {
    const auto probe = Probe();
    for (const nbx::TimeContent time :
         {nbx::TimeContent{200, 0, 0, 0}, nbx::TimeContent{24, 0, 0, 0}, nbx::TimeContent{0, 60, 0, 0},
          nbx::TimeContent{0, 0, 60, 0}, nbx::TimeContent{0, 0, 0, 1000}}) {
        EXPECT_EQ(Catch([&] {
                      probe->BindValue(1, DateTime({2024, 2, 29}, time));
                  }),
                  MemoryError(kBindFailureText));
    }
}

TEST_F(HostValuesTest, DatesAndTimesArriveInTheirTypes) {
    EXPECT_EQ(SeenOf(Date(2024, 2, 29)), Seen("DATE", "2024-02-29"));
    EXPECT_EQ(SeenOf(TimeOfDay(23, 59, 59, 999)), Seen("TIME", "23:59:59.999"));
    EXPECT_EQ(SeenOf(TimeOfDay(0, 0, 0, 0)), Seen("TIME", "00:00:00"));
    EXPECT_EQ(SeenOf(DateTime({2024, 2, 29}, {12, 34, 56, 250})),
              Seen("TIMESTAMP_MS", "2024-02-29 12:34:56.25"));
    EXPECT_EQ(SeenOf(DateTime({1969, 12, 31}, {23, 59, 59, 1})),
              Seen("TIMESTAMP_MS", "1969-12-31 23:59:59.001"));
}

TEST_F(HostValuesTest, InvalidDatesAreRejectedWithDuckDBsText) {
    for (const Value& value :
         {Date(2023, 2, 29), DateTime({2023, 13, 1}, {0, 0, 0, 0}), Date(0x7fffffff, 1, 1)}) {
        const Thrown thrown = Catch([&] { SeenOf(value); });
        EXPECT_EQ(thrown, DuckDBError("value", thrown.message));
        EXPECT_NE(thrown.message.find("out of range"), std::string::npos) << thrown.message;
    }
}

TEST_F(HostValuesTest, ATimeOutsideADayIsRefused) {
    EXPECT_EQ(SeenOf(TimeOfDay(24, 0, 0, 0)), Seen("TIME", "24:00:00"));
    for (const Value& value : {TimeOfDay(24, 0, 0, 1), TimeOfDay(255, 0, 0, 0)}) {
        EXPECT_EQ(Catch([&] { SeenOf(value); }), MemoryError("Failed to bind statement parameter"));
        EXPECT_EQ(Catch([&] { SeenOf(Array(17, {value})); }),
                  MemoryError("Failed to bind statement parameter"));
    }
}

TEST_F(HostValuesTest, AReferenceIsItsInnerValue) {
    const auto reference_to = [](const Value& inner) {
        return Value::Adopt(nbx::CreateValueReference(inner));
    };
    EXPECT_EQ(SeenOf(reference_to(Long(5))), Seen("INTEGER", "5"));
    EXPECT_EQ(SeenOf(reference_to(reference_to(Str("deep")))), Seen("VARCHAR", "deep"));
    EXPECT_EQ(SeenOf(reference_to(nullptr)).second, "NULL");
    EXPECT_EQ(SeenOf(reference_to(Array(8, {Long(1)}))), Seen("INTEGER[]", "[1]"));
}

TEST_F(HostValuesTest, ArraysAndReferencesNestAsDeepAsTheLimit) {
    const auto nest = [](unsigned depth) {
        Value value = Long(1);
        for (unsigned i = 0; i < depth; ++i) {
            value = Array(39, {value});
        }
        return value;
    };
    EXPECT_EQ(SeenOf(nest(12)).first, "VARCHAR[]");
    Value chain = Long(1);
    for (unsigned i = 0; i < kMaxHostValueDepth; ++i) {
        chain = Value::Adopt(nbx::CreateValueReference(chain));
    }
    EXPECT_EQ(SeenOf(chain), Seen("INTEGER", "1"));
    chain = Value::Adopt(nbx::CreateValueReference(chain));
    EXPECT_EQ(Catch([&] { SeenOf(chain); }), MemoryError("Failed to bind statement parameter"));
    EXPECT_EQ(Catch([&] { SeenOf(nest(kMaxHostValueDepth + 1)); }),
              MemoryError("Failed to bind statement parameter"));
}

TEST_F(HostValuesTest, AnArrayOfThreeIntegersIsAListOfThree) {
    EXPECT_EQ(SeenOf(Array(8, {Long(1), Long(2), Long(3)})), Seen("INTEGER[]", "[1, 2, 3]"));
}

TEST_F(HostValuesTest, ElementsBecomeTheDeclaredElementType) {
    EXPECT_EQ(SeenOf(Array(10, {Long(1), Str("2"), Double(3)})), Seen("BIGINT[]", "[1, 2, 3]"));
    EXPECT_EQ(SeenOf(Array(20, {Long(1), Boolean(true), nullptr})), Seen("VARCHAR[]", "[1, true, NULL]"));
}

TEST_F(HostValuesTest, AnElementThatItsTypeDoesNotAllowIsAnErrorAndNeverNull) {
    const Thrown failure = MemoryError("Failed to bind statement parameter");
    EXPECT_EQ(Catch([&] { SeenOf(Array(8, {Long(1), Str("no number")})); }), failure);
    EXPECT_EQ(Catch([&] { SeenOf(Array(3, {Long(256)})); }), failure);
    EXPECT_EQ(Catch([&] { SeenOf(Array(16, {Str("yesterday")})); }), failure);
    EXPECT_EQ(Catch([&] { SeenOf(Array(39, {Array(8, {Str("no number")})})); }), failure);
    // The same in a row, whose earlier parameters stay bound.
    auto statement = Prepared("INSERT INTO seen SELECT $1, $2");
    EXPECT_EQ(Catch([&] {
                  statement->put_Parameters(Row({Long(1), Array(8, {Str("no number")})}));
              }),
              failure);
}

TEST_F(HostValuesTest, EnvelopesInsideAnArrayAreRead) {
    EXPECT_EQ(SeenOf(Array(8, {Json(R"({"duckdb_value":true,"value_type":"INT8","value":"7"})"), Long(8)})),
              Seen("INTEGER[]", "[7, 8]"));
}

TEST_F(HostValuesTest, JsonWithoutAMarkerIsText) {
    EXPECT_EQ(SeenOf(Json(R"({"value":1})")), Seen("VARCHAR", R"({"value":1})"));
    EXPECT_EQ(SeenOf(Json("[1,2]")), Seen("VARCHAR", "[1,2]"));
    EXPECT_EQ(SeenOf(Json("not JSON at all")), Seen("VARCHAR", "not JSON at all"));
    EXPECT_EQ(SeenOf(Json(R"(["duckdb_value"])")), Seen("VARCHAR", R"(["duckdb_value"])"));
}

TEST_F(HostValuesTest, BindValueIsIgnoredWhileNothingIsPrepared) {
    auto statement = Make("SELECT $1");
    EXPECT_EQ(Catch([&] { statement->BindValue(1, Long(1)); }), Thrown{});
    EXPECT_EQ(Catch([&] { statement->BindValue(1, OfType(33)); }), Thrown{});
}

TEST_F(HostValuesTest, BindValueDropsStoredValuesAndWhatTheyBound) {
    auto statement = Prepared("SELECT $1, $2");
    auto row = Row({Long(1), Long(2)});
    statement->put_Parameters(row);
    statement->BindValue(1, Long(1));
    EXPECT_EQ(row->get_RefsCount(), 1u);
    EXPECT_NE(Catch([&] { statement->Execute(); }).message.find("Values were not provided"),
              std::string::npos);
    statement->BindValue(2, Long(1));
    EXPECT_EQ(Catch([&] { statement->Execute(); }), Thrown{});
}

TEST_F(HostValuesTest, AnIndexThatTheStatementLacksIsRejectedWithDuckDBsText) {
    auto statement = Prepared("SELECT $1");
    for (const uint32_t index : {0u, 2u}) {
        EXPECT_EQ(Catch([&] { statement->BindValue(index, Long(1)); }),
                  MemoryError("Invalid Input Error: Can not bind to parameter number " +
                              std::to_string(index) + ", statement only has 1 parameter(s)"));
    }
}

TEST_F(HostValuesTest, TheValueKeepsNoReferenceAfterItIsBound) {
    auto statement = Prepared("SELECT $1");
    Value value = Array(8, {Long(1)});
    statement->BindValue(1, value);
    EXPECT_EQ(value->get_RefsCount(), 1u);
}

}  // namespace mduckdb::test
