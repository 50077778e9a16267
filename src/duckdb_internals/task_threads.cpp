#include "duckdb_internals/task_threads.h"

#include <duckdb/common/http_util.hpp>
#include <duckdb/main/client_context.hpp>
#include <duckdb/main/client_context_state.hpp>
#include <duckdb/main/config.hpp>
#include <duckdb/main/connection.hpp>
#include <utility>

namespace mduckdb {
namespace {

class ReportedTasks : public duckdb::ClientContextState {
  public:
    explicit ReportedTasks(std::shared_ptr<ServerWaits> waits) : waits_(std::move(waits)) {}

    void OnTaskStart(duckdb::ClientContext& /*context*/) override { waits_->Enter(); }
    void OnTaskStop(duckdb::ClientContext& /*context*/) override { waits_->Leave(); }

  private:
    const std::shared_ptr<ServerWaits> waits_;
};

duckdb::ClientContext& ContextOf(duckdb_connection connection) {
    return *reinterpret_cast<duckdb::Connection*>(connection)->context;
}

}  // namespace

void ReportTaskThreads(duckdb_connection connection, std::shared_ptr<ServerWaits> waits) {
    ContextOf(connection)
        .registered_state->Insert("mduckdb_threads",
                                  duckdb::make_shared_ptr<ReportedTasks>(std::move(waits)));
}

bool HasHttpClient(duckdb_connection connection) {
    return duckdb::DBConfig::GetConfig(ContextOf(connection)).GetHTTPUtil().GetName() != "Built-In";
}

}  // namespace mduckdb
