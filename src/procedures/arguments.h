#pragma once

#include <cstdint>
#include <string>

#include "mirona/extension_api.h"

namespace mduckdb {

/** The arguments of one procedure call, by their position from 0. A missing argument reads as null. Argument
    errors are standard exceptions whose text is meant for the user. */
class Arguments {
  public:
    Arguments(mirona_call call, const mirona_value* values);

    std::uint32_t get_Count() const noexcept { return count_; }

    /** The text, or the empty text for null. */
    std::string OptionalText(std::uint32_t position) const;
    /** The text; std::invalid_argument when it is null or empty. */
    std::string RequiredText(std::uint32_t position, const char* procedure_name) const;
    /** The first one as the address of files, whose ".." lead where they lead for the system. */
    std::string ParquetFiles(const char* procedure_name) const;
    /** The row limit as decimal digits, or the empty text for none. */
    std::string Limit(std::uint32_t position) const;
    /** The select list that the argument asks for: "*", or identifiers. */
    std::string ColumnList(std::uint32_t position) const;

  private:
    mirona_value At(std::uint32_t position) const noexcept;
    bool IsNull(mirona_value value) const;
    /** Null when the host has no text for the value. */
    bool ReadText(mirona_value value, std::string& text) const;

    mirona_call call_;
    const mirona_value* values_;
    std::uint32_t count_;
};

/** The number in the text as a row limit, read as the standard string-to-integer conversion does. */
std::string ParseLimit(const std::string& text);

}  // namespace mduckdb
