#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace fuzz {

/** The bytes of one input, taken from the front. What is not there reads as 0 and as nothing. */
class Input {
  public:
    explicit Input(std::string_view bytes) : bytes_(bytes) {}

    bool get_IsEmpty() const noexcept { return bytes_.empty(); }

    uint8_t Byte() noexcept {
        if (bytes_.empty()) {
            return 0;
        }
        const auto byte = static_cast<uint8_t>(bytes_.front());
        bytes_.remove_prefix(1);
        return byte;
    }
    bool Flag() noexcept { return (Byte() & 1U) != 0; }
    /** Below `count`, which is at most 256. */
    std::size_t Pick(std::size_t count) noexcept { return Byte() % count; }
    /** The lowest byte first. */
    uint64_t Number(unsigned width) noexcept {
        uint64_t number = 0;
        for (unsigned i = 0; i < width; ++i) {
            number |= uint64_t{Byte()} << (8 * i);
        }
        return number;
    }
    /** A byte with the length, then as much of it as there is. */
    std::string_view Text() noexcept { return Bytes(Byte()); }
    std::string_view Bytes(std::size_t length) noexcept {
        const std::string_view text = bytes_.substr(0, length);
        bytes_.remove_prefix(text.size());
        return text;
    }
    std::string_view Rest() noexcept { return Bytes(bytes_.size()); }

  private:
    std::string_view bytes_;
};

}  // namespace fuzz
