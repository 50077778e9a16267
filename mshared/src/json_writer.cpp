#include <cmath>
#include <string>
#include <vector>

#include "json_text.h"
#include "nbx/mrsql/registry.h"
#include "unicode.h"

namespace nbx {
namespace {

/** How a value is written. `kFloat` is a number unless it is infinite or NaN, `kJson` is JSON if it is
    valid. */
enum class JsonForm { kText, kNumber, kFloat, kJson, kArray, kReference };

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
            return JsonForm::kNumber;
        case ValueType::Float:
        case ValueType::Double:
        case ValueType::LDouble:
        case ValueType::Currency:
            return JsonForm::kFloat;
        case ValueType::JSON:
            return JsonForm::kJson;
        case ValueType::Array:
            return JsonForm::kArray;
        case ValueType::Reference:
            return JsonForm::kReference;
        default:
            return JsonForm::kText;
    }
}

/** Whether the value's text is JSON already and needs no quotes. */
bool IsPlain(JsonForm form, I_Value& value, const std::string& text) {
    return form == JsonForm::kNumber || (form == JsonForm::kFloat && std::isfinite(value.get_Double())) ||
           (form == JsonForm::kJson && IsJson(text));
}

void AppendAsTextOrPlain(JsonForm form, I_Value& value, std::string& result) {
    const std::string text = Utf16ToUtf8(value.get_Text().get_View());
    if (IsPlain(form, value, text)) {
        result += text;
    } else {
        AppendJsonString(text, result);
    }
}

/** Each column's name as JSON text with the colon after it: converted once, not for each row. */
std::vector<std::string> ColumnKeys(const mrsql::I_DuckDBCursor& cursor) {
    std::vector<std::string> keys(cursor.get_ColumnCount());
    for (uint32_t i = 0; i < keys.size(); ++i) {
        AppendJsonString(Utf16ToUtf8(cursor.get_ColumnName(i).get_View()), keys[i]);
        keys[i] += ':';
    }
    return keys;
}

}  // namespace

// Only what JSON requires is escaped; everything else is valid UTF-8 and stays readable.
void AppendJsonString(std::string_view text, std::string& result) {
    constexpr char kHexDigits[] = "0123456789abcdef";
    result += '"';
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            result += '\\';
            result += c;
        } else if (byte >= 0x20) {
            result += c;
        } else {
            result += "\\u00";
            result += kHexDigits[byte >> 4U];
            result += kHexDigits[byte & 0xFU];
        }
    }
    result += '"';
}

void AppendValueJson(I_Value* value, std::string& result) {
    if (value == nullptr || value->get_IsNull()) {
        result += "null";
        return;
    }
    const JsonForm form = FormOf(value->get_TypeCode());
    // A host may implement values itself, so a type code does not guarantee its interface. A value without it
    // is written as text.
    if (form == JsonForm::kArray) {
        if (const auto* array = static_cast<const I_ArrayValue*>(value->QueryInterface(kArrayInterfaceId))) {
            AppendArrayJson(*array, result);
            return;
        }
    }
    if (form == JsonForm::kReference) {
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

namespace mrsql {

// Cells are written one by one instead of building a document: a result may have millions of rows, and the
// text is all that is kept of them.
String CursorToJSON(smart_ptr<I_DuckDBCursor> cursor) {
    std::string text = "[";
    if (cursor) {
        const std::vector<std::string> keys = ColumnKeys(*cursor);
        while (cursor->NextRecord()) {
            text += text.size() == 1 ? "{" : ",{";
            for (uint32_t i = 0; i < keys.size(); ++i) {
                text += i == 0 ? "" : ",";
                text += keys[i];
                AppendValueJson(cursor->get_Value(i).get(), text);
            }
            text += '}';
        }
    }
    text += ']';
    return String(Utf8ToUtf16(text));
}

}  // namespace mrsql

}  // namespace nbx
