#include <string>
#include <vector>

#include "json_text.h"
#include "nbx/mrsql/registry.h"
#include "unicode.h"
#include "value_json.h"

namespace nbx::mrsql {
namespace {

/** Each column's name as JSON text with the colon after it. */
std::vector<std::string> ColumnKeys(const I_DuckDBCursor& cursor) {
    std::vector<std::string> keys(cursor.get_ColumnCount());
    for (uint32_t i = 0; i < keys.size(); ++i) {
        AppendJsonString(Utf16ToUtf8(cursor.get_ColumnName(i).get_View()), keys[i]);
        keys[i] += ':';
    }
    return keys;
}

}  // namespace

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

}  // namespace nbx::mrsql
