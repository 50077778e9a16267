#include "table/module.h"

#include <dlfcn.h>
#include <fmt/format.h>
#include <link.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string_view>

#include "nbx/version.h"

namespace mduckdb_host {

namespace {

namespace fs = std::filesystem;

std::string FindModule(const std::string& name) {
    if (name.find('/') != std::string::npos) {
        return name;
    }
    // `name.so` may be a file in the current folder; a name without .so never is.
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
    throw std::runtime_error(
        fmt::format("Cannot find the module '{}' in {} or {}. Use --module FILE to name its file.", name,
                    (here / "../lib").lexically_normal().string(), here.string()));
}

template <class Function>
Function FindFunction(void* module, const char* name, const std::string& file) {
    void* const address = dlsym(module, name);
    if (address == nullptr) {
        throw std::runtime_error(
            fmt::format("'{}' is not an extension module: it does not export {}.", file, name));
    }
    return reinterpret_cast<Function>(address);
}

constexpr std::string_view kOwner{NBX_VERSION_NOTE_OWNER, sizeof NBX_VERSION_NOTE_OWNER};

struct Search {
    ElfW(Addr) address;
    std::optional<std::string> version;
};

/** Removes `size` bytes, rounded up to the alignment, from the front of the notes; empty when there are
    fewer. */
std::string_view Take(std::string_view& notes, std::size_t size, std::size_t alignment) {
    const std::size_t padded = (size + alignment - 1) / alignment * alignment;
    if (size > notes.size()) {
        notes = {};
        return {};
    }
    const std::string_view part = notes.substr(0, size);
    notes.remove_prefix(std::min(padded, notes.size()));
    return part;
}

std::optional<std::string> FindVersion(std::string_view notes, std::size_t alignment) {
    ElfW(Nhdr) header;
    while (notes.size() >= sizeof header) {
        std::memcpy(&header, notes.data(), sizeof header);
        notes.remove_prefix(sizeof header);
        const std::string_view owner = Take(notes, header.n_namesz, alignment);
        const std::string_view content = Take(notes, header.n_descsz, alignment);
        if (header.n_type == NT_VERSION && owner == kOwner) {
            return std::string(content.substr(0, content.find('\0')));
        }
    }
    return std::nullopt;
}

bool HoldsAddress(const dl_phdr_info& library, ElfW(Addr) address) {
    for (int i = 0; i < library.dlpi_phnum; ++i) {
        const auto& segment = library.dlpi_phdr[i];
        // An address below the segment wraps around to a large number.
        if (segment.p_type == PT_LOAD && address - library.dlpi_addr - segment.p_vaddr < segment.p_memsz) {
            return true;
        }
    }
    return false;
}

int Visit(dl_phdr_info* library, std::size_t /*size*/, void* data) {
    auto& search = *static_cast<Search*>(data);
    if (!HoldsAddress(*library, search.address)) {
        return 0;
    }
    for (int i = 0; i < library->dlpi_phnum && !search.version; ++i) {
        const auto& segment = library->dlpi_phdr[i];
        if (segment.p_type == PT_NOTE) {
            const auto* const start = reinterpret_cast<const char*>(library->dlpi_addr + segment.p_vaddr);
            search.version = FindVersion({start, segment.p_memsz}, segment.p_align == 8 ? 8 : 4);
        }
    }
    return 1;  // the search is over
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
    const auto& errors = registry.get_Errors();
    if (!errors.empty() && registry.get_Procedures().empty()) {
        if (ReadModuleVersion(reinterpret_cast<const void*>(init))) {
            throw xModuleRefused();
        }
        throw std::runtime_error(fmt::format("{}", fmt::join(errors, "\n")));
    }
    for (const std::string& error : errors) {
        fmt::print(stderr, "{}\n", error);
    }
    return reinterpret_cast<const void*>(init);
}

std::optional<std::string> ReadModuleVersion(const void* address) {
    Search search{reinterpret_cast<ElfW(Addr)>(address), std::nullopt};
    dl_iterate_phdr(&Visit, &search);
    return search.version;
}

}  // namespace mduckdb_host
