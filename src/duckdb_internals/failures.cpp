#include "duckdb_internals/failures.h"

#include <duckdb/common/error_data.hpp>
#include <duckdb/main/capi/capi_internal.hpp>
#include <string_view>

#include "base/errors.h"
#include "base/text.h"
#include "duckdb_internals/version_differences.h"

namespace mduckdb {
namespace {

using duckdb::ErrorData;
using duckdb::Exception;
using duckdb::ExceptionType;

/** The parts of a JSON text of DuckDB. Another text is an error of kind INVALID. */
ErrorData Parse(const std::string& text) {
    try {
        return ErrorData(text);
    } catch (const duckdb::Exception&) {
        return ErrorData(ExceptionType::INVALID, text);
    }
}

/** With JSON texts switched on, DuckDB puts everything it knows into the message. A message of a user's that
    happens to be JSON is not one of DuckDB's: its kind differs. */
std::string PlainMessage(const ErrorData& error) {
    const ErrorData parsed = Parse(error.RawMessage());
    return parsed.Type() == error.Type() ? parsed.RawMessage() : error.RawMessage();
}

SharedErrorFacts MakeFacts(const ErrorData& error) {
    auto facts = std::make_shared<ErrorFacts>();
    facts->kind = static_cast<nbx::mrsql::DuckDBErrorKind>(duckdb::ErrorTypeToC(error.Type()));
    facts->kind_name = FromUtf8(Exception::ExceptionTypeToString(error.Type()));
    facts->message = FromUtf8(PlainMessage(error));
    for (const auto& [name, content] : error.ExtraInfo()) {
        facts->details.emplace(name, FromUtf8(content));
    }
    const auto position = facts->details.find("position");
    if (position != facts->details.end() && !position->second.isEmpty()) {
        facts->position = position->second.parseLLong();
    }
    return facts;
}

/** Of "Parser Error: ..." the error of this kind; of a text that does not begin like that, an error of kind
    INVALID. */
ErrorData ReadText(const std::string& text) {
    static constexpr std::string_view kAfterKind = " Error: ";
    if (text.front() == '{') {
        return Parse(text);
    }
    const std::size_t end = text.find(kAfterKind);
    const ExceptionType kind = end == std::string::npos
                                   ? ExceptionType::INVALID
                                   : Exception::StringToExceptionType(text.substr(0, end));
    if (kind == ExceptionType::INVALID) {
        return ErrorData(kind, text);
    }
    const std::string message = text.substr(end + kAfterKind.size());
    const ErrorData parsed = Parse(message);
    return parsed.Type() == kind ? parsed : ErrorData(kind, message);
}

/** Null when making them fails: an error without its facts is better than another error. */
template <class Make>
SharedErrorFacts TryMake(Make make) noexcept {
    try {
        return make();
    } catch (...) {
        return nullptr;
    }
}

SharedErrorFacts FactsOfText(const std::string& text) noexcept {
    return TryMake([&]() -> SharedErrorFacts {
        const ErrorData error = ReadText(text);
        return error.Type() == ExceptionType::INVALID ? nullptr : MakeFacts(error);
    });
}

/** The facts of the error object if it is the one with the text. */
SharedErrorFacts FactsOf(const ErrorData* error, const std::string& text) noexcept {
    const bool has_text = error != nullptr && error->HasError() && error->Message() == text;
    return has_text ? TryMake([error] { return MakeFacts(*error); }) : FactsOfText(text);
}

bool IsGiven(const char* text) noexcept {
    return text != nullptr && *text != '\0';
}

}  // namespace

Failure FailureOf(const char* duckdb_text, const char* fixed_text) {
    Failure failure{TextOr(duckdb_text, fixed_text), nullptr};
    if (IsGiven(duckdb_text)) {
        failure.facts = FactsOfText(failure.text);
    }
    return failure;
}

Failure FailureOf(duckdb_prepared_statement prepared, const char* fixed_text) {
    const char* const text = duckdb_prepare_error(prepared);
    Failure failure{TextOr(text, fixed_text), nullptr};
    if (IsGiven(text)) {
        // A failed bind is in the wrapper, a failed preparation in the statement.
        const auto& wrapper = *reinterpret_cast<const duckdb::PreparedStatementWrapper*>(prepared);
        const bool is_of_statement =
            wrapper.statement && wrapper.statement->GetErrorObject().Message() == failure.text;
        failure.facts = FactsOf(is_of_statement ? &wrapper.statement->GetErrorObject() : &wrapper.error_data,
                                failure.text);
    }
    return failure;
}

Failure FailureOf(const duckdb_result& result, const char* fixed_text) {
    const char* const text = duckdb_result_error(const_cast<duckdb_result*>(&result));
    Failure failure{TextOr(text, fixed_text), nullptr};
    if (IsGiven(text)) {
        auto* data = static_cast<duckdb::DuckDBResultData*>(result.internal_data);
        failure.facts = FactsOf(data != nullptr ? version::FindError(*data) : nullptr, failure.text);
    }
    return failure;
}

}  // namespace mduckdb
