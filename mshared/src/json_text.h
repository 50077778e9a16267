#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "nbx/value.h"

namespace nbx {

/** Kinds of JSON values, as far as they matter for reading a member. */
enum class JsonKind { kNull, kBoolean, kNumber, kText, kNested };

/** A member of an object: texts decoded, numbers with the digits of the source, the rest as JSON text. */
struct JsonMember {
    std::string key;
    JsonKind kind;
    std::string text;
};

/** The members of a JSON text's outermost object, in the order of the text. */
struct JsonMembers {
    bool is_valid = false;
    bool is_object = false;
    std::vector<JsonMember> members;

    /** The last member with the key; null when there is none. */
    const JsonMember* Find(std::string_view key) const noexcept;
};

/** Reads UTF-8 JSON text, however deep it is nested. Malformed text gives `is_valid` false and no members. */
JsonMembers ReadJsonMembers(std::string_view text);

/** Whether the text as a whole is JSON that may stand inside of other JSON. */
bool IsJson(std::string_view text);

/** Appends the UTF-8 text between double quotes, escaped as JSON asks for. */
void AppendJsonString(std::string_view text, std::string& result);

/** Appends the value as JSON (UTF-8): numbers and booleans as such, JSON values as they are, everything
    else as text; NULL and a null pointer as null. What JSON has no number for (infinities and NaN) and a
    JSON value that is malformed become text, so that the result is JSON whatever the value. */
void AppendValueJson(I_Value* value, std::string& result);

/** Appends the elements as a JSON array. */
void AppendArrayJson(const I_ArrayValue& array, std::string& result);

}  // namespace nbx
