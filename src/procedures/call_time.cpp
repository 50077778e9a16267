#include "procedures/call_time.h"

#include <stdexcept>

namespace mduckdb {
namespace {

std::string DescribeDuration(std::chrono::milliseconds duration) {
    constexpr int kSecond = 1000;
    if (duration.count() % kSecond != 0) {
        return std::to_string(duration.count()) + " milliseconds";
    }
    const auto seconds = duration.count() / kSecond;
    return std::to_string(seconds) + (seconds == 1 ? " second" : " seconds");
}

}  // namespace

std::string CallTime::DescribeEnd() const {
    return std::string(procedure_name_) + " exceeded its time limit of " + DescribeDuration(limit_) + ".";
}

void CallTime::ThrowEnd() const {
    throw std::runtime_error(DescribeEnd());
}

}  // namespace mduckdb
