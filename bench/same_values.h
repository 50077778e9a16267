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

    /** In huge pages where it is worth while, as the module's client cursor has its fields: a comparison of
        random reads must not be one of pages. */
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

/** Ends the program unless both hold the same values, type by type, in the same order, and hold some. */
void RequireSame(const std::string& what, const KeptValues& expected, const KeptValues& actual);

}  // namespace bench
