#pragma once

#include <duckdb.h>

#include <memory>

#include "base/engine_lock.h"
#include "engines/engine_files.h"

namespace mduckdb {

/** A connection, shared so that it stays alive during a call. The holder never disconnects. */
using SharedConnection = std::shared_ptr<duckdb_connection>;

/** A use of an engine and a connection that a database is about to own. Until the database does, this closes
    the connection and releases the use, so that a failure leaves nothing behind. */
class Session : nbx::noncopyable {
  public:
    Session() : connection_(std::make_shared<duckdb_connection>()) {}
    ~Session();

    /** Takes the writing engine of the file, which its users in this process share, and connects to it; false
        when there is none, or only one that an internal error has ended, which is retired. */
    bool Join(FileTurn& turn);
    /** Takes over a use of an engine, or null; the use is released unless the session is kept. */
    void Own(SharedEngine engine) {
        engine_ = std::move(engine);
        is_owned_ = engine_ != nullptr;
    }
    /** Uses an engine that others keep open for as long as this object lives. */
    void Borrow(SharedEngine engine) { engine_ = std::move(engine); }
    /** Connects and has the connection report errors as JSON, once; false when DuckDB cannot connect. */
    bool Connect();

    const SharedEngine& get_Engine() const { return engine_; }
    const SharedConnection& get_Connection() const { return connection_; }
    /** Everything belongs to the database now. */
    void Keep() { is_kept_ = true; }

  private:
    enum class State {
        unconnected,
        refused,
        connected,
        /** Connected, but the connection cannot run anything: the engine may have failed. */
        mute,
    };

    void Disconnect() noexcept;

    SharedEngine engine_;
    // Made beforehand, so that nothing can fail between the opening of a handle and its being held.
    SharedConnection connection_;
    State state_ = State::unconnected;
    bool is_owned_ = false;
    bool is_kept_ = false;
};

}  // namespace mduckdb
