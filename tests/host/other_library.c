/* A DuckDB library of another version, as far as a module may look at it: every symbol but one is missing. */
__attribute__((visibility("default"))) const char* duckdb_library_version(void);

const char* duckdb_library_version(void) {
    return "v" OTHER_VERSION;
}
