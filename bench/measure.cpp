#include "measure.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <numeric>
#include <random>

extern "C" {
/** The one frame that an instruction counter collects below: callgrind's --toggle-collect names it. */
__attribute__((noinline)) uint64_t mduckdb_bench_measured(const std::function<uint64_t()>* run) {
    const uint64_t units = (*run)();
    asm volatile("" ::: "memory");
    return units;
}
}

namespace bench {
namespace {

volatile uint64_t gSink = 0;

/** Peak of the resident memory in KiB. */
long get_PeakMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) {
            return std::strtol(line.c_str() + 6, nullptr, 10);
        }
    }
    return -1;
}

struct Figures {
    std::vector<double> seconds;
    uint64_t units = 0;
};

void Print(const Group& group, const std::string& name, const Figures& figures) {
    std::printf(R"({"group":"%s","case":"%s","unit":"%s","units":%llu,"peak_kib":%ld,"seconds":[)",
                group.name.c_str(), name.c_str(), group.unit.c_str(),
                static_cast<unsigned long long>(figures.units), get_PeakMemory());
    for (std::size_t i = 0; i < figures.seconds.size(); ++i) {
        std::printf("%s%.9f", i == 0 ? "" : ",", figures.seconds[i]);
    }
    std::printf("]}\n");
    std::fflush(stdout);
}

}  // namespace

void Consume(uint64_t value) noexcept {
    gSink = gSink + value;
}

void Die(const std::string& message) {
    std::fprintf(stderr, "mduckdb-bench: %s\n", message.c_str());
    std::exit(2);
}

void MeasureGroup(const Group& group, const Options& options) {
    if (group.prepare) {
        group.prepare();
    }
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < group.cases.size(); ++i) {
        if (options.only_case.empty() || options.only_case == group.cases[i].name) {
            order.push_back(i);
        }
    }
    std::map<std::size_t, Figures> figures;
    std::minstd_rand random(20260101);
    for (unsigned round = 0; round < options.rounds; ++round) {
        std::shuffle(order.begin(), order.end(), random);
        for (const std::size_t i : order) {
            const auto start = std::chrono::steady_clock::now();
            figures[i].units = mduckdb_bench_measured(&group.cases[i].run);
            const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
            figures[i].seconds.push_back(elapsed.count());
            if (group.cases[i].clean_up) {
                group.cases[i].clean_up();
            }
        }
    }
    for (const auto& [index, result] : figures) {
        Print(group, group.cases[index].name, result);
    }
}

}  // namespace bench
