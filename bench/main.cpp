#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "groups.h"
#include "measure.h"
#include "module_under_test.h"
#include "workloads.h"

namespace bench {
namespace {

constexpr const char* kUsage =
    "usage: mduckdb-bench --modules FOLDER --folder FOLDER [--rounds N] [--most-rounds N] [--scale F] "
    "[--case NAME]\n"
    "                     GROUP...\n"
    "           measures the groups and prints a JSON line for each of their cases\n"
    "       mduckdb-bench --check --modules FOLDER --folder FOLDER [--scale F] GROUP...\n"
    "           looks whether the cases of each group do the same work\n"
    "       mduckdb-bench --list\n"
    "       mduckdb-bench --sql WORKLOAD --folder FOLDER [--scale F]\n"
    "           makes the workload's data and prints its database and its query\n"
    "The groups of one call must be of one module.\n";

struct Arguments {
    Options options;
    /** "", "check", "list" or the name of the workload whose query to print. */
    std::string mode;
    std::string workload;
};

Arguments ReadArguments(int argc, char** argv) {
    Arguments arguments;
    Options& options = arguments.options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const auto next = [&] { return i + 1 < argc ? argv[++i] : (Die(kUsage), nullptr); };
        if (argument == "--modules") {
            options.modules = next();
        } else if (argument == "--folder") {
            options.folder = next();
        } else if (argument == "--rounds") {
            options.rounds = static_cast<unsigned>(std::atoi(next()));
        } else if (argument == "--most-rounds") {
            options.most_rounds = static_cast<unsigned>(std::atoi(next()));
        } else if (argument == "--scale") {
            options.scale = std::atof(next());
        } else if (argument == "--case") {
            options.only_case = next();
        } else if (argument == "--check" || argument == "--list") {
            arguments.mode = argument.substr(2);
        } else if (argument == "--sql") {
            arguments.mode = "sql";
            arguments.workload = next();
        } else if (argument.rfind("--", 0) == 0) {
            Die(kUsage);
        } else {
            options.groups.push_back(argument);
        }
    }
    return arguments;
}

std::vector<Group> GetAllGroups(const Options& options) {
    std::vector<Group> groups;
    for (const auto get :
         {GetDeliveryGroups, GetRandomReadGroups, GetProcedureGroups, GetSmallCallGroups, GetBindGroups,
          GetStatementGroups, GetMultiRowGroups, GetAppendGroups, GetArrowGroups, GetStreamingGroups,
          GetBesideGroups, GetManyGroups, GetLifecycleGroups, GetSizeGroups}) {
        for (Group& group : get(options)) {
            groups.push_back(std::move(group));
        }
    }
    return groups;
}

void ListGroups(const std::vector<Group>& groups) {
    for (const Group& group : groups) {
        if (!group.is_special) {
            std::printf("%s\n", group.name.c_str());
        }
    }
}

void PrintQuery(const std::string& name, const Options& options) {
    const Workload workload = GetWorkload(name, options);
    std::printf("%s\n%s\n", workload.database.c_str(), workload.sql.c_str());
}

void RunGroups(const std::vector<Group>& groups, const Arguments& arguments) {
    const Options& options = arguments.options;
    if (options.groups.empty() || options.modules.empty() || options.folder.empty()) {
        Die(kUsage);
    }
    for (const std::string& name : options.groups) {
        const auto group =
            std::find_if(groups.begin(), groups.end(), [&](const Group& g) { return g.name == name; });
        if (group == groups.end()) {
            Die("no group " + name);
        }
        LoadModule(options.modules + "/lib" + group->module + ".so");
        if (group->prepare) {
            group->prepare();
        }
        if (arguments.mode.empty()) {
            MeasureGroup(*group, options);
        } else if (group->check) {
            group->check();
        }
    }
}

void Run(const Arguments& arguments) {
    const Options& options = arguments.options;
    const std::vector<Group> groups = GetAllGroups(options);
    if (arguments.mode == "list") {
        ListGroups(groups);
    } else if (arguments.mode == "sql") {
        PrintQuery(arguments.workload, options);
    } else {
        RunGroups(groups, arguments);
    }
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    const bench::Arguments arguments = bench::ReadArguments(argc, argv);
    try {
        bench::Run(arguments);
        return 0;
    } catch (const std::exception& error) {
        bench::Die(error.what());
    }
}
