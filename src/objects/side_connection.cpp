#include "objects/side_connection.h"

#include <utility>

namespace mduckdb {

SideConnection::SideConnection(SharedLink link, SharedEngine engine) : link_(std::move(link)) {
    session_.Borrow(std::move(engine));
    if (!session_.Connect()) {
        link_->ThrowError("Failed to create DuckDB connection");
    }
    interruptible_.Replace(session_.get_Connection());
    link_->AddSide(interruptible_);
}

SideConnection::~SideConnection() {
    link_->RemoveSide(interruptible_);
    interruptible_.Replace(nullptr);
}

}  // namespace mduckdb
