#include "base/own_thread.h"

#include <pthread.h>

#include <csignal>

#include "nbx/unknown.h"

namespace mduckdb {

namespace {

/** A new thread inherits the mask of signals. */
class SignalsBlocked : nbx::noncopyable {
  public:
    SignalsBlocked() noexcept {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  private:
    sigset_t before_;
};

}  // namespace

std::thread StartOwnThread(const char* name, void (*run)(void* context) noexcept, void* context) {
    const SignalsBlocked blocked;
    std::thread thread(run, context);
    pthread_setname_np(thread.native_handle(), name);
    return thread;
}

}  // namespace mduckdb
