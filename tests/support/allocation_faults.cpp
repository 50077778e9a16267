#include "support/allocation_faults.h"

#include <link.h>
#include <unwind.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace {

thread_local bool is_counting = false;
thread_local uint64_t count = 0;
thread_local uint64_t first_failing = 0;
thread_local uint64_t last_failing = 0;

struct Range {
    uintptr_t begin = 0;
    uintptr_t end = 0;

    bool Contains(uintptr_t address) const noexcept { return address >= begin && address < end; }
};

/** Where the code of this program and of DuckDB is. The program hides its instances of the standard library's
    templates, so DuckDB runs none of its code. */
struct Code {
    Range program;
    Range duckdb;

    static const Code& Get() noexcept {
        static const Code code = [] {
            Code found;
            dl_iterate_phdr(&Add, &found);
            return found;
        }();
        return code;
    }

  private:
    static int Add(dl_phdr_info* library, std::size_t, void* context) noexcept {
        auto& code = *static_cast<Code*>(context);
        const bool is_program = library->dlpi_name[0] == '\0' && code.program.end == 0;
        const bool is_duckdb = std::strstr(library->dlpi_name, "libduckdb") != nullptr;
        for (int i = 0; (is_program || is_duckdb) && i < library->dlpi_phnum; ++i) {
            const auto& part = library->dlpi_phdr[i];
            if (part.p_type == PT_LOAD && (part.p_flags & PF_X) != 0) {
                const uintptr_t begin = library->dlpi_addr + part.p_vaddr;
                (is_program ? code.program : code.duckdb) = {begin, begin + part.p_memsz};
            }
        }
        return 0;
    }
};

struct Search {
    uintptr_t caller;
    bool is_past_caller = false;
    bool is_own = false;
};

_Unwind_Reason_Code Visit(_Unwind_Context* frame, void* context) {
    auto& search = *static_cast<Search*>(context);
    const uintptr_t address = _Unwind_GetIP(frame);
    search.is_past_caller = search.is_past_caller || address == search.caller;
    if (!search.is_past_caller) {
        return _URC_NO_REASON;
    }
    search.is_own = Code::Get().program.Contains(address);
    return search.is_own || Code::Get().duckdb.Contains(address) ? _URC_END_OF_STACK : _URC_NO_REASON;
}

/** Whether the allocation is made for the module: a function of the standard library or of mshared asks for
    whoever called it. */
bool IsOwn(void* caller) noexcept {
    const auto address = reinterpret_cast<uintptr_t>(caller);
    if (Code::Get().program.Contains(address)) {
        return true;
    }
    if (Code::Get().duckdb.Contains(address)) {
        return false;
    }
    Search search{address};
    _Unwind_Backtrace(&Visit, &search);
    return search.is_own;
}

bool MustFail(void* caller) noexcept {
    if (!is_counting || !allocation_faults::Quietly([caller] { return IsOwn(caller); })) {
        return false;
    }
    ++count;
    return count >= first_failing && count <= last_failing;
}

void Start(uint64_t first, uint64_t last) noexcept {
    count = 0;
    first_failing = first;
    last_failing = last;
    is_counting = true;
}

}  // namespace

namespace allocation_faults {

void FailNth(uint64_t n) noexcept {
    Start(n, n);
}

void FailFrom(uint64_t n) noexcept {
    Start(n, std::numeric_limits<uint64_t>::max());
}

uint64_t Stop() noexcept {
    is_counting = false;
    return count;
}

bool HasFailed() noexcept {
    return first_failing != 0 && count >= first_failing;
}

Pause::Pause() noexcept : was_counting_(std::exchange(is_counting, false)) {}

Pause::~Pause() {
    is_counting = was_counting_;
}

}  // namespace allocation_faults

// NOLINTBEGIN(cppcoreguidelines-no-malloc, bugprone-reserved-identifier): what they stand for
__attribute__((noinline)) void* operator new(std::size_t size) {
    void* memory = MustFail(__builtin_return_address(0)) ? nullptr : std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
__attribute__((noinline)) void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return MustFail(__builtin_return_address(0)) ? nullptr : std::malloc(size);
}
// Not inline: GCC would take the call of free() for a mistake.
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}

// The C functions by which the module allocates, as the linker names them.
extern "C" {
void* __real_duckdb_malloc(std::size_t size);
char* __real_strdup(const char* text);
void* __wrap_duckdb_malloc(std::size_t size) {
    return MustFail(__builtin_return_address(0)) ? nullptr : __real_duckdb_malloc(size);
}
char* __wrap_strdup(const char* text) {
    return MustFail(__builtin_return_address(0)) ? nullptr : __real_strdup(text);
}
}
// NOLINTEND(cppcoreguidelines-no-malloc, bugprone-reserved-identifier)
