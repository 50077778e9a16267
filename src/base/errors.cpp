#include "base/errors.h"

#include <new>
#include <utility>

#include "base/text.h"

namespace mduckdb {

std::string TextOr(const char* duckdb_text, const char* fixed_text) {
    return duckdb_text != nullptr && *duckdb_text != '\0' ? duckdb_text : fixed_text;
}

void ThrowDuckDBError(const nbx::String& path, std::string_view message) {
    throw nbx::mrsql::xDuckDBError(kDuckDBErrorCode, path.c_str(), FromUtf8(message).c_str());
}

void ThrowDuckDBError(const nbx::String& path, const Failure& failure) {
    ThrowWithFacts<nbx::mrsql::xDuckDBError>(failure.facts, kDuckDBErrorCode, path.c_str(),
                                             FromUtf8(failure.text).c_str());
}

void ThrowDetachedError(std::string_view message) {
    throw nbx::mrsql::xDuckDBError(kDuckDBErrorCode, u"unknown", FromUtf8(message).c_str());
}

void ThrowValueError(const char* name, const std::string& message) {
    throw nbx::mrsql::xDuckDBError(kDuckDBErrorCode, name, message.c_str());
}

void ThrowValueError(const char* name, const Failure& failure) {
    ThrowWithFacts<nbx::mrsql::xDuckDBError>(failure.facts, kDuckDBErrorCode, name, failure.text.c_str());
}

void ThrowOpenError(const Failure& failure) {
    ThrowWithFacts<nbx::xException>(failure.facts, kOpenErrorCode, failure.text.c_str());
}

void ThrowInterrupted() {
    SharedErrorFacts facts;
    try {
        ErrorFacts interrupt;
        interrupt.kind = nbx::mrsql::DuckDBErrorKind::interrupt;
        interrupt.kind_name = "INTERRUPT";
        facts = std::make_shared<ErrorFacts>(std::move(interrupt));
    } catch (const std::bad_alloc&) {  // The interrupt is reported without them.
    }
    ThrowWithFacts<nbx::xInterruptError>(facts, kInterruptErrorCode);
}

}  // namespace mduckdb
