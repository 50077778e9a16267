#include "base/uploads.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "base/server_waits.h"
#include "support/server_waits_fixture.h"

namespace duckdb {

/** Named and passed like DuckDB's own. */
template <class T, bool is_safe = true>
class shared_ptr : public std::shared_ptr<T> {
  public:
    using std::shared_ptr<T>::shared_ptr;
    shared_ptr(std::shared_ptr<T> pointer) : std::shared_ptr<T>(std::move(pointer)) {}
};

/** Like the class of httpfs, by whose name an upload is recognised. */
class S3MultiPartUpload : public std::enable_shared_from_this<S3MultiPartUpload> {
  public:
    void End() {
        {
            const std::lock_guard lock(mutex);
            --parts;
        }
        have_ended.notify_all();
    }
    void Await() {
        std::unique_lock lock(mutex);
        have_ended.wait(lock, [&] { return parts == 0; });
    }

    std::array<char, 250> before{};
    std::mutex mutex;
    std::condition_variable have_ended;
    uint32_t parts = 0;
    std::array<char, 200> behind{};
};

}  // namespace duckdb

namespace mduckdb {
namespace {

using Upload = duckdb::shared_ptr<duckdb::S3MultiPartUpload>;

void SendPart(Upload upload, int descriptor) {
    WaitAsClient(descriptor);
    upload->End();
}

/** Keeps what it holds in memory. */
void Keep(const void* place) {
    asm volatile("" : : "r"(place) : "memory");
}

/** Has pointers to another upload on its stack, as they are left over on a stack that is used again. */
void SendPartAbove(Upload upload, Upload other, int descriptor) {
    const std::array<Upload, 3> left_over{other, other, other};
    Keep(&left_over);
    other.reset();
    WaitAsClient(descriptor);
    upload->End();
}

/** A thread that sends a part; answered at the latest when this object is destroyed. */
class Part : nbx::noncopyable {
  public:
    template <class... Arguments>
    explicit Part(Arguments... arguments) : connection_(), thread_(arguments..., connection_.get_Client()) {}
    ~Part() {
        if (!IsShutDown()) {
            connection_.Answer();
        }
        thread_.join();
    }
    bool IsShutDown() const { return connection_.IsShutDown(); }

  private:
    const Connection connection_;
    std::thread thread_;
};

Upload MakeUpload(uint32_t parts) {
    Upload upload = std::make_shared<duckdb::S3MultiPartUpload>();
    upload->parts = parts;
    return upload;
}

/** A thread that works for a connection and waits until an upload has ended. */
class Statement : nbx::noncopyable {
  public:
    Statement(ServerWaits& waits, Upload upload)
        : thread_([&waits, upload = std::move(upload)] {
              waits.Enter();
              upload->Await();
              waits.Leave();
          }) {}
    ~Statement() { thread_.join(); }

  private:
    std::thread thread_;
};

class UploadsTest : public ServerWaitsTest {
  protected:
    void SetUp() override {
        ServerWaitsTest::SetUp();
#ifdef MDUCKDB_TEST_IS_SANITIZED
        GTEST_SKIP() << "a sanitizer starts all threads itself, and so hides what they were started for";
#endif
    }

    /** Looks often while a statement waits for an upload that has one part, which ends at last. */
    static void EndOftenFor(const Upload& upload) {
        ServerWaits waits;
        const Statement statement(waits, upload);
        EndOften(waits);
        upload->End();
    }
};

TEST_F(UploadsTest, EndsThePartsOfTheUploadForWhichAThreadWaits) {
    constexpr uint32_t kParts = 5;
    const Upload upload = MakeUpload(kParts);
    std::vector<std::unique_ptr<Part>> parts;
    for (uint32_t i = 0; i < kParts; ++i) {
        parts.push_back(std::make_unique<Part>(&SendPart, upload));
    }
    ServerWaits waits;
    std::atomic<bool> has_ended{false};
    std::thread statement([&] {
        waits.Enter();
        upload->Await();
        waits.Leave();
        has_ended = true;
    });
    EXPECT_TRUE(EndUntil(waits, [&] { return has_ended.load(); }));
    for (const auto& part : parts) {
        EXPECT_TRUE(part->IsShutDown());
    }
    parts.clear();
    statement.join();
}

TEST_F(UploadsTest, LeavesOtherUploadsAlone) {
    const Upload other = MakeUpload(1);
    const Part part(&SendPart, other);
    EndOftenFor(MakeUpload(1));
    EXPECT_FALSE(part.IsShutDown());
}

TEST_F(UploadsTest, LeavesOtherUploadsAloneOnStacksThatThisOneHasUsed) {
    const Upload upload = MakeUpload(1);
    const Upload other = MakeUpload(1);
    const Part part(&SendPartAbove, other, upload);
    EndOftenFor(upload);
    EXPECT_FALSE(part.IsShutDown());
}

TEST_F(UploadsTest, LeavesThreadsAloneThatWereStartedForSomethingElse) {
    const Upload upload = MakeUpload(1);
    const Part part([&upload](int descriptor) {
        const Upload held = upload;
        Keep(&held);
        WaitAsClient(descriptor);
    });
    EndOftenFor(upload);
    EXPECT_FALSE(part.IsShutDown());
}

TEST_F(UploadsTest, FindsTheUploadInsideWhichAnAddressLies) {
    const Upload upload = MakeUpload(0);
    const auto address = reinterpret_cast<uint64_t>(upload.get());
    EXPECT_EQ(FindUpload(reinterpret_cast<uint64_t>(&upload->have_ended)), address);
    EXPECT_EQ(FindUpload(address + sizeof *upload), 0);
    EXPECT_EQ(FindUpload(address - sizeof(uint64_t)), 0);
    EXPECT_EQ(FindUpload(16), 0);
}

}  // namespace
}  // namespace mduckdb
