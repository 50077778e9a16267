#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace mduckdb {

/** SHA-256, as the command sha256sum computes it. */
class Sha256 {
  public:
    void Add(const unsigned char* bytes, std::size_t count) noexcept;
    /** The sum of everything added, as 64 hexadecimal digits. Nothing may be added afterwards. */
    std::string Finish();

  private:
    static constexpr std::size_t kBlock = 64;
    using Words = std::array<uint32_t, 8>;

    static void AddBlocks(Words& state, const unsigned char* bytes, std::size_t blocks) noexcept;

    Words state_{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    std::array<unsigned char, kBlock> rest_{};
    std::size_t rest_size_ = 0;
    uint64_t total_ = 0;
};

}  // namespace mduckdb
