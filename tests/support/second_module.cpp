#include "support/second_module.h"

#include <dlfcn.h>

#include <cstdint>
#include <stdexcept>

#include "mirona/extension_api.h"
#include "nbx/mrsql/registry.h"

std::string SecondModule::get_BuiltPath() {
    return SECOND_MODULE;
}

SecondModule::SecondModule(const std::string& path) {
    const auto installed = nbx::mrsql::GetDuckDBExtension();
    // Stays loaded: the process may hold its objects until the end.
    void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        throw std::runtime_error(dlerror());
    }
    static mirona_extension_api api{};
    api.register_procedure = [](mirona_host, const mirona_procedure_def*) { return std::uint32_t{0}; };
    const auto bind =
        reinterpret_cast<decltype(&mirona_extension_bind_api)>(dlsym(module, "mirona_extension_bind_api"));
    const auto init =
        reinterpret_cast<decltype(&mirona_extension_init)>(dlsym(module, "mirona_extension_init"));
    bind(&api);
    init(nullptr);
    extension_ = nbx::mrsql::GetDuckDBExtension();
    nbx::mrsql::SetDuckDBExtension(installed);
}
