// A separate program, because it replaces the allocation functions of the whole process.
#include <atomic>
#include <cstdlib>
#include <new>

#include "cursor_fixture.h"
#include "nbx/value_pool.h"

namespace {

/** A text length that nothing else has: the size identifies the allocation of its UTF-16 form. */
constexpr std::size_t kLength = 1237;
constexpr std::size_t kBytes = (kLength + 1) * sizeof(char16_t);

/** Allocations of that size until one fails; none fails while it is negative. */
std::atomic<long> gUntilFailure{-1};

}  // namespace

// NOLINTBEGIN(cppcoreguidelines-no-malloc): what they stand for
void* operator new(std::size_t size) {
    if (size == kBytes && gUntilFailure.load() >= 0 && gUntilFailure.fetch_sub(1) == 0) {
        throw std::bad_alloc();
    }
    void* memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
// NOLINTEND(cppcoreguidelines-no-malloc)

namespace mduckdb {
namespace {

// AddressSanitizer's leak check also detects anything left behind by mistake.
TEST(CursorOutOfMemory, ReadingAllRowsOrNoneLeaksNothing) {
    OpenedDatabase database;
    const std::string sql = "SELECT repeat('x', " + std::to_string(kLength) + ") FROM range(6000)";
    const auto select = [&] { return database->SqlSelect(FromUtf8(sql), kClientCursor, nullptr); };
    EXPECT_EQ(select()->get_RecordCount(), 6000U);
    const uint32_t references = database->get_RefsCount();
    const std::size_t pooled = nbx::GetPoolMappedBytes();
    for (const long at : {0L, 1L, 2047L, 2048L, 5000L}) {
        gUntilFailure = at;
        EXPECT_THROW(select(), std::bad_alloc) << at;
        EXPECT_EQ(gUntilFailure.load(), -1) << "no allocation failed";
    }
    EXPECT_EQ(database->get_RefsCount(), references);
    EXPECT_LE(nbx::GetPoolMappedBytes(), pooled);
    EXPECT_EQ(select()->get_RecordCount(), 6000U);
    database->Close();  // would call every object that is still in its lists
    EXPECT_FALSE(database->get_IsOpen());
}

}  // namespace
}  // namespace mduckdb
