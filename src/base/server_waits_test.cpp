#include "base/server_waits.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "support/server_waits_fixture.h"

namespace mduckdb {
namespace {

/** A thread that waits for something until there is an answer, a second at a time, as an HTTP client does. */
class Client : nbx::noncopyable {
  public:
    struct Way {
        bool is_entered = true;
        bool has_wake_up = true;
        int slice = 1000;
    };

    Client(ServerWaits& waits, int descriptor, Way way) {
        thread_ = std::thread([this, &waits, descriptor, way] {
            if (way.is_entered) {
                waits.Enter();
            }
            WaitAsClient(descriptor, way.has_wake_up, way.slice);
            if (way.is_entered) {
                waits.Leave();
            }
            has_ended_ = true;
        });
    }
    ~Client() { thread_.join(); }
    bool get_HasEnded() const { return has_ended_; }

  private:
    std::atomic<bool> has_ended_{false};
    std::thread thread_;
};

/** Waits on this thread, for a second, as an HTTP client does; whether anything has come. */
bool IsAnswered(const Connection& connection) {
    const int descriptor = connection.get_Client();
    std::array<pollfd, 2> awaited{{{descriptor, POLLIN, 0}, {descriptor, POLLIN, 0}}};
    return poll(awaited.data(), 2, 1000) != 0;
}

TEST_F(ServerWaitsTest, EndsTheWaitOfAnHttpClientForItsServer) {
    ServerWaits waits;
    const Connection connection;
    const Client client(waits, connection.get_Client(), {});
    EXPECT_TRUE(EndUntil(waits, [&] { return client.get_HasEnded(); }));
    EXPECT_TRUE(connection.IsShutDown());
}

TEST_F(ServerWaitsTest, EndsTheWaitsOfSeveralThreads) {
    ServerWaits waits;
    const std::array<Connection, 4> connections;
    std::vector<std::unique_ptr<Client>> clients;
    for (const Connection& connection : connections) {
        clients.push_back(std::make_unique<Client>(waits, connection.get_Client(), Client::Way{}));
    }
    for (const auto& client : clients) {
        EXPECT_TRUE(EndUntil(waits, [&] { return client->get_HasEnded(); }));
    }
}

TEST_F(ServerWaitsTest, LeavesAThreadAloneThatDoesNotWorkForTheConnection) {
    ServerWaits waits;
    const Connection connection;
    const Client client(waits, connection.get_Client(), {.is_entered = false});
    EndOften(waits);
    EXPECT_FALSE(connection.IsShutDown());
    connection.Answer();
}

TEST_F(ServerWaitsTest, LeavesAThreadAloneThatHasLeft) {
    ServerWaits waits;
    const Connection connection;
    waits.Enter();
    waits.Enter();
    waits.Leave();
    waits.Leave();
    std::atomic<bool> has_looked{false};
    std::thread looker([&] {
        EndOften(waits);
        has_looked = true;
    });
    while (!has_looked) {
        EXPECT_FALSE(IsAnswered(connection));
    }
    looker.join();
}

/** So waits a client of PostgreSQL, whose answer may be that of a COMMIT. */
TEST_F(ServerWaitsTest, LeavesOtherClientsAlone) {
    for (const Client::Way way : {Client::Way{.has_wake_up = false}, Client::Way{.slice = 60'000}}) {
        ServerWaits waits;
        const Connection connection;
        const Client client(waits, connection.get_Client(), way);
        EndOften(waits);
        EXPECT_FALSE(connection.IsShutDown());
        connection.Answer();
    }
}

TEST_F(ServerWaitsTest, LeavesWhatIsNoSocketOfTheInternetAlone) {
    ServerWaits waits;
    std::array<int, 2> pair{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()), 0);
    {
        const Client client(waits, pair[0], {});
        EndOften(waits);
        char byte = 0;
        EXPECT_EQ(recv(pair[1], &byte, 1, MSG_DONTWAIT), -1);
        EXPECT_EQ(write(pair[1], "a", 1), 1);
    }
    close(pair[0]);
    close(pair[1]);
}

TEST_F(ServerWaitsTest, AnEndDuringWorkEndsWaitsUntilTheWorkHasEnded) {
    ServerWaits waits;
    const std::atomic<bool> is_interrupted{false};
    const Connection connection;
    const ServerWaits::Work work(waits, is_interrupted);
    waits.End();
    while (!IsAnswered(connection)) {
    }
    EXPECT_TRUE(connection.IsShutDown());
}

TEST_F(ServerWaitsTest, AnEndBeforeTheWorkCountsOnlyWithItsFlag) {
    for (const bool is_flagged : {true, false}) {
        ServerWaits waits;
        const std::atomic<bool> is_interrupted{is_flagged};
        const Connection connection;
        waits.End();
        const ServerWaits::Work work(waits, is_interrupted);
        if (is_flagged) {
            while (!IsAnswered(connection)) {
            }
        } else {
            EXPECT_FALSE(IsAnswered(connection));
        }
        EXPECT_EQ(connection.IsShutDown(), is_flagged);
    }
}

}  // namespace
}  // namespace mduckdb
