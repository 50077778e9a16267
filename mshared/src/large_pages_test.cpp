// A program of its own, since its `sysconf` and `munmap` replace those that the library calls: they behave as
// on a machine whose pages have 64 KiB, as some kernels for arm64 have them. Two slabs of the pool have room
// in such a page.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

#include "nbx/value_pool.h"

namespace {

constexpr std::size_t kPage = std::size_t{64} * 1024;
constexpr std::size_t kSlab = std::size_t{32} * 1024;

}  // namespace

extern "C" {

long sysconf(int name) noexcept {
    static auto* const system = reinterpret_cast<long (*)(int)>(dlsym(RTLD_NEXT, "sysconf"));
    return name == _SC_PAGESIZE ? static_cast<long>(kPage) : system(name);
}

/** Refuses what begins within a page, and unmaps the whole of a page that it reaches. */
int munmap(void* memory, std::size_t size) noexcept {
    if (reinterpret_cast<std::uintptr_t>(memory) % kPage != 0) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(syscall(SYS_munmap, memory, (size + kPage - 1) / kPage * kPage));
}
}

namespace nbx {
namespace {

constexpr std::size_t kBlock = 40;

using Blocks = std::vector<unsigned char*>;

Blocks MakeBlocks(int count) {
    Blocks blocks;
    for (int i = 0; i < count; ++i) {
        blocks.push_back(static_cast<unsigned char*>(AllocatePooled(kBlock)));
        std::memset(blocks.back(), i % 251, kBlock);
    }
    return blocks;
}

bool IsInFirstSlabOfPage(const unsigned char* block) {
    return reinterpret_cast<std::uintptr_t>(block) % kPage < kSlab;
}

TEST(ValuePoolOnLargePages, KeepsWhatIsBesideReleasedMemory) {
    constexpr int kCount = 1'000'000;
    const Blocks blocks = MakeBlocks(kCount);
    for (unsigned char* const block : blocks) {
        if (IsInFirstSlabOfPage(block)) {
            FreePooled(block, kBlock);
        }
    }
    for (int i = 0; i < kCount; ++i) {
        unsigned char* const block = blocks[static_cast<std::size_t>(i)];
        if (!IsInFirstSlabOfPage(block)) {
            ASSERT_EQ(block[0], i % 251);
            ASSERT_EQ(block[kBlock - 1], i % 251);
            FreePooled(block, kBlock);
        }
    }
}

TEST(ValuePoolOnLargePages, ReturnsMemoryThatIsFreeAsAWhole) {
    constexpr int kCount = 1'000'000;
    const Blocks blocks = MakeBlocks(kCount);
    const std::size_t full = GetPoolMappedBytes();
    EXPECT_GE(full, kCount * kBlock);
    for (unsigned char* const block : blocks) {
        FreePooled(block, kBlock);
    }
    EXPECT_LE(GetPoolMappedBytes(), full / 4);
}

}  // namespace
}  // namespace nbx
