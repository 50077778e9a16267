#pragma once

#include "nbx/export.h"

namespace nbx {

/** Words that the host hangs onto a plug-in's object; the plug-in never reads them. */
class NBX_API I_ForeignPlugin {
  public:
    using Finalizer = void (*)(I_ForeignPlugin* plugin);

    virtual ~I_ForeignPlugin();
    virtual void* get_Xtra() const = 0;
    virtual void put_Xtra(void* xtra) = 0;
    virtual void** get_BackRef() const = 0;
    virtual void put_BackRef(void** back_ref) = 0;
    /** The function is called once, when the object is destroyed. It must not throw. */
    virtual void put_Finalize(Finalizer finalizer) = 0;
};

/** The host's implementation, mixed into every object that a plug-in hands out. When the object goes,
    it calls the finaliser and then clears the pointer that the back reference points to. */
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
