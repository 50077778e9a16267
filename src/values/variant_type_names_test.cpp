#include "values/variant_type_names.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace mduckdb {
namespace {

TEST(VariantTypeName, KnowsTheKindsByTheirNumber) {
    EXPECT_STREQ(VariantTypeName(0), "VARIANT_NULL");
    EXPECT_STREQ(VariantTypeName(3), "INT8");
    EXPECT_STREQ(VariantTypeName(7), "INT128");
    EXPECT_STREQ(VariantTypeName(12), "UINT128");
    EXPECT_STREQ(VariantTypeName(15), "DECIMAL");
    EXPECT_STREQ(VariantTypeName(23), "TIMESTAMP_MILIS");
    EXPECT_STREQ(VariantTypeName(27), "TIMESTAMP_MICROS_TZ");
    EXPECT_STREQ(VariantTypeName(33), "GEOMETRY");
}

TEST(VariantTypeName, IsUNKNOWNBeyondTheLastKind) {
    EXPECT_STREQ(VariantTypeName(34), "UNKNOWN");
    EXPECT_STREQ(VariantTypeName(1000), "UNKNOWN");
    EXPECT_STREQ(VariantTypeName(UINT32_MAX), "UNKNOWN");
}

TEST(VariantTypeName, GivesEveryKindItsOwnName) {
    std::set<std::string> names;
    for (uint32_t code = 0; code < kVariantTypeCount; ++code) {
        names.insert(VariantTypeName(code));
    }
    EXPECT_EQ(names.size(), kVariantTypeCount);
    EXPECT_EQ(names.count("UNKNOWN"), 0U);
}

TEST(VariantTypeName, AgreesWithTheNumbersOfTheKindsThatBecomeHostValues) {
    EXPECT_STREQ(VariantTypeName(static_cast<uint32_t>(VariantType::BOOL_TRUE)), "BOOL_TRUE");
    EXPECT_STREQ(VariantTypeName(static_cast<uint32_t>(VariantType::UINT8)), "UINT8");
    EXPECT_STREQ(VariantTypeName(static_cast<uint32_t>(VariantType::FLOAT)), "FLOAT");
    EXPECT_STREQ(VariantTypeName(static_cast<uint32_t>(VariantType::VARCHAR)), "VARCHAR");
    EXPECT_STREQ(VariantTypeName(static_cast<uint32_t>(VariantType::BLOB)), "BLOB");
    EXPECT_STREQ(VariantTypeName(static_cast<uint32_t>(VariantType::DATE)), "DATE");
    EXPECT_STREQ(VariantTypeName(static_cast<uint32_t>(VariantType::TIMESTAMP_MILIS)), "TIMESTAMP_MILIS");
}

}  // namespace
}  // namespace mduckdb
