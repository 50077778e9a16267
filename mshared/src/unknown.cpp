#include "nbx/unknown.h"

namespace nbx {

I_Unknown::~I_Unknown() = default;

void* InterfaceTableQueryInterface(void* object, const InterfaceItem* table, uint32_t interface_id) noexcept {
    for (; table->cast != nullptr; ++table) {
        if (table->interface_id == interface_id) {
            return table->cast(object);
        }
    }
    return nullptr;
}

}  // namespace nbx
