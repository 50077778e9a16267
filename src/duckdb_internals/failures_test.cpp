#include "duckdb_internals/failures.h"

#include <gtest/gtest.h>

#include <string>

#include "base/text.h"
#include "support/test_engine.h"

namespace mduckdb {
namespace {

using Kind = nbx::mrsql::DuckDBErrorKind;

struct Pair {
    Kind ours;
    duckdb_error_type theirs;
};

const Pair kPairs[] = {
    {Kind::unspecified, DUCKDB_ERROR_INVALID},
    {Kind::out_of_range, DUCKDB_ERROR_OUT_OF_RANGE},
    {Kind::conversion, DUCKDB_ERROR_CONVERSION},
    {Kind::unknown_type, DUCKDB_ERROR_UNKNOWN_TYPE},
    {Kind::decimal, DUCKDB_ERROR_DECIMAL},
    {Kind::mismatched_type, DUCKDB_ERROR_MISMATCH_TYPE},
    {Kind::division_by_zero, DUCKDB_ERROR_DIVIDE_BY_ZERO},
    {Kind::object_size, DUCKDB_ERROR_OBJECT_SIZE},
    {Kind::invalid_type, DUCKDB_ERROR_INVALID_TYPE},
    {Kind::serialization, DUCKDB_ERROR_SERIALIZATION},
    {Kind::transaction, DUCKDB_ERROR_TRANSACTION},
    {Kind::not_implemented, DUCKDB_ERROR_NOT_IMPLEMENTED},
    {Kind::expression, DUCKDB_ERROR_EXPRESSION},
    {Kind::catalog, DUCKDB_ERROR_CATALOG},
    {Kind::parser, DUCKDB_ERROR_PARSER},
    {Kind::planner, DUCKDB_ERROR_PLANNER},
    {Kind::scheduler, DUCKDB_ERROR_SCHEDULER},
    {Kind::executor, DUCKDB_ERROR_EXECUTOR},
    {Kind::constraint, DUCKDB_ERROR_CONSTRAINT},
    {Kind::index, DUCKDB_ERROR_INDEX},
    {Kind::statistics, DUCKDB_ERROR_STAT},
    {Kind::connection, DUCKDB_ERROR_CONNECTION},
    {Kind::syntax, DUCKDB_ERROR_SYNTAX},
    {Kind::settings, DUCKDB_ERROR_SETTINGS},
    {Kind::binder, DUCKDB_ERROR_BINDER},
    {Kind::network, DUCKDB_ERROR_NETWORK},
    {Kind::optimizer, DUCKDB_ERROR_OPTIMIZER},
    {Kind::null_pointer, DUCKDB_ERROR_NULL_POINTER},
    {Kind::io, DUCKDB_ERROR_IO},
    {Kind::interrupt, DUCKDB_ERROR_INTERRUPT},
    {Kind::fatal, DUCKDB_ERROR_FATAL},
    {Kind::internal, DUCKDB_ERROR_INTERNAL},
    {Kind::invalid_input, DUCKDB_ERROR_INVALID_INPUT},
    {Kind::out_of_memory, DUCKDB_ERROR_OUT_OF_MEMORY},
    {Kind::permission, DUCKDB_ERROR_PERMISSION},
    {Kind::parameter_not_resolved, DUCKDB_ERROR_PARAMETER_NOT_RESOLVED},
    {Kind::parameter_not_allowed, DUCKDB_ERROR_PARAMETER_NOT_ALLOWED},
    {Kind::dependency, DUCKDB_ERROR_DEPENDENCY},
    {Kind::http, DUCKDB_ERROR_HTTP},
    {Kind::missing_extension, DUCKDB_ERROR_MISSING_EXTENSION},
    {Kind::autoload, DUCKDB_ERROR_AUTOLOAD},
    {Kind::sequence, DUCKDB_ERROR_SEQUENCE},
    {Kind::invalid_configuration, DUCKDB_INVALID_CONFIGURATION},
};

TEST(Failures, HaveTheNumbersOfDuckDBsKinds) {
    for (const Pair& pair : kPairs) {
        EXPECT_EQ(static_cast<uint32_t>(pair.ours), static_cast<uint32_t>(pair.theirs));
    }
}

struct Case {
    const char* text;
    Kind kind;
    const char* kind_name;
    const char* message;
    int64_t position;
};

const Case kTexts[] = {
    {"Parser Error: near x", Kind::parser, "Parser", "near x", -1},
    {"Out of Memory Error: ", Kind::out_of_memory, "Out of Memory", "", -1},
    {R"({"exception_type":"Catalog","exception_message":"no x","position":"14"})", Kind::catalog, "Catalog",
     "no x", 14},
    {R"(Parser Error: {"exception_type":"Parser","exception_message":"near x","position":"3"})", Kind::parser,
     "Parser", "near x", 3},
    {R"(IO Error: {"exception_type":"Parser","exception_message":"near x","position":"3"})", Kind::io, "IO",
     R"({"exception_type":"Parser","exception_message":"near x","position":"3"})", -1},
    {"IO Error: {no json", Kind::io, "IO", "{no json", -1},
};

TEST(Failures, AreReadFromATextOfDuckDB) {
    for (const Case& row : kTexts) {
        const Failure failure = FailureOf(row.text, "fixed");
        EXPECT_EQ(failure.text, row.text);
        ASSERT_NE(failure.facts, nullptr) << row.text;
        EXPECT_EQ(failure.facts->kind, row.kind) << row.text;
        EXPECT_EQ(ToUtf8(failure.facts->kind_name), row.kind_name);
        EXPECT_EQ(ToUtf8(failure.facts->message), row.message);
        EXPECT_EQ(failure.facts->position, row.position) << row.text;
    }
}

TEST(Failures, OfAnotherTextHaveNoFacts) {
    for (const char* text :
         {"plain", "Some Error: x", "{", "{}", R"({"exception_type":"No kind"})", " Error: "}) {
        const Failure failure = FailureOf(text, "fixed");
        EXPECT_EQ(failure.text, text);
        EXPECT_EQ(failure.facts, nullptr) << text;
    }
    EXPECT_EQ(FailureOf("", "Parser Error: fixed").facts, nullptr);
    EXPECT_EQ(FailureOf(static_cast<const char*>(nullptr), "fixed").text, "fixed");
}

TEST(Failures, OfAStatementThatDoesNotExistAndOfAnEmptyResultHaveTheFixedText) {
    EXPECT_EQ(FailureOf(static_cast<duckdb_prepared_statement>(nullptr), "fixed").text, "fixed");
    const Failure failure = FailureOf(duckdb_result{}, "fixed");
    EXPECT_EQ(failure.text, "fixed");
    EXPECT_EQ(failure.facts, nullptr);
}

TEST(Failures, OfABindAreThoseOfTheBindAndNotOfThePreparation) {
    TestEngine engine;
    PreparedHolder prepared;
    ASSERT_EQ(duckdb_prepare(engine.get(), "SELECT ?", prepared.Receive()), DuckDBSuccess);
    ASSERT_EQ(duckdb_bind_int32(prepared.get(), 2, 1), DuckDBError);
    const Failure failure = FailureOf(prepared.get(), "fixed");
    EXPECT_EQ(failure.text, duckdb_prepare_error(prepared.get()));
    ASSERT_NE(failure.facts, nullptr);
    EXPECT_EQ(failure.facts->kind, Kind::invalid_input);
    EXPECT_EQ(failure.text, "Invalid Input Error: " + ToUtf8(failure.facts->message));
}

}  // namespace
}  // namespace mduckdb
