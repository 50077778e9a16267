#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "engines/idle_engines.h"

namespace mduckdb {

/** On which the calls of these tests agree unless they say otherwise. */
extern const EngineTerms kTerms;

MemoryEngine Open(const EngineTerms& terms = kTerms, const std::string& temporary_folder = "");
/** DuckDB's error, or nothing. */
std::string RunOn(const MemoryEngine& engine, const std::string& sql);
std::optional<MemoryEngine> TakeIdle(const EngineTerms& terms);
std::size_t CountIdle();

}  // namespace mduckdb
