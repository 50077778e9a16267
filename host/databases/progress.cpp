#include "databases/progress.h"

#include <fmt/format.h>

#include <algorithm>

namespace mduckdb_host {

nbx::mrsql::I_DuckDBProgress* TrackProgress(const DatabasePtr& database) {
    auto* const progress = static_cast<nbx::mrsql::I_DuckDBProgress*>(
        database->QueryInterface(nbx::mrsql::kDuckDBProgressInterfaceId));
    if (progress != nullptr) {
        progress->put_IsTracked(true);
    }
    return progress;
}

std::string DescribeProgress(const nbx::mrsql::DuckDBProgress& progress) {
    constexpr int kWidth = 20;
    if (progress.share < 0) {
        return {};
    }
    const double share = std::min(progress.share, 1.0);
    std::string bar;
    for (int i = 0; i < kWidth; ++i) {
        bar += i < static_cast<int>(share * kWidth) ? "█" : "░";
    }
    return fmt::format("{} {}%", bar, static_cast<int>(share * 100));
}

}  // namespace mduckdb_host
