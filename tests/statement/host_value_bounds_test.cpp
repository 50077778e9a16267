#include <chrono>

#include "statement_fixture.h"
#include "support/peak_memory.h"
#include "values/parameter_binding.h"

namespace mduckdb::test {

namespace {

using Clock = std::chrono::steady_clock;

[[maybe_unused]] constexpr int64_t kMostMemory = int64_t{64} << 20U;
const Thrown kRefusal = MemoryError(kBindFailureText);

/** An array that a test can still append to. */
Value EmptyArray(uint32_t element_type_code) {
    return Value::Adopt(nbx::CreateValueArray(element_type_code));
}

void Append(const Value& array, const Value& element) {
    static_cast<nbx::I_ArrayValue*>(array->QueryInterface(nbx::kArrayInterfaceId))->Append(element);
}

Value Reference(const Value& inner) {
    return Value::Adopt(nbx::CreateValueReference(inner));
}

void PutInner(const Value& reference, const Value& inner) {
    static_cast<nbx::I_ReferenceValue*>(reference->QueryInterface(nbx::kReferenceInterfaceId))
        ->put_Inner(inner);
}

Value Nest(unsigned depth, Value value) {
    for (unsigned i = 0; i < depth; ++i) {
        value = Array(39, {value});
    }
    return value;
}

/** Seconds and memory that a bind may take. */
class Bounds {
  public:
    ~Bounds() {
        EXPECT_LT(std::chrono::duration<double>(Clock::now() - start_).count(), 20);
#ifndef MDUCKDB_TEST_IS_SANITIZED
        EXPECT_LT(peak_.get_Bytes() - before_, kMostMemory);
#endif
    }

  private:
    Clock::time_point start_ = Clock::now();
    PeakMemory peak_;
    [[maybe_unused]] int64_t before_ = peak_.get_Bytes();
};

}  // namespace

/** Host values that are deep, that contain themselves or that repeat what they hold. */
using HostValueBoundsTest = StatementTest;

TEST_F(HostValueBoundsTest, AReferenceThatContainsItselfIsRefused) {
    const Value reference = Reference(nullptr);
    PutInner(reference, reference);
    EXPECT_EQ(Catch([&] { SeenOf(reference); }), kRefusal);
    EXPECT_EQ(Catch([&] { SeenOf(Array(39, {reference})); }), kRefusal);
    const Value other = Reference(reference);
    PutInner(reference, other);
    EXPECT_EQ(Catch([&] { SeenOf(reference); }), kRefusal);
    PutInner(reference, nullptr);
    EXPECT_EQ(SeenOf(other).second, "NULL");
}

TEST_F(HostValueBoundsTest, AChainOfAnyNumberOfReferencesIsRefusedWithoutRecursion) {
    std::vector<Value> chain{Long(1)};
    for (int i = 0; i < 1'000'000; ++i) {
        chain.push_back(Reference(chain.back()));
    }
    EXPECT_EQ(Catch([&] { SeenOf(chain.back()); }), kRefusal);
    for (; !chain.empty(); chain.pop_back()) {
    }
}

TEST_F(HostValueBoundsTest, AnArrayThatContainsItselfIsRefused) {
    const std::string text(1'000'000, 'x');
    for (const int times : {1, 2}) {
        const Value array = EmptyArray(39);
        const Value reference = Reference(array);
        Append(array, Str(text));
        for (int i = 0; i < times; ++i) {
            Append(array, i == 0 ? array : reference);
        }
        {
            const Bounds bounds;
            EXPECT_EQ(Catch([&] { SeenOf(array); }), kRefusal);
            EXPECT_EQ(Catch([&] { SeenOf(reference); }), kRefusal);
        }
        PutInner(reference, nullptr);
        array->put_IsNull(true);
    }
}

TEST_F(HostValueBoundsTest, DeepArraysAreBoundExactlyOrRefusedInBoundedMemory) {
    unsigned refused = 0;
    for (const unsigned depth : {2U, 12U, 16U, 20U, 24U, 26U, 30U, 60U, 200U, 201U}) {
        SCOPED_TRACE(depth);
        const Value value = Nest(depth, Str("a'b"));
        const auto probe = Probe();
        const Bounds bounds;
        const Thrown thrown = Catch([&] { probe->BindValue(1, value); });
        EXPECT_TRUE(thrown == Thrown{} || thrown == kRefusal) << thrown;
        EXPECT_TRUE(depth > 16 || thrown == Thrown{});
        refused += thrown == kRefusal ? 1U : 0U;
    }
    EXPECT_GE(refused, 4U);
}

TEST_F(HostValueBoundsTest, AnInnerArrayIsDuckDBsTextOfIt) {
    EXPECT_EQ(SeenOf(Nest(1, Array(20, {Str("a'b"), Str("c\\d"), nullptr, Str("")}))).second,
              Scalar("SELECT [['a''b', 'c\\d', NULL, '']::VARCHAR]::VARCHAR"));
    EXPECT_EQ(SeenOf(Nest(2, Array(13, {Double(1.5), nullptr}))).second,
              Scalar("SELECT [[[1.5, NULL]::VARCHAR]::VARCHAR]::VARCHAR"));
    EXPECT_EQ(SeenOf(Nest(1, Array(8, {}))).second, Scalar("SELECT [[]::INTEGER[]::VARCHAR]::VARCHAR"));
    // As long as its size is in proportion to its parts.
    const Value large = Array(20, {Str(std::string(20'000'000, '\''))});
    EXPECT_GT(SeenOf(Nest(1, large)).second.size(), 40'000'000U);
}

TEST_F(HostValueBoundsTest, AnArrayThatRepeatsItsInnerArraysIsRefusedInBoundedTime) {
    for (const std::size_t width : {2U, 10U, 1000U}) {
        SCOPED_TRACE(width);
        Value value = Str("leaf");
        for (int depth = 0; depth < 60; ++depth) {
            value = Array(39, std::vector<Value>(width, value));
        }
        const Bounds bounds;
        EXPECT_EQ(Catch([&] { SeenOf(value); }), kRefusal);
    }
}

TEST_F(HostValueBoundsTest, AnArrayThatRepeatsALongTextIsRefusedAndOneThatRepeatsAShortOneIsNot) {
    const Value text = Str(std::string(1'000'000, 'x'));
    const Value bytes = Bytes(std::string(1'000'000, 'x'));
    const Value json = Json(R"({"duckdb_value":true,"value_type":"VARCHAR","value":")" +
                            std::string(1'000'000, 'x') + "\"}");
    {
        const Bounds bounds;
        EXPECT_EQ(Catch([&] { SeenOf(Array(20, std::vector<Value>(100'000, text))); }), kRefusal);
        EXPECT_EQ(Catch([&] { SeenOf(Array(21, std::vector<Value>(100'000, bytes))); }), kRefusal);
        EXPECT_EQ(Catch([&] { SeenOf(Array(20, std::vector<Value>(100'000, json))); }), kRefusal);
    }
    const auto probe = Probe();
    probe->BindValue(1, Array(20, std::vector<Value>(200'000, Str("short"))));
    probe->Execute();
    EXPECT_EQ(Scalar("SELECT max(length(text)) FROM seen"), std::to_string(200'000 * 7));
}

TEST_F(HostValueBoundsTest, AnEnvelopeWhoseJsonCannotBeReadIsRefused) {
    const Thrown refusal = DuckDBError("value", "Malformed DuckDB envelope: its JSON cannot be read");
    for (const char* const json : {R"({"duckdb_variant":true,"variant_type":"JSON","value":1e5000})",
                                   R"({"duckdb_variant":true,"variant_type":"JSON","value":["\ud800"]})",
                                   R"( {"duckdb_value":true,"value_type":"VARCHAR","value":"\udc00\ud800"})",
                                   R"({"duckdb\u005fvalue":true,"value_type":"DOUBLE","value":1e5000})",
                                   R"({"duckdb_value":true,"value_type":"INT32","value":"42")"}) {
        EXPECT_EQ(Catch([&] { SeenOf(Json(json)); }), refusal) << json;
        EXPECT_EQ(Catch([&] { SeenOf(Array(36, {Json(json)})); }), refusal) << json;
    }
    // Without a marker it is unchanged text.
    for (const char* const json :
         {R"({"value":1e5000})", R"(["duckdb_value", 1e5000])", R"({"a":"\ud800"})"}) {
        EXPECT_EQ(SeenOf(Json(json)).second, json);
    }
}

}  // namespace mduckdb::test
