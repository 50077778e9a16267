#include "module_version.h"

#include <link.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "nbx/version.h"

namespace mduckdb_host {

namespace {

constexpr std::string_view kOwner{NBX_VERSION_NOTE_OWNER, sizeof NBX_VERSION_NOTE_OWNER};

struct Search {
    ElfW(Addr) address;
    std::optional<std::string> version;
};

/** Splits `size` bytes, rounded up to the alignment, off the notes; nothing when there are fewer. */
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
        // What lies below the segment wraps around to a large number.
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

std::optional<std::string> ReadModuleVersion(const void* address) {
    Search search{reinterpret_cast<ElfW(Addr)>(address), std::nullopt};
    dl_iterate_phdr(&Visit, &search);
    return search.version;
}

}  // namespace mduckdb_host
