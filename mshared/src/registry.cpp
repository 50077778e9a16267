#include "nbx/mrsql/registry.h"

#include "immortal.h"
#include "nbx/engine_lock.h"

namespace nbx::mrsql {
namespace {

/** Immortal: at the end of the process the module that made the extension may be gone already. */
struct Registry {
    Mutex mutex;
    smart_ptr<I_DuckDBExtension> extension NBX_GUARDED_BY(mutex);
};

}  // namespace

void SetDuckDBExtension(smart_ptr<I_DuckDBExtension> extension) {
    Registry& registry = GetImmortal<Registry>();
    {
        const MutexLock lock(registry.mutex);
        registry.extension.swap(extension);
    }
    // The former extension goes here, outside of the lock, since its destructor is the module's code.
}

smart_ptr<I_DuckDBExtension> GetDuckDBExtension() {
    Registry& registry = GetImmortal<Registry>();
    const MutexLock lock(registry.mutex);
    return registry.extension;
}

}  // namespace nbx::mrsql
