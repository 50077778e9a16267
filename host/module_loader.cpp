#include "module_loader.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <filesystem>
#include <stdexcept>

namespace mduckdb_host {

namespace {

namespace fs = std::filesystem;

std::string FindModule(const std::string& name) {
    if (name.find('/') != std::string::npos) {
        return name;
    }
    // A file name is a file of the current folder, as with every other program; a mere module name never is.
    if (std::error_code error; name.ends_with(".so") && fs::is_regular_file(name, error)) {
        return "./" + name;
    }
    const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
    const fs::path folders[] = {here / "../lib", here / "../lib/mduckdb", here};
    for (const fs::path& folder : folders) {
        for (const std::string& file : {"lib" + name + ".so", name + ".so", name}) {
            if (std::error_code error; fs::is_regular_file(folder / file, error)) {
                return fs::canonical(folder / file).string();
            }
        }
    }
    throw std::runtime_error(fmt::format("Cannot find the module '{}' in {} and {}; --module FILE names it.",
                                         name, (here / "../lib").lexically_normal().string(), here.string()));
}

template <class Function>
Function FindFunction(void* module, const char* name, const std::string& file) {
    void* const address = dlsym(module, name);
    if (address == nullptr) {
        throw std::runtime_error(fmt::format("'{}' is no extension module: it has no {}.", file, name));
    }
    return reinterpret_cast<Function>(address);
}

}  // namespace

const void* LoadModule(const std::string& name, ProcedureRegistry& registry) {
    const std::string file = FindModule(name);
    void* const module = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        throw std::runtime_error(fmt::format("Cannot load the module: {}", dlerror()));
    }
    const auto bind_api =
        FindFunction<decltype(&mirona_extension_bind_api)>(module, "mirona_extension_bind_api", file);
    const auto init = FindFunction<decltype(&mirona_extension_init)>(module, "mirona_extension_init", file);
    bind_api(&GetFunctionTable());
    init(static_cast<ErrorTarget*>(&registry));
    for (const std::string& error : registry.get_Errors()) {
        fmt::print(stderr, "{}\n", error);
    }
    return reinterpret_cast<const void*>(init);
}

}  // namespace mduckdb_host
