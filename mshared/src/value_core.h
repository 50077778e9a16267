#pragma once

#include <cstdint>
#include <utility>

#include "nbx/value.h"
#include "pool_cache.h"

namespace nbx {

/** Throws the `xException` of a null stored in a value that may not be null. */
[[noreturn]] void ThrowNotNullable(uint32_t type_code);
/** Throws the `xException` of a content that the value's type cannot hold. */
[[noreturn]] void ThrowBadContent(uint32_t type_code, const String& content);

/** What all values have, whatever they hold: count, type, null flag; 16 bytes with the vtable. The calls of
    every read are the same functions for all of them, so that the processor foresees where they lead. */
class ValueBase : public Counted<I_Value> {
  public:
    ValueBase(uint32_t type_code, bool is_nullable) noexcept
        : Counted(1), type_code_(static_cast<uint16_t>(type_code)), is_nullable_(is_nullable) {}

    uint32_t Release() final {
        return ReleaseWith([this]() noexcept { Destroy(); });
    }

    uint32_t get_TypeCode() const final { return type_code_; }
    bool get_IsNullable() const final { return is_nullable_; }
    bool get_IsNull() const override { return is_null_; }

  protected:
    /** Ends the object and gives its memory back. */
    virtual void Destroy() noexcept = 0;
    void MarkNull(bool is_null) noexcept { is_null_ = is_null; }

  private:
    uint16_t type_code_;
    bool is_nullable_;
    bool is_null_ = false;
};

/** A value's memory, from the pool, and its way to null. `Derived` is the final class; its `Clear` makes the
    content zero or empty, as it is while the value is null, so that reading needs no look at the flag. */
template <class Derived>
class ValueCore : public ValueBase {
  public:
    using ValueBase::ValueBase;

    static void* operator new(std::size_t size) { return pool::Allocate(size); }
    static void operator delete(void* memory, std::size_t size) noexcept { pool::Free(memory, size); }

    void put_IsNull(bool is_null) final {
        if (is_null && !get_IsNullable()) {
            ThrowNotNullable(get_TypeCode());
        }
        if (is_null) {
            static_cast<Derived*>(this)->Clear();
        }
        MarkNull(is_null);
    }

  protected:
    void Destroy() noexcept override { delete static_cast<Derived*>(this); }
    void MarkNotNull() noexcept { MarkNull(false); }
};

}  // namespace nbx
