#include "base/uploads.h"

#include <algorithm>
#include <array>
#include <exception>
#include <optional>
#include <string_view>

#include "base/own_thread.h"

namespace mduckdb {
namespace {

/** The names of classes, as the compiler writes them: of the block that `std::make_shared` creates for an
    upload; of what a `std::thread` runs; and of that for a function whose first parameter is a shared pointer
    to an upload, by value. */
constexpr std::string_view kUploadBlock = "St23_Sp_counted_ptr_inplaceIN6duckdb17S3MultiPartUploadE";
constexpr std::string_view kStart = "NSt6thread11_State_impl";
constexpr std::string_view kUploadStart =
    "NSt6thread11_State_implINS_8_InvokerISt5tupleIJPFvN6duckdb10shared_ptrINS3_17S3MultiPartUploadELb1EEE";
/** The block begins with its class and two counts; the object follows. */
constexpr uint64_t kBlockHeader = 16;
/** Less than the size of an upload, so that what is no farther from its beginning belongs to it, and more
   than is in front of what is waited for. An upload has 560 bytes, and waits at 368 at most. */
constexpr uint64_t kSearched = 448;
/** No thread that sends a part has so much on its stack. */
constexpr uint64_t kDeepestStack = 256 * 1024;
/** More than the C library notes about a thread. */
constexpr uint64_t kLargestRecord = 2048;

constexpr uint64_t kWord = sizeof(uint64_t);

/** A shared pointer, and also the beginning of an object that can make one to itself. */
struct SharedPointer {
    uint64_t object;
    uint64_t block;
};

std::optional<uint64_t> ReadWord(uint64_t address) noexcept {
    uint64_t word = 0;
    return CopyMemory(address, &word, sizeof word) ? std::optional(word) : std::nullopt;
}

/** The name of the class of an object with virtual functions; empty if there is none. */
class ClassName {
  public:
    explicit ClassName(uint64_t object) noexcept {
        const std::optional<uint64_t> functions = ReadWord(object);
        const std::optional<uint64_t> type = functions ? ReadWord(*functions - kWord) : std::nullopt;
        const std::optional<uint64_t> name = type ? ReadWord(*type + kWord) : std::nullopt;
        if (!name || !CopyMemory(*name, buffer_.data(), buffer_.size() - 1)) {
            buffer_[0] = '\0';
        }
    }
    std::string_view get() const noexcept { return buffer_.data(); }

  private:
    std::array<char, 256> buffer_{};
};

bool IsToUpload(const SharedPointer& pointer) noexcept {
    return pointer.block + kBlockHeader == pointer.object &&
           ClassName(pointer.block).get().starts_with(kUploadBlock);
}

/** Looks on this thread, which a `std::thread` started: how far behind the list of robust mutexes the C
   library notes what it runs. */
void FindStart(void* out_distance) noexcept {
    const std::optional<uint64_t> list = ReadRobustList(0);
    for (uint64_t distance = 0; list && distance < kLargestRecord; distance += kWord) {
        const std::optional<uint64_t> word = ReadWord(*list + distance);
        if (word && ClassName(*word).get().starts_with(kStart)) {
            *static_cast<uint64_t*>(out_distance) = distance;
            return;
        }
    }
}

/** 0 if it is unknown. */
uint64_t LearnStartDistance() noexcept {
    uint64_t distance = 0;
    try {
        StartOwnThread("mduckdb-look", &FindStart, &distance).join();
    } catch (const std::exception&) {
        // Without a thread to learn from, nothing is proven.
    }
    return distance;
}

/** Whether the thread was started for a part of any upload. */
bool IsStartedForUpload(uint64_t robust_list) noexcept {
    static const uint64_t distance = LearnStartDistance();
    const std::optional<uint64_t> start = distance == 0 ? std::nullopt : ReadWord(robust_list + distance);
    return start && ClassName(*start).get().starts_with(kUploadStart);
}

/** The upload to which the highest shared pointer on a stack leads; 0 if there is none. On the stack of a
   thread that was started for an upload, this is the parameter of the function that it runs: whatever is left
   over is lower. */
uint64_t FindHighestUpload(uint64_t lowest, uint64_t end) noexcept {
    std::array<uint64_t, 512> words{};
    // Neighbouring pieces share a word.
    while (end >= lowest + sizeof(SharedPointer)) {
        const uint64_t begin = std::max(lowest, end - std::min<uint64_t>(end, sizeof words));
        if (!CopyMemory(begin, words.data(), end - begin)) {
            return 0;
        }
        for (uint64_t i = (end - begin) / kWord - 1; i-- > 0;) {
            const SharedPointer pointer{words[i], words[i + 1]};
            if (IsToUpload(pointer)) {
                return pointer.object;
            }
        }
        end = begin == lowest ? lowest : begin + kWord;
    }
    return 0;
}

}  // namespace

uint64_t FindUpload(uint64_t futex) noexcept {
    // The first object below the address whose pointer to itself shows that it begins there.
    uint64_t place = futex / kBlockHeader * kBlockHeader;
    for (const uint64_t lowest = futex - std::min(futex, kSearched); place > lowest; place -= kBlockHeader) {
        SharedPointer pointer{};
        if (CopyMemory(place, &pointer, sizeof pointer) && pointer.object == place && IsToUpload(pointer)) {
            return place;
        }
    }
    return 0;
}

bool SendsPartOf(uint64_t upload, pid_t thread, const SystemCall& call) noexcept {
    const std::optional<uint64_t> list = ReadRobustList(thread);
    return list && call.stack < *list && *list - call.stack <= kDeepestStack && IsStartedForUpload(*list) &&
           FindHighestUpload(call.stack / kWord * kWord, *list / kWord * kWord) == upload;
}

}  // namespace mduckdb
