#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "nbx/export.h"
#include "nbx/thread_annotations.h"

namespace nbx {

/** Root of every host interface: an intrusive reference count and a look-up of further interfaces.

    An object starts with a count of 0; its creator takes the first reference (see `MakeObject`). `AddRef`,
    `Release` and `get_RefsCount` may be called from any thread. The order of the virtual functions of every
    interface is part of the contract between host and module, so new ones are never inserted. */
class NBX_API I_Unknown {
  public:
    virtual ~I_Unknown();

    /** Adds a reference and returns the new count. */
    virtual uint32_t AddRef() = 0;
    /** Removes a reference and returns the new count. At 0 the object is destroyed on this thread. */
    virtual uint32_t Release() = 0;
    /** The interface with this number, or null if the object does not offer it. Adds no reference: the
        pointer is valid as long as the caller's reference to the object. The caller casts it to the interface
        that the number stands for. */
    virtual void* QueryInterface(uint32_t interface_id) = 0;
    /** The count at this moment; for tests and diagnostics. */
    virtual uint32_t get_RefsCount() const = 0;
};

/** Empty base class that makes a class impossible to copy. */
class noncopyable {
  public:
    noncopyable(const noncopyable&) = delete;
    noncopyable& operator=(const noncopyable&) = delete;

  protected:
    noncopyable() = default;
    ~noncopyable() = default;
};

/** The atomic count behind `AddRef` and `Release`. */
class RefCount : noncopyable {
  public:
    explicit RefCount(uint32_t initial = 0) noexcept : count_(initial) {}
    uint32_t Increment() noexcept { return count_.fetch_add(1, std::memory_order_relaxed) + 1; }
    /** Returns the new count. At 0 only the caller may use the object, and everything that other threads did
        to it before they released their references is visible. */
    uint32_t Decrement() noexcept {
        // The last owner cannot race with anyone, so it is spared the locked instruction.
        if (count_.load(std::memory_order_acquire) == 1) {
            return 0;
        }
        return count_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    }
    uint32_t get_Value() const noexcept { return count_.load(std::memory_order_acquire); }

  private:
    std::atomic<uint32_t> count_;
};

/** Intrusive reference-counting pointer to an interface derived from `I_Unknown`; may be null.

    A parameter passed by value transfers a reference to the callee, which releases it. Different threads may
    use different smart pointers to one object at once, but not the same smart pointer if one changes it.
    Dereferencing a null pointer is undefined. */
template <class T>
class smart_ptr {
  public:
    using element_type = T;

    smart_ptr() noexcept = default;
    smart_ptr(std::nullptr_t) noexcept {}  // NOLINT(google-explicit-constructor): null is a pointer
    /** Adds a reference; the caller keeps its own. */
    explicit smart_ptr(T* object) noexcept : object_(object) {
        if (object_ != nullptr) {
            object_->AddRef();
        }
    }
    smart_ptr(const smart_ptr& other) noexcept : smart_ptr(other.object_) {}
    smart_ptr(smart_ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    template <class U>
    smart_ptr(const smart_ptr<U>& other) noexcept  // NOLINT(google-explicit-constructor): upcast
        : smart_ptr(static_cast<T*>(other.get())) {}
    template <class U>
    smart_ptr(smart_ptr<U>&& other) noexcept  // NOLINT(google-explicit-constructor): upcast
        : object_(other.detach()) {}
    ~smart_ptr() { reset(); }

    smart_ptr& operator=(const smart_ptr& other) noexcept {  // NOLINT(bugprone-unhandled-self-assignment)
        smart_ptr(other).swap(*this);
        return *this;
    }
    smart_ptr& operator=(smart_ptr&& other) noexcept {
        smart_ptr(std::move(other)).swap(*this);
        return *this;
    }

    /** Wraps a pointer without adding a reference: the caller's reference becomes this pointer's. */
    static smart_ptr Adopt(T* object) noexcept {
        smart_ptr result;
        result.object_ = object;
        return result;
    }

    /** The pointer, without a reference of its own. */
    T* get() const noexcept { return object_; }
    T* operator->() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }
    /** Returns the pointer with its reference, which the caller must release; this pointer becomes null. */
    T* detach() noexcept { return std::exchange(object_, nullptr); }
    /** Releases the reference; this pointer is null before the object's destructor runs. */
    void reset() noexcept {
        if (T* object = std::exchange(object_, nullptr)) {
            object->Release();
        }
    }
    void swap(smart_ptr& other) noexcept { std::swap(object_, other.object_); }

    friend bool operator==(const smart_ptr& a, const smart_ptr& b) noexcept { return a.object_ == b.object_; }
    friend bool operator==(const smart_ptr& a, std::nullptr_t) noexcept { return a.object_ == nullptr; }

  private:
    T* object_ = nullptr;
};

/** Implements the counting functions of `Interface`; `Release` deletes the object with its last reference.
    Every counted class derives from it instead of the interface itself and of `noncopyable`. */
template <class Interface>
class NBX_API Counted : public Interface, noncopyable {
  public:
    uint32_t AddRef() override { return refs_.Increment(); }
    uint32_t Release() override {
        return ReleaseWith([this]() noexcept { delete this; });
    }
    uint32_t get_RefsCount() const override { return refs_.get_Value(); }

  protected:
    /** `initial` is 1 for objects whose factory returns a plain pointer with the caller's reference. */
    explicit Counted(uint32_t initial = 0) noexcept : refs_(initial) {}
    /** `Release` for a class whose objects are destroyed in another way: calls `destroy` when the last
        reference is removed. The object may no longer exist when it returns. */
    template <class Destroy>
    uint32_t ReleaseWith(Destroy destroy) {
        const uint32_t count = refs_.Decrement();
        if (count == 0) {
            destroy();
        }
        return count;
    }

  private:
    RefCount refs_;
};

/** Creates a `T`, whose count must start at 0, and returns the first reference to it. The caller holds the
   locks that the constructor needs; the analysis cannot see that from here. */
template <class T, class... Args>
smart_ptr<T> MakeObject(Args&&... args) NBX_NO_THREAD_SAFETY_ANALYSIS {
    return smart_ptr<T>(new T(std::forward<Args>(args)...));
}

/** One row of a class's interface table: the number of an interface, and where in the object it is. */
struct InterfaceItem {
    uint32_t interface_id;
    void* (*cast)(void* object);
};

/** Implements `QueryInterface` with a class's static table, which ends with a row whose `cast` is null.
    `object` points to the most derived object, as the table's casts expect. Returns null if the table does
    not have the number. */
NBX_API void* InterfaceTableQueryInterface(void* object, const InterfaceItem* table,
                                           uint32_t interface_id) noexcept;

/** The `cast` of an `InterfaceItem` for a class and one of its bases. */
template <class Object, class Interface>
void* CastToInterface(void* object) noexcept {
    return static_cast<Interface*>(static_cast<Object*>(object));
}

}  // namespace nbx
