// A program of its own: it replaces the allocation functions of the whole process, and an object can be used
// for the first time only once.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "nbx/mrsql/registry.h"
#include "nbx/string.h"

namespace {

std::atomic<bool> gIsMemoryOut{false};

}  // namespace

// NOLINTBEGIN(cppcoreguidelines-no-malloc): what they replace
void* operator new(std::size_t size) {
    void* const memory = gIsMemoryOut.load() ? nullptr : std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
// Not inline: GCC would report the call of free() as a mistake.
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
// NOLINTEND(cppcoreguidelines-no-malloc)

namespace nbx {
namespace {

TEST(FirstUse, OfWhatIsSharedNeedsNoMemory) {
    gIsMemoryOut = true;
    const Converter* const converter = GetConverter_UTF8();
    const bool is_empty = String::sEmpty().isEmpty();
    const bool has_extension = static_cast<bool>(mrsql::GetDuckDBExtension());
    gIsMemoryOut = false;
    ASSERT_NE(converter, nullptr);
    EXPECT_EQ(converter->FromUTF16(u"\u00e4"), "\xC3\xA4");
    EXPECT_TRUE(is_empty);
    EXPECT_FALSE(has_extension);
}

}  // namespace
}  // namespace nbx
