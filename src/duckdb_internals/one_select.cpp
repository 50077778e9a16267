#include "duckdb_internals/one_select.h"

#include <algorithm>
#include <array>
#include <duckdb/common/string_util.hpp>
#include <duckdb/execution/physical_plan_generator.hpp>
#include <duckdb/parser/parsed_expression_iterator.hpp>
#include <duckdb/parser/query_node/select_node.hpp>
#include <duckdb/parser/tableref.hpp>
#include <string_view>

#include "duckdb_internals/out_of_memory.h"
#include "duckdb_internals/version_differences.h"
#include "duckdb_internals/version_statements.h"

namespace mduckdb {
namespace {

using duckdb::ParsedExpression;
using duckdb::ParsedExpressionIterator;
using duckdb::QueryNode;
using duckdb::SelectStatement;

/** These functions change the engine, write files, or (the last one) run a text that only they see. */
constexpr std::array<std::string_view, 15> kRefusedFunctions{
    "disable_peg_parser",
    "enable_peg_parser",
    "checkpoint",
    "create_external_resource",
    "deregister_external_resource",
    "destroy_external_resource",
    "disable_logging",
    "disable_profiling",
    "enable_logging",
    "enable_profiling",
    "force_checkpoint",
    "register_external_resource",
    "register_external_resource_type",
    "truncate_duckdb_logs",
    "json_execute_serialized_sql",
};

[[noreturn]] void RefuseStatement() {
    throw RefusedSelect("");
}

void RequireAllowedFunction(const std::string& name) {
    if (IsRefusedFunction(name)) {
        throw RefusedSelect(duckdb::StringUtil::Lower(name));
    }
}

/** Visits everything that a parsed query contains. */
class ParsedQueryCheck {
  public:
    static void Check(QueryNode& node) {
        ParsedExpressionIterator::EnumerateQueryNodeChildren(
            node, [](duckdb::unique_ptr<ParsedExpression>& child) { Check(*child); }, CheckTable);
    }

  private:
    static void Check(ParsedExpression& expression) {
        if (expression.GetExpressionClass() == duckdb::ExpressionClass::FUNCTION) {
            RequireAllowedFunction(version::NameOf(expression.Cast<duckdb::FunctionExpression>()));
        }
        if (expression.GetExpressionClass() == duckdb::ExpressionClass::SUBQUERY) {
            Check(*version::SelectOf(expression.Cast<duckdb::SubqueryExpression>()).node);
        }
        ParsedExpressionIterator::EnumerateChildren(expression,
                                                    [](ParsedExpression& child) { Check(child); });
    }

    /** SHOW, DESCRIBE, SUMMARIZE and PIVOT are SELECTs in one version and statements in another. */
    static void CheckTable(duckdb::TableRef& table) {
        if (table.type == duckdb::TableReferenceType::SHOW_REF ||
            table.type == duckdb::TableReferenceType::PIVOT) {
            RefuseStatement();
        }
    }
};

/** Throws DuckDB's error when the text cannot be parsed. */
duckdb::unique_ptr<SelectStatement> ParseOneSelect(duckdb::ClientContext& context, const std::string& text) {
    // Use the bare parser: the context's function would run what a PRAGMA expands to.
    duckdb::Parser parser = version::MakeParser(context);
    parser.ParseQuery(text);
    if (parser.statements.size() != 1 ||
        parser.statements[0]->type != duckdb::StatementType::SELECT_STATEMENT) {
        RefuseStatement();
    }
    return duckdb::unique_ptr_cast<duckdb::SQLStatement, SelectStatement>(std::move(parser.statements[0]));
}

/** Replaces the limit of the parsed text. The text itself is not changed, since DuckDB's errors quote from
    it. */
void PutLimit(duckdb::ClientContext& context, SelectStatement& statement, const SelectText& text) {
    auto& modifiers = statement.node->modifiers;
    if (modifiers.size() != 1 || modifiers[0]->type != duckdb::ResultModifierType::LIMIT_MODIFIER) {
        RefuseStatement();
    }
    if (text.limit.empty()) {
        modifiers.clear();
        return;
    }
    auto limit = version::ParseExpression(context, text.limit);
    limit->SetQueryLocation(text.whole.size() - 1);
    modifiers[0]->Cast<duckdb::LimitModifier>().limit = std::move(limit);
}

duckdb::unique_ptr<SelectStatement> ParseText(duckdb::ClientContext& context, const SelectText& text) {
    auto statement = ParseOneSelect(context, text.whole);
    try {
        // A base that closes the parenthesis around it is not a SELECT by itself.
        ParsedQueryCheck::Check(*ParseOneSelect(context, text.base)->node);
    } catch (const duckdb::Exception&) {
        ThrowIfOutOfMemory();
        RefuseStatement();
    }
    PutLimit(context, *statement, text);
    return statement;
}

duckdb::unique_ptr<duckdb::QueryResult> Fail(const duckdb::ErrorData& error) {
    return version::MakeFailedResult(error);
}

/** The text that selects only the rows: the columns by their names, and the limit. */
std::string RowsText(const SelectText& text, const std::vector<std::string>& names, idx_t& base_begin) {
    std::string rows = "SELECT ";
    for (const std::string& name : names) {
        rows += rows.size() > 7 ? ", " : "";
        rows += '"' + duckdb::StringUtil::Replace(name, "\"", "\"\"") + '"';
    }
    rows += " FROM (";
    base_begin = rows.size();
    rows += text.whole.substr(text.base_begin, text.whole.rfind(" LIMIT ") - text.base_begin);
    return text.limit.empty() ? rows : rows + " LIMIT " + text.limit;
}

/** An error from running, which quotes the text that selects only the rows. */
duckdb::ErrorData QuoteRowsText(const duckdb::ErrorData& error, const SelectText& text,
                                const std::vector<std::string>& names) {
    auto details = error.ExtraInfo();
    const auto entry = details.find("position");
    if (entry == details.end()) {
        return error;
    }
    const idx_t position = std::stoull(entry->second);
    if (position < text.base_begin) {
        return error;
    }
    idx_t base_begin = 0;
    const std::string rows = RowsText(text, names, base_begin);
    entry->second = std::to_string(position - text.base_begin + base_begin);
    duckdb::ErrorData moved(
        duckdb::StringUtil::ExceptionToJSONMap(error.Type(), error.RawMessage(), details));
    moved.AddErrorLocation(rows);
    return moved;
}

duckdb::unique_ptr<duckdb::QueryResult> Execute(duckdb::ClientContext& context,
                                                duckdb::PreparedStatement& prepared,
                                                const std::atomic<bool>& is_cut) {
    auto pending = version::BeginPlan(context, prepared);
    if (is_cut.load()) {
        context.Interrupt();
    }
    return pending->HasError() ? Fail(pending->GetErrorObject()) : version::Complete(std::move(pending));
}

duckdb::unique_ptr<duckdb::QueryResult> Run(duckdb::ClientContext& context, const SelectText& text) {
    auto statement = ParseText(context, text);
    // Without a text, DuckDB does not quote from it; which text an error quotes depends on where it fails.
    statement->query.clear();
    const auto prepared = context.Prepare(std::move(statement));
    if (prepared->HasError()) {
        duckdb::ErrorData error = prepared->GetErrorObject();
        error.AddErrorLocation(text.whole);
        return Fail(error);
    }
    duckdb::PreparedStatementData& plan = version::PlanOf(context, *prepared);
    version::RequireNoParameters(*prepared);
    const auto functions = version::FindTableFunctions(context, plan);
    if (!plan.properties.IsReadOnly() || !functions) {
        RefuseStatement();
    }
    std::for_each(functions->begin(), functions->end(), RequireAllowedFunction);
    // For a list of files DuckDB would look at the files again and run a second plan, which nobody has
    // checked.
    plan.properties.always_require_rebind = !plan.physical_plan;
    auto result = Execute(context, *prepared, text.is_cut);
    return result->HasError()
               ? Fail(QuoteRowsText(result->GetErrorObject(), text, version::ColumnNames(plan)))
               : std::move(result);
}

}  // namespace

bool IsRefusedFunction(const std::string& name) {
    return std::any_of(kRefusedFunctions.begin(), kRefusedFunctions.end(), [&](std::string_view refused) {
        return duckdb::StringUtil::CIEquals(name, std::string(refused));
    });
}

duckdb_result RunOneSelect(duckdb_connection connection, const SelectText& text) {
    duckdb::ClientContext& context = *reinterpret_cast<duckdb::Connection*>(connection)->context;
    duckdb_result result{};
    duckdb::unique_ptr<duckdb::QueryResult> rows;
    try {
        rows = Run(context, text);
    } catch (const RefusedSelect&) {
        throw;
    } catch (const std::exception& thrown) {
        ThrowIfOutOfMemory();
        duckdb::ErrorData error(thrown);
        error.AddErrorLocation(text.whole);
        rows = Fail(error);
    }
    duckdb::DuckDBTranslateResult(std::move(rows), &result);
    return result;
}

}  // namespace mduckdb
