#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "nbx/value.h"

namespace nbx {

/** Kinds of JSON values that readers of members distinguish. */
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

    /** The last member with the key; null if there is none. */
    const JsonMember* Find(std::string_view key) const noexcept;
};

/** Reads UTF-8 JSON text of any depth, without recursion. Malformed text has `is_valid` false and no
    members. */
JsonMembers ReadJsonMembers(std::string_view text);

/** Whether the whole text is one JSON value that can be inserted into other JSON. */
bool IsJson(std::string_view text);

/** Appends the UTF-8 text between double quotes, escaped as JSON requires. */
void AppendJsonString(std::string_view text, std::string& result);

/** Appends the value as JSON (UTF-8): numbers, booleans and JSON values in their form, everything else
    as text; NULL and a null pointer as null. Infinities, NaN and malformed JSON become text, so that the
    result is always valid JSON. */
void AppendValueJson(I_Value* value, std::string& result);

/** Appends the elements as a JSON array. */
void AppendArrayJson(const I_ArrayValue& array, std::string& result);

}  // namespace nbx
