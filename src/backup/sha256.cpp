#include "backup/sha256.h"

#include <algorithm>
#include <cstring>

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace mduckdb {

namespace {

using Words = std::array<uint32_t, 8>;

alignas(16) constexpr std::array<uint32_t, 64> kRounds = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

constexpr uint32_t Rotate(uint32_t word, int bits) {
    return (word >> bits) | (word << (32 - bits));
}

std::array<uint32_t, 64> Schedule(const unsigned char* block) noexcept {
    std::array<uint32_t, 64> w{};
    for (std::size_t i = 0; i < 16; ++i) {
        const unsigned char* const b = block + 4 * i;
        w[i] = uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | uint32_t{b[3]};
    }
    for (std::size_t i = 16; i < 64; ++i) {
        const uint32_t s0 = Rotate(w[i - 15], 7) ^ Rotate(w[i - 15], 18) ^ (w[i - 15] >> 3);
        const uint32_t s1 = Rotate(w[i - 2], 17) ^ Rotate(w[i - 2], 19) ^ (w[i - 2] >> 10);
        w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    return w;
}

void AddBlockPlainly(Words& state, const unsigned char* block) noexcept {
    const std::array<uint32_t, 64> w = Schedule(block);
    auto [a, b, c, d, e, f, g, h] = state;
    for (std::size_t i = 0; i < 64; ++i) {
        const uint32_t s1 = Rotate(e, 6) ^ Rotate(e, 11) ^ Rotate(e, 25);
        const uint32_t t1 = h + s1 + ((e & f) ^ (~e & g)) + kRounds[i] + w[i];
        const uint32_t s0 = Rotate(a, 2) ^ Rotate(a, 13) ^ Rotate(a, 22);
        const uint32_t t2 = s0 + ((a & b) ^ (a & c) ^ (b & c));
        h = g;
        g = f;
        f = e;
        e = d + t1;
        d = c;
        c = b;
        b = a;
        a = t1 + t2;
    }
    const Words add{a, b, c, d, e, f, g, h};
    for (std::size_t i = 0; i < state.size(); ++i) {
        state[i] += add[i];
    }
}

#if defined(__x86_64__)

bool HasShaInstructions() noexcept {
    static const bool has = [] {
        unsigned a = 0;
        unsigned b = 0;
        unsigned c = 0;
        unsigned d = 0;
        constexpr unsigned kSha = 1U << 29;
        return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & kSha) != 0 &&
               __builtin_cpu_supports("sse4.1") != 0 && __builtin_cpu_supports("ssse3") != 0;
    }();
    return has;
}

/** The processor's instructions compute four rounds at a time, with the state as ABEF and CDGH: several
    times as fast, so that the checksum of a file costs less than reading the file does. */
__attribute__((target("sha,sse4.1,ssse3"))) void AddBlocksFast(Words& state, const unsigned char* bytes,
                                                               std::size_t blocks) noexcept {
    const __m128i swap = _mm_set_epi64x(0x0c0d0e0f08090a0bLL, 0x0405060700010203LL);
    const __m128i dcba = _mm_loadu_si128(reinterpret_cast<const __m128i*>(state.data()));
    const __m128i hgfe = _mm_loadu_si128(reinterpret_cast<const __m128i*>(state.data() + 4));
    const __m128i cdab = _mm_shuffle_epi32(dcba, 0xB1);
    const __m128i efgh = _mm_shuffle_epi32(hgfe, 0x1B);
    __m128i abef = _mm_alignr_epi8(cdab, efgh, 8);
    __m128i cdgh = _mm_blend_epi16(efgh, cdab, 0xF0);
    for (; blocks > 0; --blocks, bytes += 64) {
        const __m128i abef_before = abef;
        const __m128i cdgh_before = cdgh;
        __m128i w[4];
        for (int i = 0; i < 4; ++i) {
            w[i] = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + 16 * i)), swap);
        }
        for (int i = 0; i < 16; ++i) {
            const __m128i round = _mm_load_si128(reinterpret_cast<const __m128i*>(kRounds.data() + 4 * i));
            const __m128i sum = _mm_add_epi32(w[i & 3], round);
            cdgh = _mm_sha256rnds2_epu32(cdgh, abef, sum);
            abef = _mm_sha256rnds2_epu32(abef, cdgh, _mm_shuffle_epi32(sum, 0x0E));
            if (i < 12) {
                const __m128i last = w[(i + 3) & 3];
                const __m128i middle = _mm_alignr_epi8(last, w[(i + 2) & 3], 4);
                const __m128i next = _mm_add_epi32(_mm_sha256msg1_epu32(w[i & 3], w[(i + 1) & 3]), middle);
                w[i & 3] = _mm_sha256msg2_epu32(next, last);
            }
        }
        abef = _mm_add_epi32(abef, abef_before);
        cdgh = _mm_add_epi32(cdgh, cdgh_before);
    }
    const __m128i feba = _mm_shuffle_epi32(abef, 0x1B);
    const __m128i dchg = _mm_shuffle_epi32(cdgh, 0xB1);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(state.data()), _mm_blend_epi16(feba, dchg, 0xF0));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(state.data() + 4), _mm_alignr_epi8(dchg, feba, 8));
}

#endif

}  // namespace

void Sha256::AddBlocks(Words& state, const unsigned char* bytes, std::size_t blocks) noexcept {
#if defined(__x86_64__)
    if (HasShaInstructions()) {
        AddBlocksFast(state, bytes, blocks);
        return;
    }
#endif
    for (; blocks > 0; --blocks, bytes += kBlock) {
        AddBlockPlainly(state, bytes);
    }
}

void Sha256::Add(const unsigned char* bytes, std::size_t count) noexcept {
    total_ += count;
    if (rest_size_ > 0) {
        const std::size_t part = std::min(count, kBlock - rest_size_);
        std::memcpy(rest_.data() + rest_size_, bytes, part);
        rest_size_ += part;
        bytes += part;
        count -= part;
        if (rest_size_ < kBlock) {
            return;
        }
        AddBlocks(state_, rest_.data(), 1);
        rest_size_ = 0;
    }
    AddBlocks(state_, bytes, count / kBlock);
    rest_size_ = count % kBlock;
    std::memcpy(rest_.data(), bytes + (count - rest_size_), rest_size_);
}

std::string Sha256::Finish() {
    const uint64_t bits = total_ * 8;
    const unsigned char mark = 0x80;
    const unsigned char zero = 0;
    Add(&mark, 1);
    while (rest_size_ != kBlock - 8) {
        Add(&zero, 1);
    }
    std::array<unsigned char, 8> length{};
    for (std::size_t i = 0; i < length.size(); ++i) {
        length[i] = static_cast<unsigned char>(bits >> (56 - 8 * i));
    }
    Add(length.data(), length.size());
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    for (const uint32_t word : state_) {
        for (int shift = 28; shift >= 0; shift -= 4) {
            text += kDigits[(word >> shift) & 15];
        }
    }
    return text;
}

}  // namespace mduckdb
