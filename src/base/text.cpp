#include "base/text.h"

#include "nbx/exception.h"

namespace mduckdb {

std::string ToPath(const nbx::String& text) {
    std::string path = ToUtf8(text);
    if (path.find('\0') != path.npos) {
        throw nbx::xException(nbx::kLocationErrorCode, "A path must not contain NUL characters");
    }
    if (!(FromUtf8(path) == text)) {
        throw nbx::xException(nbx::kLocationErrorCode, path.c_str(), "The path is not valid UTF-16");
    }
    return path;
}

}  // namespace mduckdb
