#include "arrow_walk.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "targets.h"

namespace fuzz {

namespace {

/** Where the bytes that are read go, so that no compiler leaves the reading out. */
volatile unsigned char sink;

void Touch(const void* bytes, int64_t size) {
    unsigned char all = 0;
    for (int64_t i = 0; i < size; ++i) {
        all = static_cast<unsigned char>(all ^ static_cast<const unsigned char*>(bytes)[i]);
    }
    sink = all;
}

/** Bits of an element of fixed width; 0 for other formats. */
int64_t BitsOf(const std::string& format) {
    if (format.rfind("w:", 0) == 0) {
        return 8 * std::strtol(format.c_str() + 2, nullptr, 10);
    }
    if (format.rfind("d:", 0) == 0 || format == "tin") {
        return 128;
    }
    if (format == "b") {
        return 1;
    }
    static constexpr std::pair<const char*, int64_t> kWidths[] = {
        {"c", 8},    {"C", 8},  {"s", 16}, {"S", 16}, {"i", 32},   {"I", 32},   {"f", 32},
        {"tdD", 32}, {"l", 64}, {"L", 64}, {"g", 64}, {"tiM", 32}, {"tts", 32}, {"ttm", 32}};
    for (const auto& [name, width] : kWidths) {
        if (format == name) {
            return width;
        }
    }
    return format.rfind("tt", 0) == 0 || format.rfind("ts", 0) == 0 || format == "tiD" ? 64 : 0;
}

template <class Offset>
int64_t OffsetAt(const ArrowArray& array, int64_t index) {
    Offset offset = 0;
    std::memcpy(&offset, static_cast<const char*>(array.buffers[1]) + index * int64_t{sizeof(Offset)},
                sizeof(Offset));
    return offset;
}

int64_t LastOffset(const ArrowArray& array, bool is_large) {
    const int64_t end = array.offset + array.length;
    return is_large ? OffsetAt<int64_t>(array, end) : OffsetAt<int32_t>(array, end);
}

void Walk(const ArrowSchema& schema, const ArrowArray& array);

void WalkChildren(const ArrowSchema& schema, const ArrowArray& array) {
    Require(schema.n_children == array.n_children, "an array has other children than its schema");
    for (int64_t i = 0; i < array.n_children; ++i) {
        Walk(*schema.children[i], *array.children[i]);
    }
    if (schema.dictionary != nullptr) {
        Require(array.dictionary != nullptr, "an array lacks its dictionary");
        Walk(*schema.dictionary, *array.dictionary);
    }
}

void Walk(const ArrowSchema& schema, const ArrowArray& array) {
    const std::string format = schema.format;
    Require(array.length >= 0 && array.offset >= 0, "an array has a negative length");
    const int64_t end = array.offset + array.length;
    const bool has_validity = array.n_buffers > 0 && format.rfind("+u", 0) != 0 && format != "n";
    if (has_validity && array.buffers[0] != nullptr) {
        Touch(array.buffers[0], (end + 7) / 8);
    }
    if (const int64_t bits = BitsOf(format); bits != 0 && end > 0) {
        Touch(array.buffers[1], (end * bits + 7) / 8);
    } else if (format == "u" || format == "z" || format == "U" || format == "Z") {
        const int64_t last = LastOffset(array, format == "U" || format == "Z");
        Require(last >= 0, "a text ends before it begins");
        Touch(array.buffers[2], last);
    } else if (format == "+l" || format == "+L" || format == "+m") {
        Require(LastOffset(array, format == "+L") <= array.children[0]->length,
                "a list is longer than its items");
    }
    WalkChildren(schema, array);
}

}  // namespace

void WalkStream(ArrowArrayStream& stream) {
    ArrowSchema schema{};
    if (stream.get_schema(&stream, &schema) == 0) {
        ArrowArray array{};
        while (stream.get_next(&stream, &array) == 0 && array.release != nullptr) {
            Walk(schema, array);
            array.release(&array);
            array = {};
        }
        schema.release(&schema);
    } else {
        Require(stream.get_last_error(&stream) != nullptr, "a schema fails without an error");
    }
    stream.release(&stream);
}

}  // namespace fuzz
