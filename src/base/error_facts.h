#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "nbx/mrsql/duckdb_error_facts.h"

namespace mduckdb {

/** What DuckDB states about an error. */
struct ErrorFacts {
    nbx::mrsql::DuckDBErrorKind kind = nbx::mrsql::DuckDBErrorKind::unspecified;
    nbx::String kind_name;
    nbx::String message;
    int64_t position = -1;
    std::map<std::string, nbx::String, std::less<>> details;
};

/** Null when nothing is stated. Shared, so that an exception with facts is thrown and copied without
   allocating more than one without. */
using SharedErrorFacts = std::shared_ptr<const ErrorFacts>;

/** An error of DuckDB. */
struct Failure {
    std::string text;
    SharedErrorFacts facts;
};

/** A host exception with facts. Its base is unchanged, so that hosts that know nothing of facts catch and
   read what they always did. */
template <class Exception>
class WithFacts final : public Exception, public nbx::mrsql::I_DuckDBErrorFacts {
  public:
    /** The facts must not be null. */
    template <class... Arguments>
    explicit WithFacts(SharedErrorFacts facts, Arguments... arguments)
        : Exception(arguments...), facts_(std::move(facts)) {}

    nbx::mrsql::DuckDBErrorKind get_Kind() const noexcept override { return facts_->kind; }
    const nbx::String& get_KindName() const noexcept override { return facts_->kind_name; }
    const nbx::String& get_PlainMessage() const noexcept override { return facts_->message; }
    const nbx::String& get_Subtype() const noexcept override { return get_Detail("error_subtype"); }
    int64_t get_Position() const noexcept override { return facts_->position; }
    const nbx::String& get_Detail(const char* name) const noexcept override {
        const auto entry = facts_->details.find(name);
        return entry != facts_->details.end() ? entry->second : nbx::String::sEmpty();
    }

  private:
    SharedErrorFacts facts_;
};

/** Throws the exception with the arguments, and with the facts if there are any. */
template <class Exception, class... Arguments>
[[noreturn]] void ThrowWithFacts(const SharedErrorFacts& facts, Arguments... arguments) {
    if (facts) {
        throw WithFacts<Exception>(facts, arguments...);
    }
    throw Exception(arguments...);
}

}  // namespace mduckdb
