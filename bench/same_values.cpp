#include "same_values.h"

#include <sys/mman.h>

#include <cstdint>

#include "measure.h"

namespace bench {
namespace {

bool IsSame(nbx::I_Value* a, nbx::I_Value* b) {
    if (a == nullptr || b == nullptr) {
        return a == b;
    }
    return a->get_TypeCode() == b->get_TypeCode() && a->get_IsNull() == b->get_IsNull() &&
           a->get_Text() == b->get_Text();
}

std::string Describe(nbx::I_Value* value) {
    if (value == nullptr) {
        return "null";
    }
    const nbx::StFromUTF16 text(value->get_Text(), nbx::GetConverter_UTF8());
    return "type " + std::to_string(value->get_TypeCode()) + " '" + text.c_str() + "'";
}

}  // namespace

void KeptValues::Reserve(std::size_t count) {
    values_.reserve(count);
    constexpr std::size_t kPage = 4096;
    constexpr std::size_t kWorthwhile = std::size_t{16} * 1024 * 1024;
    const std::size_t size = values_.capacity() * sizeof(values_[0]);
    if (size >= kWorthwhile) {
        const std::size_t before = -reinterpret_cast<std::uintptr_t>(values_.data()) % kPage;
        ::madvise(reinterpret_cast<char*>(values_.data()) + before, (size - before) / kPage * kPage,
                  MADV_HUGEPAGE);
    }
}

void KeptValues::Release() noexcept {
    for (nbx::I_Value* value : values_) {
        if (value != nullptr) {
            value->Release();
        }
    }
    std::vector<nbx::I_Value*>().swap(values_);
}

void RequireSame(const std::string& what, const KeptValues& expected, const KeptValues& actual) {
    const std::vector<nbx::I_Value*>& a = expected.get();
    const std::vector<nbx::I_Value*>& b = actual.get();
    if (a.empty() || a.size() != b.size()) {
        Die(what + ": " + std::to_string(b.size()) + " values, not " + std::to_string(a.size()));
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (!IsSame(a[i], b[i])) {
            Die(what + ": value " + std::to_string(i) + " is " + Describe(b[i]) + ", not " + Describe(a[i]));
        }
    }
}

}  // namespace bench
