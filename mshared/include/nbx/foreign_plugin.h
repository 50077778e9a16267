#pragma once

#include "nbx/export.h"

namespace nbx {

/** Two words and a function that the host attaches to a module's object. The module never reads them. They
    are not synchronised: the host sets them before it shares the object. */
class NBX_API I_ForeignPlugin {
  public:
    using Finalizer = void (*)(I_ForeignPlugin* plugin);

    virtual ~I_ForeignPlugin();
    /** A pointer of the host's; null at first. The object does not own what it points to. */
    virtual void* get_Xtra() const = 0;
    virtual void put_Xtra(void* xtra) = 0;
    /** The host's pointer to this object, which becomes null when the object is destroyed; null at first.
        It must outlive the object or be withdrawn with null. */
    virtual void** get_BackRef() const = 0;
    virtual void put_BackRef(void** back_ref) = 0;
    /** The function is called once, by the object's destructor, on the thread that releases the last
        reference. It must not throw. Null removes it. */
    virtual void put_Finalize(Finalizer finalizer) = 0;
};

/** The host's implementation, a base of every object that a module creates for the host. Its destructor calls
    the finaliser and then clears the pointer that the back reference points to. By then the module's part of
    the object is destroyed, so the finaliser must not use it. */
class NBX_API ForeignPlugin_imp : public I_ForeignPlugin {
  public:
    ~ForeignPlugin_imp() override;
    void* get_Xtra() const override { return xtra_; }
    void put_Xtra(void* xtra) override { xtra_ = xtra; }
    void** get_BackRef() const override { return back_ref_; }
    void put_BackRef(void** back_ref) override { back_ref_ = back_ref; }
    void put_Finalize(Finalizer finalizer) override { finalizer_ = finalizer; }

  private:
    void* xtra_ = nullptr;
    void** back_ref_ = nullptr;
    Finalizer finalizer_ = nullptr;
};

}  // namespace nbx
