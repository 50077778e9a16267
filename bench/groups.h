#pragma once

#include <vector>

#include "measure.h"

namespace bench {

/** The options must outlive the groups. */

/** Cells of W1 to W4 through the cursors. */
std::vector<Group> GetDeliveryGroups(const Options& options);
/** Random cells of a client cursor. */
std::vector<Group> GetRandomReadGroups(const Options& options);
/** Cells of W1 to W4 through fetch_parquet and fetch_duckdb, and random rows of a tall file. */
std::vector<Group> GetProcedureGroups(const Options& options);
/** Calls of procedures on a small file, one after another and from several threads. */
std::vector<Group> GetSmallCallGroups(const Options& options);
/** Binds of the types of W1 to W4. */
std::vector<Group> GetBindGroups(const Options& options);
/** Repeated execution, scripts. */
std::vector<Group> GetStatementGroups(const Options& options);
/** Rows of W1 to W4 as parameters. */
std::vector<Group> GetMultiRowGroups(const Options& options);
/** Rows of W1 and W2 through appenders. */
std::vector<Group> GetAppendGroups(const Options& options);
/** The results of W1 to W4 as Arrow streams. */
std::vector<Group> GetArrowGroups(const Options& options);
/** Streaming cursors: the first row, two readers, memory. */
std::vector<Group> GetStreamingGroups(const Options& options);
/** Point queries beside a long query, questions for a query's progress. */
std::vector<Group> GetBesideGroups(const Options& options);
/** What should cost the same however much of it there is: children, statements of a script, the values that
    many threads release. */
std::vector<Group> GetManyGroups(const Options& options);
/** Opening and closing, backup and restore, the latency of an interrupt. */
std::vector<Group> GetLifecycleGroups(const Options& options);
/** The server cursor over results of one row to a hundred million, and the cases that measure memory. */
std::vector<Group> GetSizeGroups(const Options& options);

}  // namespace bench
