#include "backup/sha256.h"

#include <gtest/gtest.h>

#include <vector>

namespace mduckdb {
namespace {

std::string SumOf(const std::string& text) {
    Sha256 sum;
    sum.Add(reinterpret_cast<const unsigned char*>(text.data()), text.size());
    return sum.Finish();
}

// The sums are those of FIPS 180-2's examples.
TEST(Sha256, AgreesWithTheStandard) {
    EXPECT_EQ(SumOf(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(SumOf("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(SumOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(SumOf(std::string(1'000'000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Sha256, DoesNotDependOnHowTheBytesArePassed) {
    const std::string text(1000, 'x');
    for (const std::size_t step : {1U, 3U, 63U, 64U, 65U, 129U}) {
        Sha256 sum;
        for (std::size_t at = 0; at < text.size(); at += step) {
            sum.Add(reinterpret_cast<const unsigned char*>(text.data()) + at,
                    std::min(step, text.size() - at));
        }
        EXPECT_EQ(sum.Finish(), SumOf(text)) << step;
    }
}

}  // namespace
}  // namespace mduckdb
