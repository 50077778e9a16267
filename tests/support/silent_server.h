#pragma once

#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "nbx/unknown.h"

namespace mduckdb {

/** Two ends of a connection over the loopback interface. */
class Connection : nbx::noncopyable {
  public:
    Connection() {
        const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        Require(bind(listener, generic, size) == 0);
        Require(listen(listener, 1) == 0);
        Require(getsockname(listener, generic, &size) == 0);
        client_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        Require(connect(client_, generic, size) == 0);
        server_ = accept(listener, nullptr, nullptr);
        close(listener);
    }
    ~Connection() {
        close(client_);
        close(server_);
    }
    int get_Client() const { return client_; }
    void Answer() const { Require(write(server_, "a", 1) == 1); }
    /** Whether anybody has shut it down. */
    bool IsShutDown() const {
        char byte = 0;
        return recv(server_, &byte, 1, MSG_DONTWAIT) == 0;
    }

  private:
    static void Require(bool is_true) {
        if (!is_true) {
            throw std::runtime_error("no connection over the loopback interface");
        }
    }

    int client_ = -1;
    int server_ = -1;
};

/** Waits for the descriptor until there is an answer, a slice of milliseconds at a time, as an HTTP client
   does: with a descriptor that wakes it. */
inline void WaitAsClient(int descriptor, bool has_wake_up = true, int slice = 1000) {
    const int wake_up = eventfd(0, EFD_CLOEXEC);
    std::array<pollfd, 2> awaited{{{descriptor, POLLIN, 0}, {wake_up, POLLIN, 0}}};
    while (poll(awaited.data(), has_wake_up ? 2 : 1, slice) == 0) {
    }
    close(wake_up);
}

}  // namespace mduckdb
