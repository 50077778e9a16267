#include "file_input.h"

#include <cstdint>
#include <cstring>
#include <fstream>

#include "support/temp_folder.h"
#include "targets.h"

namespace fuzz {

namespace {

constexpr std::string_view kParquetMark = "PAR1";
constexpr std::size_t kParquetEnd = 8;
constexpr std::size_t kHeaderSize = 4096;
constexpr std::size_t kHeaders = 3;
/** Of the files in bases/. */
constexpr std::size_t kBlockSize = 16384;

/** DuckDB's checksum of 8 bytes at a time. */
uint64_t ChecksumOf(const char* bytes, std::size_t size) {
    uint64_t checksum = 5381;
    for (std::size_t at = 0; at + 8 <= size; at += 8) {
        uint64_t word = 0;
        std::memcpy(&word, bytes + at, sizeof word);
        checksum ^= word * 0xbf58476d1ce4e5b9U;
    }
    return checksum;
}

void MendPart(std::string& database, std::size_t at, std::size_t size) {
    const uint64_t checksum = ChecksumOf(database.data() + at + 8, size - 8);
    std::memcpy(database.data() + at, &checksum, sizeof checksum);
}

}  // namespace

std::string MakeInputFile(std::string_view bytes, const char* name) {
    static const TempFolder folder;
    const std::string path = folder / name;
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    Require(file.good(), "the input's file cannot be written");
    return path;
}

std::string MendParquet(std::string_view bytes) {
    std::string file(bytes);
    if (file.size() < kParquetMark.size() + kParquetEnd) {
        return file;
    }
    file.replace(0, kParquetMark.size(), kParquetMark);
    file.replace(file.size() - kParquetMark.size(), kParquetMark.size(), kParquetMark);
    char* const place = file.data() + file.size() - kParquetEnd;
    uint32_t length = 0;
    std::memcpy(&length, place, sizeof length);
    length %= static_cast<uint32_t>(file.size() - kParquetMark.size() - kParquetEnd) + 1;
    std::memcpy(place, &length, sizeof length);
    return file;
}

void MendChecksums(std::string& database) {
    for (std::size_t header = 0; header < kHeaders; ++header) {
        if ((header + 1) * kHeaderSize <= database.size()) {
            MendPart(database, header * kHeaderSize, kHeaderSize);
        }
    }
    for (std::size_t at = kHeaders * kHeaderSize; at + kBlockSize <= database.size(); at += kBlockSize) {
        MendPart(database, at, kBlockSize);
    }
}

}  // namespace fuzz
