#pragma once

#include <string>

#include "nbx/mrsql/duckdb_extension.h"

/** The built module `mduckdb_casts`, loaded next to the code under test: its own registry, its own globals.
   The provider of DuckDB that was installed before stays installed. */
class SecondModule {
  public:
    explicit SecondModule(const std::string& path = get_BuiltPath());
    SecondModule(const SecondModule&) = delete;
    SecondModule& operator=(const SecondModule&) = delete;

    static std::string get_BuiltPath();

    nbx::mrsql::I_DuckDBExtension* get() const { return extension_.get(); }
    nbx::mrsql::I_DuckDBExtension* operator->() const { return extension_.get(); }

  private:
    nbx::smart_ptr<nbx::mrsql::I_DuckDBExtension> extension_;
};
