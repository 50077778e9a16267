if(MDUCKDB_SANITIZE)
    add_compile_options(-fsanitize=${MDUCKDB_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${MDUCKDB_SANITIZE})
endif()
