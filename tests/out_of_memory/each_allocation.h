#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "support/allocation_faults.h"

namespace mduckdb::test {

using allocation_faults::Quietly;

/** What memory that runs out is to the caller of almost every call. */
inline const std::string kBadAlloc = "std: std::bad_alloc";

/** Something that the module does, and how to judge it. */
struct Operation {
    /** Returns everything that its caller gets. */
    std::function<std::string()> act;
    /** Before each attempt. */
    std::function<void()> prepare = [] {};
    /** What can be seen besides. An attempt that throws leaves it as it was. */
    std::function<std::string()> look = [] { return std::string(); };
    /** What it may throw, as `Thrown` describes it. */
    std::vector<std::string> errors = {kBadAlloc};
    /** So many allocations fail by default, spread over all, every second one with all after it. With
        MDUCKDB_TEST_EVERY_ALLOCATION=1 each fails in both ways. */
    uint64_t samples = 24;
};

/** Runs the operation with one of its allocations failing, for one after the other. Each time it either
    throws the error and leaves everything as it was, so that it succeeds when it is run again, or returns
   what it returns without a failure. Returns how many allocations failed. */
uint64_t FailEach(const Operation& operation);

/** The result of a call that can be repeated after a failure. Its first allocation fails, then the second
    one, until there is none left to fail. */
template <class Call>
auto Persist(Call call) -> decltype(call()) {
    for (uint64_t n = 1;; ++n) {
        allocation_faults::FailNth(n);
        try {
            auto result = call();
            allocation_faults::Stop();
            return result;
        } catch (const std::bad_alloc&) {
            allocation_faults::Stop();
            // Anything else would repeat it for ever.
            if (!allocation_faults::HasFailed()) {
                throw;
            }
        }
    }
}

/** A gtest name of a table's row. */
template <class Row>
std::string NameOf(const testing::TestParamInfo<Row>& info) {
    return info.param.name;
}

}  // namespace mduckdb::test
