#include "engines/session.h"

namespace mduckdb {

Session::~Session() {
    if (is_kept_) {
        return;
    }
    Disconnect();
    if (is_owned_) {
        GiveUpEngine(*engine_);
    }
}

bool Session::Join(FileTurn& turn) {
    while (Own(turn.JoinWriter()), is_owned_) {
        // A working engine runs nothing but the statement that every new connection runs; only a failure
        // leads to a closer look.
        Connect();
        if (state_ == State::connected || IsEngineAlive(engine_->handle)) {
            return true;
        }
        Disconnect();
        turn.Retire(*engine_);
    }
    return false;
}

bool Session::Connect() {
    if (state_ != State::unconnected) {
        return state_ != State::refused;
    }
    if (duckdb_connect(engine_->handle, connection_.get()) != DuckDBSuccess) {
        *connection_ = nullptr;
        state_ = State::refused;
        return false;
    }
    // A connection on which this fails reports its errors as plain text; nothing else depends on it.
    const bool is_set_up = duckdb_query(*connection_, "SET errors_as_json = true;", nullptr) == DuckDBSuccess;
    state_ = is_set_up ? State::connected : State::mute;
    return true;
}

void Session::Disconnect() noexcept {
    if (*connection_ != nullptr) {
        duckdb_disconnect(connection_.get());
        *connection_ = nullptr;
    }
    state_ = State::unconnected;
}

}  // namespace mduckdb
