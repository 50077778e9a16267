#pragma once

#include "nbx/mrsql/duckdb_extension.h"

/** The built module `mduckdb_casts`, loaded next to the code under test: its own registry, its own globals.
   The provider of DuckDB that was installed before stays installed. */
class SecondModule {
  public:
    SecondModule();
    SecondModule(const SecondModule&) = delete;
    SecondModule& operator=(const SecondModule&) = delete;

    nbx::mrsql::I_DuckDBExtension* get() const { return extension_.get(); }
    nbx::mrsql::I_DuckDBExtension* operator->() const { return extension_.get(); }

  private:
    nbx::smart_ptr<nbx::mrsql::I_DuckDBExtension> extension_;
};
