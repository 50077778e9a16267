#pragma once

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

/** The process's largest resident size since the last reset. A sanitizer's memory counts too. */
class PeakMemory {
  public:
    /** From now on. */
    PeakMemory() { std::ofstream("/proc/self/clear_refs") << "5"; }

    std::int64_t get_Bytes() const {
        std::ifstream status("/proc/self/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("VmHWM:", 0) == 0) {
                return std::strtoll(line.c_str() + 6, nullptr, 10) * 1024;
            }
        }
        return -1;
    }
};

/** How much the tests of bounded memory read: MDUCKDB_TEST_BOUND=full means 50 million rows under 256
    MB. */
struct MemoryBound {
    bool is_full = std::getenv("MDUCKDB_TEST_BOUND") != nullptr;
    std::int64_t rows = is_full ? 50'000'000 : 12'000'000;
    std::int64_t limit_mb = is_full ? 256 : 40;
    /** The largest memory that the process may use. */
    std::int64_t peak_bytes = (limit_mb + 120) * 1'000'000;
};
