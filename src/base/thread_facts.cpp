#include "base/thread_facts.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>

#include "base/descriptor.h"

namespace mduckdb {
namespace {

/** The beginning of a file in the folder of a thread of this process; empty on failure. */
template <std::size_t size>
std::string_view ReadFact(pid_t thread, const char* name, std::array<char, size>& buffer) noexcept {
    std::array<char, 64> path{};
    snprintf(path.data(), path.size(), "/proc/self/task/%d/%s", static_cast<int>(thread), name);
    const Descriptor file(open(path.data(), O_RDONLY | O_CLOEXEC));
    const ssize_t length = file.get() < 0 ? -1 : pread(file.get(), buffer.data(), buffer.size() - 1, 0);
    const std::size_t end = length < 0 ? 0 : static_cast<std::size_t>(length);
    buffer[end] = '\0';
    return {buffer.data(), end};
}

/** Takes the number at the beginning of the text, and the blanks before it; 0x begins a hexadecimal one. The
    table of `std::from_chars` for other bases than 10 would keep a library from being unloaded. */
std::optional<uint64_t> TakeNumber(std::string_view& text) noexcept {
    constexpr std::string_view kDigits = "0123456789abcdef";
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    const bool is_hexadecimal = text.starts_with("0x");
    text.remove_prefix(is_hexadecimal ? 2 : 0);
    const std::string_view digits = kDigits.substr(0, is_hexadecimal ? 16 : 10);
    const std::string_view number = text.substr(0, text.find_first_not_of(digits));
    if (number.empty()) {
        return std::nullopt;
    }
    uint64_t value = 0;
    for (const char digit : number) {
        value = value * digits.size() + digits.find(digit);
    }
    text.remove_prefix(number.size());
    return value;
}

}  // namespace

std::optional<SystemCall> ReadSystemCall(pid_t thread) noexcept {
    std::array<char, 256> buffer{};
    // The call, its arguments, and the stack pointer; "running" for a thread that does not wait.
    std::string_view text = ReadFact(thread, "syscall", buffer);
    const std::optional<uint64_t> number = TakeNumber(text);
    if (!number) {
        return std::nullopt;
    }
    SystemCall call{*number, {}, 0};
    for (uint64_t& argument : call.arguments) {
        argument = TakeNumber(text).value_or(0);
    }
    const std::optional<uint64_t> stack = TakeNumber(text);
    if (!stack) {
        return std::nullopt;
    }
    call.stack = *stack;
    return call;
}

std::optional<uint64_t> ReadSwitches(pid_t thread) noexcept {
    std::array<char, 8192> buffer{};
    const std::string_view status = ReadFact(thread, "status", buffer);
    uint64_t sum = 0;
    for (const std::string_view name : {"\nvoluntary_ctxt_switches:", "\nnonvoluntary_ctxt_switches:"}) {
        const std::size_t place = status.find(name);
        if (place == status.npos) {
            return std::nullopt;
        }
        std::string_view rest = status.substr(place + name.size());
        const std::optional<uint64_t> count = TakeNumber(rest);
        if (!count) {
            return std::nullopt;
        }
        sum += *count;
    }
    return sum;
}

std::optional<uint64_t> ReadRobustList(pid_t thread) noexcept {
    uint64_t address = 0;
    std::size_t size = 0;
    if (syscall(SYS_get_robust_list, thread, &address, &size) != 0 || address == 0) {
        return std::nullopt;
    }
    return address;
}

std::vector<pid_t> ListThreads() noexcept {
    try {
        std::vector<pid_t> threads;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
            const std::string name = entry.path().filename();
            std::string_view text = name;
            threads.push_back(static_cast<pid_t>(TakeNumber(text).value_or(0)));
        }
        return threads;
    } catch (const std::exception&) {
        return {};
    }
}

bool CopyMemory(uint64_t address, void* to, std::size_t size) noexcept {
    const Descriptor memory(open("/proc/self/mem", O_RDONLY | O_CLOEXEC));
    return memory.get() >= 0 &&
           pread(memory.get(), to, size, static_cast<off_t>(address)) == static_cast<ssize_t>(size);
}

}  // namespace mduckdb
