#include "backup/comparison.h"

#include <algorithm>
#include <iterator>
#include <set>

namespace mduckdb {

namespace {

using Facts = std::vector<CatalogFact>;
using ObjectNames = std::set<std::pair<std::string, std::string>>;

bool ComesBefore(const CatalogFact& a, const CatalogFact& b) {
    return std::tie(a.kind, a.name, a.aspect, a.value) < std::tie(b.kind, b.name, b.aspect, b.value);
}

Facts OnlyInFirst(const Facts& first, const Facts& second) {
    Facts result;
    std::set_difference(first.begin(), first.end(), second.begin(), second.end(), std::back_inserter(result),
                        ComesBefore);
    return result;
}

/** The objects that a side lacks or has more often: their aspects are not reported one by one. */
ObjectNames WholeObjects(const Facts& facts) {
    ObjectNames names;
    for (const CatalogFact& fact : facts) {
        if (fact.aspect.empty()) {
            names.emplace(fact.kind, fact.name);
        }
    }
    return names;
}

std::string Shown(const std::string& value) {
    return value.empty() ? "nothing" : "'" + value + "'";
}

/** Lines for what only one side has. `elsewhere` is what only the other side has. */
void AddOneSided(const Facts& facts, const Facts& elsewhere, const char* here, const char* there,
                 bool is_first_side, std::vector<std::string>& lines) {
    const ObjectNames whole = WholeObjects(facts);
    const ObjectNames whole_elsewhere = WholeObjects(elsewhere);
    for (const CatalogFact& fact : facts) {
        const std::pair<std::string, std::string> object{fact.kind, fact.name};
        if (fact.aspect.empty()) {
            lines.push_back(fact.kind + " " + fact.name + ": in the " + here + ", but not in the " + there);
        } else if (whole.count(object) == 0 && whole_elsewhere.count(object) == 0) {
            const auto other = std::find_if(elsewhere.begin(), elsewhere.end(), [&](const CatalogFact& each) {
                return each.Key() == fact.Key();
            });
            // A pair of differing values is reported once, from the first side.
            if (is_first_side || other == elsewhere.end()) {
                lines.push_back(fact.kind + " " + fact.name + ": " + fact.aspect + " is " +
                                Shown(fact.value) + " in the " + here + ", " +
                                Shown(other == elsewhere.end() ? "" : other->value) + " in the " + there);
            }
        }
    }
}

void ForgetCounters(Facts& facts) {
    std::erase_if(facts, [](const CatalogFact& fact) {
        return fact.kind == "sequence" && fact.aspect == "next value";
    });
}

std::string Described(const TableFacts& table) {
    return std::to_string(table.rows) + (table.rows == 1 ? " row" : " rows");
}

}  // namespace

std::vector<std::string> CompareCatalogs(const Facts& original, const Facts& copy, const ComparedNames& names,
                                         bool is_original_live) {
    Facts missing = OnlyInFirst(original, copy);
    Facts added = OnlyInFirst(copy, original);
    if (is_original_live) {
        ForgetCounters(missing);
        ForgetCounters(added);
    }
    std::vector<std::string> lines;
    AddOneSided(missing, added, names.original, names.copy, true, lines);
    AddOneSided(added, missing, names.copy, names.original, false, lines);
    return lines;
}

std::vector<std::string> CompareTables(const std::vector<TableFacts>& original,
                                       const std::vector<TableFacts>& copy, const ComparedNames& names) {
    std::vector<std::string> lines;
    for (const TableFacts& table : original) {
        const auto other =
            std::lower_bound(copy.begin(), copy.end(), table,
                             [](const TableFacts& a, const TableFacts& b) { return a.name < b.name; });
        if (other == copy.end() || other->name != table.name) {
            // The catalogs' comparison reports it.
            continue;
        }
        if (other->rows != table.rows) {
            lines.push_back("table " + table.name + ": " + Described(table) + " in the " + names.original +
                            ", " + Described(*other) + " in the " + names.copy);
        } else if (other->hash != table.hash) {
            lines.push_back("table " + table.name + ": the rows differ, " + Described(table) + " in both");
        }
    }
    return lines;
}

std::vector<std::string> CompareFacts(const DatabaseFacts& original, const DatabaseFacts& copy,
                                      const ComparedNames& names) {
    std::vector<std::string> lines = CompareCatalogs(original.catalog, copy.catalog, names, false);
    const std::vector<std::string> rows = CompareTables(original.tables, copy.tables, names);
    lines.insert(lines.end(), rows.begin(), rows.end());
    return lines;
}

}  // namespace mduckdb
