#include "unicode.h"

#include <utf8.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace nbx {
namespace {

constexpr char16_t kReplacement = 0xFFFD;

// Text is converted piece by piece into a buffer on the stack and then appended, so that the result is
// allocated once and never filled with zeros first.
constexpr std::size_t kChunk = 512;
// A step of a loop below writes this many units at most, though it may count fewer of them.
constexpr std::size_t kSlack = 16;

constexpr std::ptrdiff_t kHalfBlock = 8;

// Every text cell is converted from UTF-8 to UTF-16, mostly runs of ASCII or of one alphabet. With SSE2,
// which every x86-64 processor has, such a run takes one step for 8 or 16 bytes; a character at a time takes
// a branch for each. Other processors use the loops below, with the same results.
#if defined(__SSE2__)
constexpr std::ptrdiff_t kBlock = 16;

/** Widens 16 bytes; returns how many of them, from the first on, are ASCII. Writes all 16 units. */
std::ptrdiff_t WidenAsciiBlock(const char* in, char16_t* out) noexcept {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    const __m128i zero = _mm_setzero_si128();
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(bytes, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_unpackhi_epi8(bytes, zero));
    const unsigned high_bits = static_cast<unsigned>(_mm_movemask_epi8(bytes)) | 0x10000U;
    return std::countr_zero(high_bits);
}

/** The same for 8 bytes: the ends of texts, and short texts. */
std::ptrdiff_t WidenAsciiHalfBlock(const char* in, char16_t* out) noexcept {
    const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(in));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(bytes, _mm_setzero_si128()));
    const unsigned high_bits = (static_cast<unsigned>(_mm_movemask_epi8(bytes)) & 0xFFU) | 0x100U;
    return std::countr_zero(high_bits);
}

/** Narrows 16 units; returns how many of them, from the first on, are ASCII. Writes all 16 bytes. */
std::ptrdiff_t NarrowAsciiBlock(const char16_t* in, char* out) noexcept {
    const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 8));
    const __m128i mask = _mm_set1_epi16(static_cast<short>(0xFF80));
    const __m128i zero = _mm_setzero_si128();
    const __m128i is_ascii = _mm_packs_epi16(_mm_cmpeq_epi16(_mm_and_si128(low, mask), zero),
                                             _mm_cmpeq_epi16(_mm_and_si128(high, mask), zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(low, high));
    const unsigned others = (~static_cast<unsigned>(_mm_movemask_epi8(is_ascii)) & 0xFFFFU) | 0x10000U;
    return std::countr_zero(others);
}

/** Decodes the characters of two bytes that the 16 bytes begin with; returns their number. Writes all 8
    units. Texts in Greek, Cyrillic, Hebrew and Arabic consist of runs of these. */
std::ptrdiff_t DecodePairs(const char* in, char16_t* out) noexcept {
    const __m128i pairs = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    // In each lane the lead byte is below: 110xxxxx, and not 1100000x, which would be an ASCII character in
    // disguise; above it the trail byte, 10xxxxxx.
    const __m128i has_marks =
        _mm_cmpeq_epi16(_mm_and_si128(pairs, _mm_set1_epi16(static_cast<short>(0xC0E0))),
                        _mm_set1_epi16(static_cast<short>(0x80C0)));
    const __m128i is_disguise =
        _mm_cmpeq_epi16(_mm_and_si128(pairs, _mm_set1_epi16(0x001E)), _mm_setzero_si128());
    const __m128i lead_bits = _mm_slli_epi16(_mm_and_si128(pairs, _mm_set1_epi16(0x001F)), 6);
    const __m128i trail_bits = _mm_and_si128(_mm_srli_epi16(pairs, 8), _mm_set1_epi16(0x003F));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_or_si128(lead_bits, trail_bits));
    const auto good = static_cast<unsigned>(_mm_movemask_epi8(_mm_andnot_si128(is_disguise, has_marks)));
    return std::countr_one(good) / 2;
}
#else
constexpr std::ptrdiff_t kBlock = 8;

std::ptrdiff_t DecodePairs(const char* /*in*/, char16_t* /*out*/) noexcept {
    return 0;
}

std::ptrdiff_t WidenAsciiBlock(const char* in, char16_t* out) noexcept {
    std::ptrdiff_t count = 0;
    for (; count < kBlock && static_cast<unsigned char>(in[count]) < 0x80; ++count) {
        out[count] = static_cast<unsigned char>(in[count]);
    }
    return count;
}

std::ptrdiff_t WidenAsciiHalfBlock(const char* in, char16_t* out) noexcept {
    return WidenAsciiBlock(in, out);
}

std::ptrdiff_t NarrowAsciiBlock(const char16_t* in, char* out) noexcept {
    std::ptrdiff_t count = 0;
    for (; count < kBlock && in[count] < 0x80; ++count) {
        out[count] = static_cast<char>(in[count]);
    }
    return count;
}
#endif

/** Bytes that begin a character, and once more those that begin one of four bytes: the UTF-16 units that the
    text becomes, exact when it is well-formed. Eight bytes at a time, each in a lane of its own. */
std::size_t CountUtf16Units(std::string_view text) noexcept {
    constexpr uint64_t kLanes = 0x0101010101010101U;
    std::size_t count = 0;
    std::size_t i = 0;
    for (; i + 8 <= text.size(); i += 8) {
        uint64_t bytes = 0;
        std::memcpy(&bytes, text.data() + i, 8);
        const uint64_t is_trail = (bytes >> 7U) & (~bytes >> 6U) & kLanes;
        const uint64_t is_long_lead = (bytes >> 7U) & (bytes >> 6U) & (bytes >> 5U) & (bytes >> 4U) & kLanes;
        // Each lane of the difference is 0 to 2, so the product's top byte is their sum.
        count += ((kLanes - is_trail + is_long_lead) * kLanes) >> 56U;
    }
    for (; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        count += static_cast<std::size_t>((byte & 0xC0U) != 0x80U) + static_cast<std::size_t>(byte >= 0xF0U);
    }
    return count;
}

bool IsTrail(char byte) noexcept {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

/** Bytes of the broken sequence at `in` that one replacement character replaces: the lead byte and the trail
    bytes that may follow it (the Unicode standard's table of well-formed sequences). */
std::ptrdiff_t BrokenLength(const char* in, const char* end) noexcept {
    const auto lead = static_cast<unsigned char>(*in);
    std::ptrdiff_t expected = 1;
    unsigned low = 0x80;
    unsigned high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        expected = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        expected = 3;
        low = lead == 0xE0 ? 0xA0 : 0x80;
        high = lead == 0xED ? 0x9F : 0xBF;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        expected = 4;
        low = lead == 0xF0 ? 0x90 : 0x80;
        high = lead == 0xF4 ? 0x8F : 0xBF;
    }
    std::ptrdiff_t length = 1;
    while (length < expected && in + length < end) {
        const auto byte = static_cast<unsigned char>(in[length]);
        if (byte < low || byte > high) {
            break;
        }
        low = 0x80;
        high = 0xBF;
        ++length;
    }
    return length;
}

/** Converts one character that is not ASCII, or replaces what is broken. */
void DecodeOne(const char*& in, const char* end, char16_t*& out) noexcept {
    const auto lead = static_cast<unsigned char>(*in);
    if (lead >= 0xC2 && lead <= 0xDF && end - in >= 2 && IsTrail(in[1])) {
        *out++ = static_cast<char16_t>((lead & 0x1FU) << 6U | (static_cast<unsigned char>(in[1]) & 0x3FU));
        in += 2;
        return;
    }
    uint32_t code_point = 0;
    if ((lead & 0xF0U) == 0xE0U && end - in >= 3 && IsTrail(in[1]) && IsTrail(in[2])) {
        code_point = (lead & 0xFU) << 12U | (static_cast<unsigned char>(in[1]) & 0x3FU) << 6U |
                     (static_cast<unsigned char>(in[2]) & 0x3FU);
        if (code_point >= 0x800 && (code_point & 0xF800U) != 0xD800U) {
            *out++ = static_cast<char16_t>(code_point);
            in += 3;
            return;
        }
    }
    // Rare from here on: four bytes, or something broken.
    if (utf8::internal::validate_next(in, end, code_point) != utf8::internal::UTF8_OK) {
        in += BrokenLength(in, end);
        *out++ = kReplacement;
    } else if (code_point < 0x10000) {
        *out++ = static_cast<char16_t>(code_point);
    } else {
        *out++ = static_cast<char16_t>(0xD7C0U + (code_point >> 10U));
        *out++ = static_cast<char16_t>(0xDC00U + (code_point & 0x3FFU));
    }
}

bool BeginsPair(char byte) noexcept {
    return (static_cast<unsigned char>(byte) & 0xE0U) == 0xC0U;
}

/** Converts the characters up to the next ASCII one. */
void DecodeOthers(const char*& in, const char* end, char16_t*& out, const char16_t* full) noexcept {
    while (out < full && in < end && static_cast<signed char>(*in) < 0) {
        if (BeginsPair(*in) && end - in >= kBlock) {
            const std::ptrdiff_t count = DecodePairs(in, out);
            in += 2 * count;
            out += count;
            if (count != 0) {
                continue;
            }
        }
        DecodeOne(in, end, out);
    }
}

/** Converts from `in` on until the text ends or `kChunk` units are written; `out` has room for `kChunk`
    + `kSlack` of them. Returns the end of what was written. */
char16_t* DecodeChunk(const char*& in, const char* end, char16_t* out) noexcept {
    const char16_t* const full = out + kChunk;
    while (out < full && end - in >= kBlock) {
        const std::ptrdiff_t ascii = WidenAsciiBlock(in, out);
        in += ascii;
        out += ascii;
        DecodeOthers(in, end, out, full);
    }
    if (out < full && end - in >= kHalfBlock) {
        const std::ptrdiff_t ascii = WidenAsciiHalfBlock(in, out);
        in += ascii;
        out += ascii;
    }
    while (out < full && in < end) {
        if (static_cast<signed char>(*in) >= 0) {
            *out++ = static_cast<unsigned char>(*in++);
        } else {
            DecodeOne(in, end, out);
        }
    }
    return out;
}

bool IsLeadSurrogate(char16_t unit) noexcept {
    return (unit & 0xFC00U) == 0xD800U;
}

bool IsTrailSurrogate(char16_t unit) noexcept {
    return (unit & 0xFC00U) == 0xDC00U;
}

/** Converts one unit, or one pair of surrogates, that is not ASCII. */
void EncodeOne(const char16_t*& in, const char16_t* end, char*& out) noexcept {
    uint32_t code_point = *in++;
    if (IsLeadSurrogate(static_cast<char16_t>(code_point)) && in < end && IsTrailSurrogate(*in)) {
        code_point = 0x10000U + ((code_point & 0x3FFU) << 10U) + (*in++ & 0x3FFU);
    } else if ((code_point & 0xF800U) == 0xD800U) {
        code_point = kReplacement;
    }
    out = utf8::unchecked::append(code_point, out);
}

constexpr std::size_t kMaxBytesPerUnit = 3;

/** Like `DecodeChunk`: at most `kChunk` bytes, and a few. */
char* EncodeChunk(const char16_t*& in, const char16_t* end, char* out) noexcept {
    const char* const full = out + kChunk;
    while (out < full && end - in >= kBlock) {
        const std::ptrdiff_t ascii = NarrowAsciiBlock(in, out);
        in += ascii;
        out += ascii;
        while (out < full && in < end && *in >= 0x80) {
            EncodeOne(in, end, out);
        }
    }
    while (out < full && in < end) {
        if (*in < 0x80) {
            *out++ = static_cast<char>(*in++);
        } else {
            EncodeOne(in, end, out);
        }
    }
    return out;
}

/** Bytes that the text becomes, exact when it has no lone surrogates. */
std::size_t CountUtf8Bytes(std::u16string_view text) noexcept {
    std::size_t count = 0;
    for (const char16_t unit : text) {
        const bool is_surrogate = (unit & 0xF800U) == 0xD800U;
        count += 1U + static_cast<std::size_t>(unit >= 0x80) +
                 static_cast<std::size_t>(unit >= 0x800 && !is_surrogate);
    }
    return count;
}

}  // namespace

void AppendUtf8AsUtf16(std::string_view text, std::u16string& result) {
    char16_t buffer[kChunk + kSlack];
    const char* in = text.data();
    const char* const end = in + text.size();
    if (text.size() > kChunk) {
        result.reserve(result.size() + CountUtf16Units(text));
    }
    while (in < end) {
        const char16_t* const out = DecodeChunk(in, end, buffer);
        result.append(buffer, static_cast<std::size_t>(out - buffer));
    }
}

void AppendUtf16AsUtf8(std::u16string_view text, std::string& result) {
    char buffer[kChunk + kSlack];
    const char16_t* in = text.data();
    const char16_t* const end = in + text.size();
    if (text.size() > kChunk / kMaxBytesPerUnit) {
        result.reserve(result.size() + CountUtf8Bytes(text));
    }
    while (in < end) {
        const char* const out = EncodeChunk(in, end, buffer);
        result.append(buffer, static_cast<std::size_t>(out - buffer));
    }
}

Utf16Text::Utf16Text(std::string_view utf8) {
    static_assert(sizeof(buffer_) == (kChunk + kSlack) * sizeof(char16_t));
    if (utf8.size() <= kChunk) {
        // No text becomes more units than it has bytes, so one piece is all of it.
        const char* in = utf8.data();
        const char16_t* const out = DecodeChunk(in, in + utf8.size(), buffer_);
        view_ = {buffer_, static_cast<std::size_t>(out - buffer_)};
    } else {
        AppendUtf8AsUtf16(utf8, long_text_);
        view_ = long_text_;
    }
}

std::u16string Utf8ToUtf16(std::string_view text) {
    if (text.size() <= kChunk) {
        return std::u16string(Utf16Text(text).get());
    }
    std::u16string result;
    AppendUtf8AsUtf16(text, result);
    return result;
}

std::string Utf16ToUtf8(std::u16string_view text) {
    if (text.size() <= kChunk / kMaxBytesPerUnit) {
        char buffer[kChunk + kSlack];
        const char16_t* in = text.data();
        const char* const out = EncodeChunk(in, in + text.size(), buffer);
        return std::string(buffer, static_cast<std::size_t>(out - buffer));
    }
    std::string result;
    AppendUtf16AsUtf8(text, result);
    return result;
}

}  // namespace nbx
