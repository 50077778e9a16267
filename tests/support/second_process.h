#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/** A second process, started with fork and exec and controlled by lines of text. The destructor kills it. */
class SecondProcess {
  public:
    /** Runs a program; the first word is its path. */
    explicit SecondProcess(const std::vector<std::string>& words);
    ~SecondProcess();
    SecondProcess(const SecondProcess&) = delete;
    SecondProcess& operator=(const SecondProcess&) = delete;

    /** The next line of its output without the end of line; empty at the end. */
    std::string ReadLine();
    /** Sends it an empty line, for which it waits. */
    void Continue();
    /** Closes its input, after which it should terminate; returns its exit status, or -1 after a signal. */
    int Finish();
    void Kill();
    pid_t get_Number() const { return pid_; }

  private:
    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
};

/** Opens the file in another process with DuckDB alone: "ok", or DuckDB's error text. */
std::string TryOpenElsewhere(const std::string& path, bool for_writing);

/** Runs SQL on the file in another process, which closes it; "ok", or DuckDB's error text. */
std::string RunElsewhere(const std::string& path, const std::string& sql);

/** Another process that has the file open as long as this object exists. */
class HeldElsewhere {
  public:
    HeldElsewhere(const std::string& path, bool for_writing);
    /** "ok", or DuckDB's error text. */
    const std::string& get_Outcome() const { return outcome_; }
    pid_t get_Process() const { return process_.get_Number(); }

  private:
    SecondProcess process_;
    std::string outcome_;
};
