// Each operation on files, with each of its calls of the system failing in turn. A case runs in a process of
// its own, which has no threads before.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "file_faults/file_faults.h"
#include "file_faults/operations.h"
#include "support/environment.h"
#include "support/temp_folder.h"

namespace {

using file_faults::Call;
using file_faults::Fault;
using file_faults::kCallCount;
using file_faults::kShort;
using Counts = std::array<uint64_t, kCallCount>;

constexpr unsigned kMostSeconds = 60;
constexpr std::array kCallNames = {"open", "read",   "write",  "truncate",
                                   "sync", "rename", "unlink", "any call"};

struct Error {
    Call call;
    int error;
    /** It may go on for ever. EINTR and short counts are for callers that go on by themselves. */
    bool may_last;
};
constexpr Error kErrors[] = {
    {Call::kOpen, EACCES, true},   {Call::kOpen, EIO, true},      {Call::kOpen, EINTR, false},
    {Call::kRead, EIO, true},      {Call::kRead, EINTR, false},   {Call::kRead, kShort, false},
    {Call::kWrite, EIO, true},     {Call::kWrite, ENOSPC, true},  {Call::kWrite, EINTR, false},
    {Call::kWrite, kShort, false}, {Call::kTruncate, EIO, true},  {Call::kSync, EIO, true},
    {Call::kSync, ENOSPC, true},   {Call::kRename, EACCES, true}, {Call::kRename, ENOSPC, true},
    {Call::kUnlink, EACCES, true}, {Call::kUnlink, EIO, true},    {Call::kEvery, EIO, true},
};

/** Where DuckDB itself ends the process: what the C++ library then prints. Nothing else may end it. */
constexpr std::array kEndsOfDuckDB = {
    // The log is shortened to the last commit after a failed one, in a destructor.
    "Could not truncate file",
};

/** What a process said before its end. */
struct Said {
    std::string text;
    /** What it wrote to stderr. */
    std::string errors;
    /** 0, or the signal that ended it. */
    int signal = 0;
};

std::string ReadToEnd(int descriptor) {
    std::string text;
    char part[4096];
    for (ssize_t length = 0; (length = read(descriptor, part, sizeof part)) > 0;) {
        text.append(part, static_cast<std::size_t>(length));
    }
    return text;
}

/** Runs it in a process of its own, whose answer is a text. */
template <class Function>
Said InProcess(Function function) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    std::FILE* const errors = std::tmpfile();
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        dup2(fileno(errors), STDERR_FILENO);
        alarm(kMostSeconds);
        std::string text;
        try {
            text = function();
        } catch (const std::exception& error) {
            text = std::string("std: ") + error.what();
        } catch (...) {
            text = DescribeCurrentException();
        }
        const bool is_sent = write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
        _exit(is_sent ? 0 : 1);
    }
    close(ends[1]);
    Said said;
    said.text = ReadToEnd(ends[0]);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    lseek(fileno(errors), 0, SEEK_SET);
    said.errors = ReadToEnd(fileno(errors));
    std::fclose(errors);
    said.signal = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status) != 0 ? -1 : 0;
    return said;
}

/** What became of one operation. */
struct Outcome {
    int64_t committed = 0;
    Counts counts{};
    /** "none" if nothing was thrown. */
    std::string thrown;
    int signal = 0;
    std::string errors;

    bool get_IsEndedByDuckDB() const {
        return signal == SIGABRT &&
               std::any_of(kEndsOfDuckDB.begin(), kEndsOfDuckDB.end(),
                           [this](const char* end) { return errors.find(end) != std::string::npos; });
    }
};

/** A number that a process leaves behind, however it ends. */
int64_t& SharedNumber() {
    static void* const place =
        mmap(nullptr, sizeof(int64_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return *static_cast<int64_t*>(place);
}

Outcome Perform(const FileOperation& operation, const std::string& folder, const Fault& fault) {
    SharedNumber() = 0;
    const Said said = InProcess([&] {
        TestHost host;
        int64_t& committed = SharedNumber();
        file_faults::Begin(folder.c_str(), fault);
        const std::string thrown = Thrown([&] { operation.act(host, folder, committed); });
        std::string text;
        for (const uint64_t count : file_faults::End()) {
            text += std::to_string(count) + " ";
        }
        return text + thrown;
    });
    Outcome outcome;
    outcome.committed = SharedNumber();
    std::istringstream words(said.text);
    for (uint64_t& count : outcome.counts) {
        words >> count;
    }
    words.get();
    std::getline(words, outcome.thrown, '\0');
    outcome.signal = said.signal;
    outcome.errors = said.errors;
    return outcome;
}

bool IsWhole() {
    return NumberFromEnvironment("MDUCKDB_TEST_EVERY_FILE_FAULT", 0) != 0;
}

class FileFaults : public testing::Test {
  protected:
    FileFaults() {
        std::filesystem::create_directory(model_);
        EXPECT_EQ(InProcess([&] {
                      MakeFolder(model_);
                      return std::string();
                  }).text,
                  "");
    }

    /** A copy of the model. */
    std::string NewFolder() {
        std::filesystem::remove_all(work_);
        std::filesystem::copy(model_, work_, std::filesystem::copy_options::recursive);
        return work_;
    }

    void ExpectRight(const FileOperation& operation, const Fault& fault) {
        const std::string folder = NewFolder();
        const Outcome outcome = Perform(operation, folder, fault);
        ++cases_;
        if (outcome.get_IsEndedByDuckDB()) {
            ++ends_of_duckdb_;
        } else {
            EXPECT_EQ(outcome.signal, 0) << "the process ended: " << outcome.errors;
        }
        // An exception that is not the host's is nothing that a host expects.
        EXPECT_FALSE(outcome.thrown.starts_with("std: ") || outcome.thrown == "unknown") << outcome.thrown;
        const bool has_failed = outcome.thrown != "none";
        failures_ += has_failed ? 1U : 0U;
        const Said judged = InProcess([&] { return operation.judge(folder, has_failed, outcome.committed); });
        EXPECT_EQ(judged.text, "") << "after: " << outcome.thrown;
        EXPECT_EQ(judged.signal, 0) << "after: " << outcome.thrown;
        if (has_failed && operation.leftovers && fault.call != Call::kUnlink && !fault.is_for_ever) {
            EXPECT_EQ(operation.leftovers(folder), "") << "after: " << outcome.thrown;
        }
    }

    void FailNth(const FileOperation& operation, const Error& error, uint64_t n, uint64_t calls,
                 bool is_for_ever) {
        SCOPED_TRACE(operation.name + ": " + kCallNames[static_cast<std::size_t>(error.call)] + " " +
                     std::to_string(n) + " of " + std::to_string(calls) + " with " +
                     (error.error == kShort ? "a short count" : strerrorname_np(error.error)) +
                     (is_for_ever ? " and those after it" : ""));
        ExpectRight(operation, {error.call, n, error.error, is_for_ever});
    }

    /** Every n-th call with this error; in the short form one of them, and only with every second error. */
    void FailSome(const FileOperation& operation, const Error& error, uint64_t calls) {
        if (!IsWhole()) {
            ++turn_;
            if (calls > 0 && turn_ % 2 == 0) {
                FailNth(operation, error, 1 + turn_ * 7 % calls, calls,
                        error.call == Call::kEvery || (error.may_last && turn_ % 4 == 0));
            }
            return;
        }
        for (uint64_t n = 1; n <= calls; ++n) {
            // One call alone fails with the errors of its kind.
            if (error.call != Call::kEvery) {
                FailNth(operation, error, n, calls, false);
            }
            if (error.may_last) {
                FailNth(operation, error, n, calls, true);
            }
        }
    }

    void FailAll(const FileOperation& operation) {
        cases_ = 0;
        failures_ = 0;
        ends_of_duckdb_ = 0;
        const Outcome whole = Perform(operation, NewFolder(), {});
        EXPECT_EQ(whole.thrown, "none") << operation.name;
        const uint64_t calls = whole.counts[static_cast<std::size_t>(Call::kEvery)];
        // Another half of the errors for the next operation.
        turn_ += 1;
        for (const Error& error : kErrors) {
            FailSome(operation, error, whole.counts[static_cast<std::size_t>(error.call)]);
        }
        std::cout << operation.name << ": " << calls << " calls, " << cases_ << " cases, " << failures_
                  << " reported as an error, " << ends_of_duckdb_ << " times DuckDB ended the process\n";
        EXPECT_GT(cases_, 0U) << operation.name;
    }

    TempFolder folder_;
    const std::string model_ = folder_ / "model";
    const std::string work_ = folder_ / "work";
    /** Which of the errors of all operations it is. */
    uint64_t turn_ = 0;
    uint64_t cases_ = 0;
    uint64_t failures_ = 0;
    uint64_t ends_of_duckdb_ = 0;
};

TEST_F(FileFaults, EachLeavesWholeFilesAndIsReportedOrMadeGood) {
    const char* const only = std::getenv("MDUCKDB_TEST_FILE_OPERATION");
    for (const FileOperation& operation : FileOperations()) {
        if (only == nullptr || operation.name == only) {
            FailAll(operation);
        }
    }
}

TEST_F(FileFaults, NoBackupSucceedsThatTheDiskHasRefused) {
    const auto& operations = FileOperations();
    const auto backup = std::find_if(operations.begin(), operations.end(),
                                     [](const FileOperation& each) { return each.name == "back up"; });
    ASSERT_NE(backup, operations.end());
    const auto syncs = Perform(*backup, NewFolder(), {}).counts[static_cast<std::size_t>(Call::kSync)];
    // Three files at least, their folder and that of the folder.
    EXPECT_GE(syncs, 5U);
    for (uint64_t n = 1; n <= syncs; ++n) {
        EXPECT_NE(Perform(*backup, NewFolder(), {Call::kSync, n, EIO, false}).thrown, "none") << n;
    }
}

}  // namespace
