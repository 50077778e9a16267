#include "duckdb_internals/statement_pieces.h"

#include <duckdb/main/capi/capi_internal.hpp>
#include <duckdb/main/connection.hpp>
#include <duckdb/parser/parsed_data/transaction_info.hpp>
#include <duckdb/parser/statement/transaction_statement.hpp>

#include "duckdb_internals/version_statements.h"

namespace mduckdb {
namespace {

using Statements = duckdb::vector<duckdb::unique_ptr<duckdb::SQLStatement>>;

/** Whether DuckDB wrote the statement itself, so that it is not part of the text. */
bool IsMade(const Statements& statements, idx_t index) {
    return statements[index] && version::TextLength(*statements[index]) == 0;
}

bool IsMadeTransaction(const Statements& statements, idx_t index, duckdb::TransactionType type) {
    return IsMade(statements, index) &&
           statements[index]->type == duckdb::StatementType::TRANSACTION_STATEMENT &&
           statements[index]->Cast<duckdb::TransactionStatement>().info->type == type;
}

}  // namespace

idx_t CountPieces(duckdb_extracted_statements statements, idx_t first) {
    const Statements& all = reinterpret_cast<duckdb::ExtractStatementsWrapper*>(statements)->statements;
    if (IsMadeTransaction(all, first, duckdb::TransactionType::BEGIN_TRANSACTION)) {
        for (idx_t last = first + 1; last < all.size(); ++last) {
            if (IsMadeTransaction(all, last, duckdb::TransactionType::COMMIT)) {
                return last - first + 1;
            }
        }
        return 1;
    }
    idx_t last = first;
    while (last + 1 < all.size() && IsMade(all, last) &&
           all[last]->type == duckdb::StatementType::CREATE_STATEMENT) {
        ++last;
    }
    return last - first + 1;
}

bool IsInTransaction(duckdb_connection connection) noexcept {
    return !reinterpret_cast<duckdb::Connection*>(connection)->IsAutoCommit();
}

}  // namespace mduckdb
