#include "container_values.h"

#include "unicode.h"
#include "value_json.h"

namespace nbx {

void* ReferenceValue::QueryInterface(uint32_t interface_id) {
    return interface_id == kReferenceInterfaceId ? static_cast<I_ReferenceValue*>(this) : nullptr;
}

I_Value& ReferenceValue::Inner(ValueType type) {
    if (!inner_) {
        inner_ = smart_ptr<I_Value>::Adopt(CreateValueOfType(static_cast<uint32_t>(type), true));
    }
    return *inner_;
}

void* ArrayValue::QueryInterface(uint32_t interface_id) {
    return interface_id == kArrayInterfaceId ? static_cast<I_ArrayValue*>(this) : nullptr;
}

String ArrayValue::get_Text() const {
    if (get_IsNull()) {
        return {};
    }
    std::string text;
    AppendArrayJson(*this, text);
    return String(Utf8ToUtf16(text));
}

}  // namespace nbx
