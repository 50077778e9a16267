#pragma once

#include <memory>

#include "nbx/export.h"
#include "nbx/string.h"

namespace nbx {

/** Reads the members of one JSON object. Malformed text is not an error: check `isValid`. After construction
    the object never changes, so threads may share it. Throws nothing but `std::bad_alloc`. */
class NBX_API Json {
  public:
    /** `text` is NUL-terminated UTF-8 and is not used after the call. Null means text that is not valid. */
    explicit Json(const char* text);
    ~Json();
    Json(const Json&) = delete;
    Json& operator=(const Json&) = delete;

    /** Whether the whole text is one JSON value of any kind. */
    bool isValid() const noexcept;
    /** The value of a member of the outermost object: a text without quotes and escapes, a number with the
        digits of the source, "true" or "false", an object or array as JSON text. Empty for null, for a
        missing member, and if the text is not a JSON object. If a key occurs twice the last one counts.
        `key` is NUL-terminated UTF-8. */
    String get_JsonValue(const char* key) const;

  private:
    struct Document;
    std::unique_ptr<Document> document_;
};

}  // namespace nbx
