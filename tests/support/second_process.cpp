#include "support/second_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

SecondProcess::SecondProcess(const std::vector<std::string>& words) {
    std::array<int, 2> to_child{};
    std::array<int, 2> from_child{};
    if (pipe2(to_child.data(), O_CLOEXEC) != 0 || pipe2(from_child.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    std::vector<std::string> copies = words;
    std::vector<char*> arguments;
    for (std::string& word : copies) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        dup2(to_child[0], STDIN_FILENO);
        dup2(from_child[1], STDOUT_FILENO);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    close(to_child[0]);
    close(from_child[1]);
    input_ = to_child[1];
    output_ = from_child[0];
}

SecondProcess::~SecondProcess() {
    Kill();
    if (output_ >= 0) {
        close(output_);
    }
}

std::string SecondProcess::ReadLine() {
    std::string line;
    char byte = 0;
    while (read(output_, &byte, 1) == 1 && byte != '\n') {
        line += byte;
    }
    return line;
}

void SecondProcess::Continue() {
    if (write(input_, "\n", 1) != 1) {
        throw std::runtime_error("no second process");
    }
}

int SecondProcess::Finish() {
    if (input_ >= 0) {
        close(input_);
        input_ = -1;
    }
    if (pid_ <= 0) {
        return -1;
    }
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void SecondProcess::Kill() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
    }
    Finish();
}

std::string TryOpenElsewhere(const std::string& path, bool for_writing) {
    SecondProcess process({DUCKDB_PEER, for_writing ? "write" : "read", path});
    std::string outcome = process.ReadLine();
    process.Finish();
    return outcome;
}

std::string RunElsewhere(const std::string& path, const std::string& sql) {
    SecondProcess process({DUCKDB_PEER, "write", path, sql});
    std::string outcome = process.ReadLine();
    process.Finish();
    return outcome;
}

HeldElsewhere::HeldElsewhere(const std::string& path, bool for_writing)
    : process_({DUCKDB_PEER, for_writing ? "write" : "read", path}), outcome_(process_.ReadLine()) {}
