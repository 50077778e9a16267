#include "each_allocation.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>

#include "support/test_host.h"

namespace mduckdb::test {
namespace {

using allocation_faults::FailFrom;
using allocation_faults::FailNth;
using allocation_faults::HasFailed;
using allocation_faults::Stop;

struct Judgement {
    std::string result;
    std::string before;
    std::string after;
};

/** Without failures, twice: what is made at the first use is there at the second. */
Judgement RunWhole(const Operation& operation, uint64_t& allocations) {
    Judgement whole;
    for (int i = 0; i < 2; ++i) {
        operation.prepare();
        whole.before = operation.look();
        FailNth(0);
        whole.result = operation.act();
        allocations = Stop();
        whole.after = operation.look();
    }
    return whole;
}

/** `fail` lets the allocation fail, and perhaps those after it, until the operation has ended. Returns
   whether the allocation was reached. */
bool FailOne(const Operation& operation, const Judgement& whole, void (*fail)(uint64_t) noexcept,
             uint64_t n) {
    struct Faults {
        Faults(void (*fail)(uint64_t) noexcept, uint64_t n) { fail(n); }
        ~Faults() { Stop(); }
    };
    operation.prepare();
    std::string result;
    const std::string thrown = ::Thrown([&] {
        const Faults faults(fail, n);
        result = operation.act();
    });
    const bool has_failed = HasFailed();
    if (thrown != "none") {
        EXPECT_THAT(operation.errors, testing::Contains(thrown));
        EXPECT_EQ(operation.look(), whole.before) << "after the failure";
        result = operation.act();
    }
    EXPECT_EQ(result, whole.result);
    EXPECT_EQ(operation.look(), whole.after);
    return has_failed;
}

bool IsEveryOneWanted() {
    const char* wish = std::getenv("MDUCKDB_TEST_EVERY_ALLOCATION");
    return wish != nullptr && *wish == '1';
}

}  // namespace

uint64_t FailEach(const Operation& operation) {
    uint64_t allocations = 0;
    const Judgement whole = RunWhole(operation, allocations);
    const uint64_t samples = IsEveryOneWanted() ? allocations : std::min(operation.samples, allocations);
    uint64_t failed = 0;
    for (uint64_t i = 0; i < samples && !testing::Test::HasFailure(); ++i) {
        const uint64_t n = 1 + i * allocations / samples;
        SCOPED_TRACE("allocation " + std::to_string(n) + " of " + std::to_string(allocations));
        if (IsEveryOneWanted() || i % 2 == 0) {
            SCOPED_TRACE("this one only");
            failed += FailOne(operation, whole, FailNth, n) ? 1U : 0U;
        }
        if (IsEveryOneWanted() || i % 2 != 0) {
            SCOPED_TRACE("and all after it");
            failed += FailOne(operation, whole, FailFrom, n) ? 1U : 0U;
        }
    }
    EXPECT_TRUE(failed > 0 || allocations == 0) << "none of " << allocations << " was reached again";
    return failed;
}

}  // namespace mduckdb::test
