#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "nbx/value.h"

namespace bench {

/** Host values, each with a reference held here. */
class KeptValues {
  public:
    KeptValues() = default;
    ~KeptValues() { Release(); }
    KeptValues(const KeptValues&) = delete;
    KeptValues& operator=(const KeptValues&) = delete;

    /** In huge pages if the size justifies them, like the fields of the module's client cursor: a comparison
        of random reads must not become a comparison of page sizes. */
    void Reserve(std::size_t count);
    /** Takes ownership of the caller's reference. Null is a NULL of a procedure. */
    void Keep(nbx::I_Value* value) { values_.push_back(value); }
    void KeepReference(nbx::I_Value* value) {
        value->AddRef();
        values_.push_back(value);
    }
    void Release() noexcept;
    const std::vector<nbx::I_Value*>& get() const noexcept { return values_; }

  private:
    std::vector<nbx::I_Value*> values_;
};

/** Terminates the program unless both hold the same values with the same types in the same order, at least
    one. */
void RequireSame(const std::string& what, const KeptValues& expected, const KeptValues& actual);

}  // namespace bench
