#include "measure.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <numeric>
#include <random>
#include <string_view>

extern "C" {
/** The frame below which an instruction counter collects: callgrind's --toggle-collect names it. */
// NOLINTNEXTLINE(readability-identifier-naming): a name of C
__attribute__((noinline)) uint64_t mduckdb_bench_measured(const std::function<uint64_t()>* run) {
    const uint64_t units = (*run)();
    asm volatile("" ::: "memory");
    return units;
}
}

namespace bench {
namespace {

/** One in each thread: threads that write to the same place would wait for each other's caches. */
thread_local volatile uint64_t gSink = 0;

/** A figure of /proc/self/status in KiB. */
long get_Memory(std::string_view name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name)) {
            return std::strtol(line.c_str() + name.size(), nullptr, 10);
        }
    }
    return -1;
}

struct Figures {
    std::vector<double> seconds;
    uint64_t units = 0;
    long start_memory = 0;
    long peak_memory = 0;
};

void Print(const Group& group, const std::string& name, const Figures& figures) {
    std::printf(
        R"({"group":"%s","case":"%s","unit":"%s","units":%llu,"start_kib":%ld,"peak_kib":%ld,"seconds":[)",
        group.name.c_str(), name.c_str(), group.unit.c_str(), static_cast<unsigned long long>(figures.units),
        figures.start_memory, figures.peak_memory);
    for (std::size_t i = 0; i < figures.seconds.size(); ++i) {
        std::printf("%s%.9f", i == 0 ? "" : ",", figures.seconds[i]);
    }
    std::printf("]}\n");
    std::fflush(stdout);
}

void MeasureOnce(const Case& measured, Figures& figures) {
    if (figures.seconds.empty()) {
        figures.start_memory = get_Memory("VmRSS:");
    }
    const auto start = std::chrono::steady_clock::now();
    figures.units = mduckdb_bench_measured(&measured.run);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    figures.seconds.push_back(elapsed.count());
    figures.peak_memory = get_Memory("VmHWM:");
    if (measured.clean_up) {
        measured.clean_up();
    }
}

/** Whether the minimum was nearly reached twice more. */
bool IsSettled(std::vector<double> seconds) {
    constexpr std::size_t kTimes = 3;
    constexpr double kNearly = 1.02;
    if (seconds.size() < kTimes) {
        return false;
    }
    std::partial_sort(seconds.begin(), seconds.begin() + kTimes, seconds.end());
    return seconds[kTimes - 1] <= seconds[0] * kNearly;
}

}  // namespace

uint64_t Scaled(uint64_t full, const Options& options) noexcept {
    return std::max<uint64_t>(1, static_cast<uint64_t>(static_cast<double>(full) * options.scale));
}

void Consume(uint64_t value) noexcept {
    gSink = gSink + value;
}

void Die(const std::string& message) {
    std::fprintf(stderr, "mduckdb-bench: %s\n", message.c_str());
    std::exit(2);
}

void MeasureGroup(const Group& group, const Options& options) {
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < group.cases.size(); ++i) {
        if (options.only_case.empty() || options.only_case == group.cases[i].name) {
            order.insert(order.end(), group.cases[i].runs_in_round, i);
        }
    }
    if (order.empty()) {
        Die("no case '" + options.only_case + "' of " + group.name);
    }
    std::map<std::size_t, Figures> figures;
    std::minstd_rand random(20260101);
    const auto is_settled = [&] {
        return std::all_of(figures.begin(), figures.end(),
                           [](const auto& figure) { return IsSettled(figure.second.seconds); });
    };
    for (unsigned round = 0; round < options.rounds || (round < options.most_rounds && !is_settled());
         ++round) {
        std::shuffle(order.begin(), order.end(), random);
        for (const std::size_t i : order) {
            MeasureOnce(group.cases[i], figures[i]);
        }
    }
    for (const auto& [index, result] : figures) {
        Print(group, group.cases[index].name, result);
    }
}

}  // namespace bench
