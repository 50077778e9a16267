#include "base/census.h"

#include <ctime>
#include <utility>

#include "base/text.h"

namespace mduckdb {

namespace {

/** The ends of the list. Never destroyed: the host may release objects while static ones are being
 destroyed. */
struct CensusList {
    nbx::Mutex mutex;
    CensusEntry* first NBX_GUARDED_BY(mutex) = nullptr;
    CensusEntry* last NBX_GUARDED_BY(mutex) = nullptr;
    std::atomic<uint64_t> last_number{0};
};

CensusList& TheList() {
    static auto* list = new CensusList;
    return *list;
}

bool HasScheme(const std::string& path) {
    // One letter before the colon would be a drive.
    const std::size_t colon = path.find(':');
    return colon != path.npos && colon > 1 &&
           path.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+.-_") ==
               colon;
}

}  // namespace

int64_t NowMs() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

std::string WithoutSecrets(const std::string& path) {
    if (!HasScheme(path)) {
        return path;
    }
    std::string text = path.substr(0, path.find('?'));
    const std::size_t host = text.find("://");
    const std::size_t user_end = text.rfind('@', host == text.npos ? 0 : text.find('/', host + 3));
    if (host != text.npos && user_end != text.npos && user_end > host) {
        text.erase(host + 3, user_end - host - 2);
    }
    return text;
}

CensusEntry::CensusEntry(CensusLine::Kind kind, uint64_t parent, const std::string& name)
    : kind_(kind),
      name_(FromUtf8(WithoutSecrets(name))),
      number_(TheList().last_number.fetch_add(1) + 1),
      parent_(parent) {}

void CensusEntry::Enter() noexcept {
    begun_.store(NowMs(), std::memory_order_relaxed);
    CensusList& list = TheList();
    const nbx::MutexLock lock(list.mutex);
    previous_ = std::exchange(list.last, this);
    (previous_ != nullptr ? previous_->next_ : list.first) = this;
}

void CensusEntry::Leave() noexcept {
    CensusList& list = TheList();
    const nbx::MutexLock lock(list.mutex);
    if (previous_ == nullptr && list.first != this) {
        return;
    }
    (previous_ != nullptr ? previous_->next_ : list.first) = next_;
    (next_ != nullptr ? next_->previous_ : list.last) = previous_;
    next_ = previous_ = nullptr;
}

void CensusEntry::put_Flag(CensusLine::Flags flag, bool value) noexcept {
    if (value) {
        flags_.fetch_or(flag, std::memory_order_relaxed);
    } else {
        flags_.fetch_and(~uint32_t{flag}, std::memory_order_relaxed);
    }
}

CensusLine CensusEntry::MakeLine(int64_t now) const {
    CensusLine line;
    const int64_t since = running_since_.load(std::memory_order_relaxed);
    line.kind = kind_;
    line.flags =
        flags_.load(std::memory_order_relaxed) | (since != kNotRunning ? CensusLine::kIsRunning : 0u);
    line.number = number_;
    line.parent = parent_.load(std::memory_order_relaxed);
    line.name = name_;
    line.age_ms = static_cast<uint64_t>(now - begun_.load(std::memory_order_relaxed));
    line.running_ms = since != kNotRunning ? now - since : -1;
    line.rows = rows_.load(std::memory_order_relaxed);
    line.bytes = bytes_.load(std::memory_order_relaxed);
    return line;
}

void CensusEntry::List(std::vector<CensusLine>& lines) {
    CensusList& list = TheList();
    const nbx::MutexLock lock(list.mutex);
    const int64_t now = NowMs();
    for (const CensusEntry* entry = list.first; entry != nullptr; entry = entry->next_) {
        lines.push_back(entry->MakeLine(now));
    }
}

}  // namespace mduckdb
