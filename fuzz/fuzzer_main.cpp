// The entrance for libFuzzer, whose main() this program has: MDUCKDB_FUZZ_TARGET names the target.
#include <cstdio>
#include <cstdlib>

#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

namespace {

const fuzz::Target& ChosenTarget() {
    const char* const name = std::getenv("MDUCKDB_FUZZ_TARGET");
    const fuzz::Target* const target = fuzz::FindTarget(name != nullptr ? name : "");
    if (target == nullptr) {
        std::fprintf(stderr, "MDUCKDB_FUZZ_TARGET names no target\n");
        std::exit(2);
    }
    return *target;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const fuzz::Target& target = ChosenTarget();
    fuzz::Input input(std::string_view(reinterpret_cast<const char*>(data), size));
    target.run(input);
    return 0;
}
