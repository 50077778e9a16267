#include "program.h"

#include <fmt/format.h>

#include <cstdio>

#include "module_loader.h"

namespace mduckdb_host {

void Program::Load() {
    LoadModule(module_name, registry);
}

void PrintError(std::string_view text) {
    std::fflush(stdout);
    // Nobody may be there to read it; that is no reason to fail differently.
    std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
}

}  // namespace mduckdb_host
