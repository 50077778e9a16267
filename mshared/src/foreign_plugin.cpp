#include "nbx/foreign_plugin.h"

namespace nbx {

ForeignPlugin_imp::~ForeignPlugin_imp() {
    if (finalizer_ != nullptr) {
        finalizer_(this);
    }
    if (back_ref_ != nullptr) {
        *back_ref_ = nullptr;
    }
}

}  // namespace nbx
