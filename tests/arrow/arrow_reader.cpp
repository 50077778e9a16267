#include "arrow_reader.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <stdexcept>

namespace mduckdb {
namespace {

std::string Hex(const void* data, std::size_t size) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        const auto byte = static_cast<const unsigned char*>(data)[i];
        text += {kDigits[byte / 16], kDigits[byte % 16]};
    }
    return text;
}

bool Bit(const void* bits, int64_t index) {
    return (static_cast<const unsigned char*>(bits)[index / 8] >> (index % 8) & 1) != 0;
}

bool IsNull(const ArrowArray& array, int64_t row) {
    return array.n_buffers > 0 && array.buffers[0] != nullptr && !Bit(array.buffers[0], row);
}

template <class Number>
Number At(const ArrowArray& array, int buffer, int64_t index) {
    Number number;
    std::memcpy(&number, static_cast<const char*>(array.buffers[buffer]) + index * int64_t{sizeof(number)},
                sizeof(number));
    return number;
}

/** Bytes of a value of fixed width; 0 for other formats. */
std::size_t WidthOf(const std::string& format) {
    if (format.rfind("w:", 0) == 0) {
        return std::strtoul(format.c_str() + 2, nullptr, 10);
    }
    if (format.rfind("d:", 0) == 0 || format == "tin") {
        return 16;
    }
    static const std::pair<const char*, std::size_t> kWidths[] = {{"c", 1}, {"C", 1}, {"s", 2}, {"S", 2},
                                                                  {"i", 4}, {"I", 4}, {"f", 4}, {"tdD", 4},
                                                                  {"l", 8}, {"L", 8}, {"g", 8}};
    for (const auto& [name, width] : kWidths) {
        if (format == name) {
            return width;
        }
    }
    return format.rfind("tt", 0) == 0 || format.rfind("ts", 0) == 0 ? 8 : 0;
}

std::string Cell(const ArrowSchema& schema, const ArrowArray& array, int64_t row);

std::string Items(const ArrowSchema& schema, const ArrowArray& array, int64_t begin, int64_t end) {
    std::string text = "[";
    for (int64_t i = begin; i < end; ++i) {
        text += Cell(*schema.children[0], *array.children[0], i) + ",";
    }
    return text + "]";
}

std::string Fields(const ArrowSchema& schema, const ArrowArray& array, int64_t row) {
    std::string text = "{";
    for (int64_t i = 0; i < schema.n_children; ++i) {
        text += Cell(*schema.children[i], *array.children[i], row) + ",";
    }
    return text + "}";
}

template <class Offset>
std::string Variable(const ArrowArray& array, int64_t row) {
    const auto begin = At<Offset>(array, 1, row);
    return Hex(static_cast<const char*>(array.buffers[2]) + begin,
               static_cast<std::size_t>(At<Offset>(array, 1, row + 1) - begin));
}

std::string NestedCell(const ArrowSchema& schema, const ArrowArray& array, int64_t row) {
    const std::string format = schema.format;
    if (format == "+l" || format == "+m") {
        return Items(schema, array, At<int32_t>(array, 1, row), At<int32_t>(array, 1, row + 1));
    }
    if (format == "+L") {
        return Items(schema, array, At<int64_t>(array, 1, row), At<int64_t>(array, 1, row + 1));
    }
    if (format.rfind("+w:", 0) == 0) {
        const int64_t size = std::strtol(format.c_str() + 3, nullptr, 10);
        return Items(schema, array, row * size, (row + 1) * size);
    }
    if (format == "+s") {
        return Fields(schema, array, row);
    }
    if (format.rfind("+us:", 0) == 0) {
        const auto member = At<int8_t>(array, 0, row);
        return std::to_string(member) + ":" + Cell(*schema.children[member], *array.children[member], row);
    }
    throw std::runtime_error("a format that the test cannot read: " + format);
}

std::string Cell(const ArrowSchema& schema, const ArrowArray& array, int64_t row) {
    const std::string format = schema.format;
    row += array.offset;
    if (format == "n" || (format[0] != '+' && IsNull(array, row))) {
        return "NULL";
    }
    if (format[0] == '+') {
        return format[1] != 'u' && IsNull(array, row) ? "NULL" : NestedCell(schema, array, row);
    }
    const std::string entry =
        schema.dictionary == nullptr ? "" : " of " + std::to_string(array.dictionary->length);
    if (format == "b") {
        return Bit(array.buffers[1], row) ? "true" : "false";
    }
    if (format == "u" || format == "z") {
        return "'" + Variable<int32_t>(array, row) + "'";
    }
    if (format == "U" || format == "Z") {
        return "'" + Variable<int64_t>(array, row) + "'";
    }
    const std::size_t width = WidthOf(format);
    if (width == 0) {
        throw std::runtime_error("a format that the test cannot read: " + format);
    }
    const char* const data = static_cast<const char*>(array.buffers[1]) + row * static_cast<int64_t>(width);
    if (schema.dictionary != nullptr) {
        int64_t index = 0;
        std::memcpy(&index, data, width);
        return Cell(*schema.dictionary, *array.dictionary, index) + entry;
    }
    return Hex(data, width);
}

std::string DescribeMetadata(const char* metadata) {
    if (metadata == nullptr) {
        return "";
    }
    // Their order is not defined.
    std::set<std::string> pairs;
    int32_t count = 0;
    std::memcpy(&count, metadata, sizeof(count));
    const char* at = metadata + sizeof(count);
    const auto read_text = [&at] {
        int32_t length = 0;
        std::memcpy(&length, at, sizeof(length));
        at += sizeof(length) + static_cast<std::size_t>(length);
        return std::string(at - length, at);
    };
    for (int32_t i = 0; i < count; ++i) {
        const std::string key = read_text();
        pairs.insert(" " + key + " " + read_text());
    }
    std::string text;
    for (const std::string& pair : pairs) {
        text += pair;
    }
    return text;
}

}  // namespace

std::string Describe(const ArrowSchema& schema, int depth) {
    EXPECT_NE(schema.release, nullptr);
    std::string text = std::string(static_cast<std::size_t>(depth), ' ') + schema.format + " " +
                       (schema.name != nullptr ? schema.name : "(null)") + " " +
                       std::to_string(schema.flags) + DescribeMetadata(schema.metadata) + "\n";
    for (int64_t i = 0; i < schema.n_children; ++i) {
        text += Describe(*schema.children[i], depth + 1);
    }
    return schema.dictionary == nullptr ? text
                                        : text + "dictionary:" + Describe(*schema.dictionary, depth + 1);
}

std::string Describe(const ArrowSchema& schema, const ArrowArray& array) {
    std::string text;
    for (int64_t row = 0; row < array.length; ++row) {
        text += Fields(schema, array, row) + "\n";
    }
    return text;
}

OwnedSchema ArrowReader::Schema() {
    OwnedSchema schema;
    EXPECT_EQ(stream_->get_schema(stream_.get(), schema.get()), 0) << stream_->get_last_error(stream_.get());
    return schema;
}

OwnedArray ArrowReader::Next() {
    OwnedArray array;
    const int code = stream_->get_next(stream_.get(), array.get());
    EXPECT_EQ(code, 0) << stream_->get_last_error(stream_.get());
    EXPECT_EQ(stream_->get_last_error(stream_.get()), nullptr);
    return array;
}

std::string ArrowReader::Fail() {
    OwnedArray array;
    const int code = stream_->get_next(stream_.get(), array.get());
    if (code == 0) {
        return array ? "rows" : "end";
    }
    EXPECT_FALSE(array);
    const char* const name = code == EIO         ? "EIO"
                             : code == ENOMEM    ? "ENOMEM"
                             : code == ECANCELED ? "ECANCELED"
                                                 : "?";
    const char* const text = stream_->get_last_error(stream_.get());
    return std::string(name) + ": " + (text != nullptr ? text : "(null)");
}

std::string ArrowReader::Rest(int64_t& count) {
    std::string text;
    OwnedSchema schema = Schema();
    count = 0;
    while (OwnedArray array = Next()) {
        text += Describe(*schema, *array);
        count += array->length;
    }
    return text;
}

std::string ArrowReader::RestOfNumbers() {
    int64_t first = 0;
    int64_t count = 0;
    while (OwnedArray array = Next()) {
        const ArrowArray& numbers = *array->children[0];
        first = count == 0 ? At<int64_t>(numbers, 1, numbers.offset) : first;
        for (int64_t row = 0; row < array->length; ++row, ++count) {
            if (At<int64_t>(numbers, 1, numbers.offset + row) != first + count) {
                return "row " + std::to_string(count) + " is out of order";
            }
        }
    }
    return count == 0 ? "none" : std::to_string(first) + ".." + std::to_string(first + count - 1);
}

}  // namespace mduckdb
