#pragma once

#include <cstdint>
#include <optional>
#include <utility>

#include "errors.h"
#include "nbx/content_in_place.h"
#include "nbx/value.h"
#include "pool.h"
#include "value_text.h"

namespace nbx {

/** What all values have, whatever they hold: count, type, null flag; 16 bytes with the vtable. The functions
    that every read calls are the same for all classes, so that the processor predicts the calls. */
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
    /** Destroys the object and frees its memory, at the size with which it was allocated. */
    virtual void Destroy() noexcept = 0;
    void MarkNull(bool is_null) noexcept { is_null_ = is_null; }

  private:
    uint16_t type_code_;
    bool is_nullable_;
    bool is_null_ = false;
};

/** Allocates values from the pool and sets them to null. `Derived` is the final class. Its `Clear` makes the
    content zero or empty, which it stays while the value is null, so that reading need not check the flag. */
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

/** A value whose content is not a number by nature: it is read and stored as text, and numbers are converted
    from and to that text. `Derived` implements `get_Text` and `put_Text`. */
template <class Derived>
class TextLikeValue : public ValueCore<Derived> {
  public:
    using ValueCore<Derived>::ValueCore;

    bool get_Boolean() const final { return ParseBoolean(Text().get_View()); }
    int64_t get_LLong() const final { return ParseLLong(Text().get_View()); }
    uint64_t get_ULLong() const final { return ParseULLong(Text().get_View()); }
    double get_Double() const final { return ParseDouble(Text().get_View()); }
    void put_Boolean(bool content) final { this->put_Text(BooleanText(content)); }
    void put_LLong(int64_t content) final { this->put_Text(LLongText(content)); }
    void put_ULLong(uint64_t content) final { this->put_Text(ULLongText(content)); }
    void put_Double(double content) final { this->put_Text(DoubleText(content)); }

  private:
    String Text() const { return this->get_Text(); }
};

/** The content that `content` points to, as the factories of values receive it; zero for null. */
template <class T>
T ContentOf(const void* content) noexcept {
    return content == nullptr ? T{} : *static_cast<const T*>(content);
}

/** Values for `CreateValueOfType` of the kinds that several type codes share, zero or empty, with one
    reference for the caller. `CreateNumberOfType` returns null if the code does not belong to a number. */
I_Value* CreateNumberOfType(ValueType type, bool nullable);
I_Value* CreateBytesOfType(uint32_t type_code, bool nullable);
I_Value* CreateTextOfType(uint32_t type_code, bool nullable);

/** `GetContentInPlace` of Booleans and numbers; nothing for all others. */
std::optional<ContentInPlace> GetNumberInPlace(const I_Value& value) noexcept;

}  // namespace nbx
