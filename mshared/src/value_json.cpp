#include "value_json.h"

#include <cmath>

#include "json_text.h"
#include "unicode.h"

namespace nbx {
namespace {

enum class JsonForm { Text, Number, Float, Json, Array, Reference };

JsonForm FormOf(uint32_t type_code) noexcept {
    switch (static_cast<ValueType>(type_code)) {
        case ValueType::Boolean:
        case ValueType::Byte:
        case ValueType::Short:
        case ValueType::UShort:
        case ValueType::Medium:
        case ValueType::UMedium:
        case ValueType::Long:
        case ValueType::ULong:
        case ValueType::LLong:
        case ValueType::ULLong:
            return JsonForm::Number;
        case ValueType::Float:
        case ValueType::Double:
        case ValueType::LDouble:
        case ValueType::Currency:
            return JsonForm::Float;
        case ValueType::JSON:
            return JsonForm::Json;
        case ValueType::Array:
            return JsonForm::Array;
        case ValueType::Reference:
            return JsonForm::Reference;
        default:
            return JsonForm::Text;
    }
}

bool IsPlain(JsonForm form, I_Value& value, const std::string& text) {
    return form == JsonForm::Number || (form == JsonForm::Float && std::isfinite(value.get_Double())) ||
           (form == JsonForm::Json && IsJson(text));
}

void AppendAsTextOrPlain(JsonForm form, I_Value& value, std::string& result) {
    const std::string text = Utf16ToUtf8(value.get_Text().get_View());
    if (IsPlain(form, value, text)) {
        result += text;
    } else {
        AppendJsonString(text, result);
    }
}

}  // namespace

void AppendValueJson(I_Value* value, std::string& result) {
    if (value == nullptr || value->get_IsNull()) {
        result += "null";
        return;
    }
    const JsonForm form = FormOf(value->get_TypeCode());
    if (form == JsonForm::Array) {
        if (const auto* array = static_cast<const I_ArrayValue*>(value->QueryInterface(kArrayInterfaceId))) {
            AppendArrayJson(*array, result);
            return;
        }
    }
    if (form == JsonForm::Reference) {
        if (const auto* reference =
                static_cast<const I_ReferenceValue*>(value->QueryInterface(kReferenceInterfaceId))) {
            AppendValueJson(reference->get_Inner().get(), result);
            return;
        }
    }
    AppendAsTextOrPlain(form, *value, result);
}

void AppendArrayJson(const I_ArrayValue& array, std::string& result) {
    result += '[';
    for (uint64_t i = 0; i < array.get_Count(); ++i) {
        if (i != 0) {
            result += ',';
        }
        AppendValueJson(array.get_Element(i).get(), result);
    }
    result += ']';
}

}  // namespace nbx
