#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench {

/** One way to do a workload. `run` does it once and returns the number of units (cells, rows, calls); its
    group makes the preparations. */
struct Case {
    std::string name;
    std::function<uint64_t()> run;
    /** Runs after every measured run, outside the clock. */
    std::function<void()> clean_up;
    /** Repetitions in a round: more for a short run, so that its minimum is stable. */
    unsigned runs_in_round = 1;
};

/** Cases that are compared with each other: measured in interleaved rounds, in a new order each round. */
struct Group {
    std::string name;
    /** The name of a unit, for the table. */
    std::string unit;
    std::function<void()> prepare;
    std::vector<Case> cases;
    /** Terminates the program unless the cases do the same work, judged by the values that they create and
        the rows that they insert. Called after `prepare`; empty when there is nothing to compare. */
    std::function<void()> check = nullptr;
    /** The built module that the group measures. */
    std::string module = "mduckdb";
    /** Runs only when it is named. */
    bool is_special = false;
};

struct Options {
    unsigned rounds = 5;
    /** When the rounds are over, a group has further ones, up to this many in all, until each case has come
        within 2% of its minimum three times: one that was seen less often may be of a machine at its best,
       which the cases beside it did not have. */
    unsigned most_rounds = 0;
    /** Fraction of the full size of the workloads. */
    double scale = 1.0;
    std::vector<std::string> groups;
    std::string only_case;
    /** The folder of the built modules. */
    std::string modules;
    /** For the data, which is created on first use and kept. */
    std::string folder;
};

/** `full` at the options' scale, at least 1. */
uint64_t Scaled(uint64_t full, const Options& options) noexcept;

/** Runs the group's cases and prints one JSON line for each: the seconds of every round, the units, the
    process's resident memory before its first run and the peak after its last. */
void MeasureGroup(const Group& group, const Options& options);

/** Keeps a result alive for the optimiser. */
void Consume(uint64_t value) noexcept;

[[noreturn]] void Die(const std::string& message);

}  // namespace bench
