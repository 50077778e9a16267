#pragma once

#include <memory>

#include "nbx/export.h"
#include "nbx/string.h"

namespace nbx {

/** Reads one JSON text. Never throws for malformed text. */
class NBX_API Json {
  public:
    /** `text` is NUL-terminated UTF-8 and is read during the call only. */
    explicit Json(const char* text);
    ~Json();
    Json(const Json&) = delete;
    Json& operator=(const Json&) = delete;

    /** Whether the text as a whole is JSON. */
    bool isValid() const noexcept;
    /** The value of a member of the outermost object: a text as it is, a number with its own digits,
        "true" or "false", anything nested as JSON text; empty for null and for a missing member. */
    String get_JsonValue(const char* key) const;

  private:
    struct Document;
    std::unique_ptr<Document> document_;
};

}  // namespace nbx
