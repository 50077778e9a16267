#include "objects/child_lists.h"

namespace mduckdb {

// No references are taken here: a child that another thread is just destroying waits for the engine lock
// in its destructor, and a reference would bring it to life and destroy it twice.
void ChildLists::CloseAll() {
    while (auto* result = results_.TakeLast()) {
        result->Close();
    }
    while (auto* cursor = cursors_.TakeLast()) {
        cursor->Detach();
    }
    while (auto* statement = statements_.TakeLast()) {
        statement->Detach();
    }
}

}  // namespace mduckdb
