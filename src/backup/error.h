#pragma once

#include <stdexcept>

namespace mduckdb {

/** Why a snapshot, its check or its restore failed; UTF-8 text for the user. */
class BackupError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/** `BackupStop::Stop` stopped the work. */
class BackupInterrupted : public BackupError {
  public:
    BackupInterrupted() : BackupError("interrupted") {}
};

}  // namespace mduckdb
