#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "groups.h"
#include "measure.h"
#include "module_under_test.h"
#include "nbx/exception.h"

namespace bench {
namespace {

constexpr const char* kUsage =
    "usage: mduckdb-bench --module FILE --folder FOLDER [--rounds N] [--scale F] [--case NAME] [GROUP...]\n"
    "       mduckdb-bench --list\n"
    "Runs the groups (all without one) and prints a JSON line for each of their cases.\n";

Options ReadOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const auto next = [&] { return i + 1 < argc ? argv[++i] : (Die(kUsage), nullptr); };
        if (argument == "--module") {
            options.module = next();
        } else if (argument == "--folder") {
            options.folder = next();
        } else if (argument == "--rounds") {
            options.rounds = static_cast<unsigned>(std::atoi(next()));
        } else if (argument == "--scale") {
            options.scale = std::atof(next());
        } else if (argument == "--case") {
            options.only_case = next();
        } else if (argument == "--list") {
            options.list = true;
        } else if (argument.rfind("--", 0) == 0) {
            Die(kUsage);
        } else {
            options.groups.push_back(argument);
        }
    }
    if (!options.list && (options.module.empty() || options.folder.empty())) {
        Die(kUsage);
    }
    return options;
}

std::vector<Group> GetAllGroups(const Options& options) {
    std::vector<Group> groups;
    for (const auto get : {GetDeliveryGroups, GetProcedureGroups, GetStatementGroups, GetLifecycleGroups}) {
        for (Group& group : get(options)) {
            groups.push_back(std::move(group));
        }
    }
    return groups;
}

int Run(const Options& options) {
    if (!options.list) {
        LoadModule(options.module);
    }
    for (const Group& group : GetAllGroups(options)) {
        if (options.list) {
            std::printf("%s\n", group.name.c_str());
        } else if (options.groups.empty() || std::find(options.groups.begin(), options.groups.end(),
                                                       group.name) != options.groups.end()) {
            MeasureGroup(group, options);
        }
    }
    return 0;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    const bench::Options options = bench::ReadOptions(argc, argv);
    try {
        return bench::Run(options);
    } catch (const std::exception& error) {
        bench::Die(error.what());
    }
}
