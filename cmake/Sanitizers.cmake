if(MDUCKDB_SANITIZE)
    add_compile_options(-fsanitize=${MDUCKDB_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${MDUCKDB_SANITIZE})
endif()
if(MDUCKDB_FUZZ)
    # Everything reports its branches to libFuzzer; only the program of the fuzz targets has the fuzzer itself.
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()
if(MDUCKDB_SANITIZE STREQUAL "thread")
    # libduckdb.so uses the standard library's templates from any library that exports them. Instrumented ones that run
    # on its own threads look like races, because its atomics are not visible, so this project does not export its own.
    # The modules hide all but two functions by a script of their own, and a library can have only one.
    add_link_options(
        $<$<NOT:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,MODULE_LIBRARY>>:-Wl,--version-script=${CMAKE_CURRENT_LIST_DIR}/tsan_exports.map>)
endif()

# Read by a sanitized program when it starts; harmless for others. The suppressions name only libduckdb.so, which is not
# instrumented. Of each allocation AddressSanitizer keeps three frames: finding the place for thirty took a third of the time
# of tests with many allocations. A program that is started by hand keeps them all.
set(MDUCKDB_TEST_ENVIRONMENT
    "ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1:check_initialization_order=1:malloc_context_size=3"
    "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0"
    "UBSAN_OPTIONS=print_stacktrace=1"
    "TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/tsan.supp:ignore_noninstrumented_modules=1:second_deadlock_stack=1:print_suppressions=0")
