#include "nbx/version.h"

namespace nbx {

const char* get_LibraryVersion() noexcept {
    return MSHARED_VERSION;
}

}  // namespace nbx
