#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace mduckdb_host {

/** Whether the terminal, if there is one, interprets escape sequences: `TERM` is set and not "dumb". */
bool UnderstandsEscapes() noexcept;

/** The reader closed the output. This is not an error: the program closes what it opened and exits
    quietly. */
class xOutputClosed : public std::exception {
  public:
    const char* what() const noexcept override { return "the output was closed"; }
};

/** Buffered text on a file descriptor, which it does not own. Writing throws `xOutputClosed` when the reader
    closed its end, and `std::system_error` for every other failure (a full disk). */
class Output {
  public:
    explicit Output(int descriptor);
    virtual ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void Write(std::string_view text);
    void Flush();
    bool get_IsTerminal() const noexcept { return is_terminal_; }
    /** Size of the terminal in characters; 80 by 24 when it is unknown. */
    int get_Columns() const noexcept;
    int get_Lines() const noexcept;

  protected:
    /** Writes what was buffered. */
    virtual void Send(std::string_view text) { WriteAll(descriptor_, text); }
    static void WriteAll(int descriptor, std::string_view text);

  private:
    int descriptor_;
    bool is_terminal_;
    std::string buffer_;
};

}  // namespace mduckdb_host
