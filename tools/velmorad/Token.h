// The daemon's token: a secret of 256 random bits kept as 64 hexadecimal digits and a line
// end in a file only the daemon's user can read (by default lib/velmorad.token in the home).
// Whoever presents it in "Authorization: Bearer <token>" may change the host.
//
// The file is read again when it changes, so that `velmorad token --new` takes effect on
// the running daemon at once.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

namespace velmorad {

class Token {
public:
    explicit Token(std::string path) : path_(std::move(path)) {}

    // Reads the token, creating the file first when there is none (or replacing it when
    // `renew`). False, with the reason in `why`, when the file cannot be written or read,
    // holds no token, or may be read by others. `created` tells whether a new one was made.
    bool open(bool renew, bool* created, std::string* why);
    // Whether `presented` is the token, compared in time independent of where they differ.
    bool matches(const std::string& presented);
    const std::string& path() const { return path_; }
    // The current token (for `velmorad token`; never for a log).
    std::string value();

private:
    bool read(std::string* why);
    void refresh();

    std::string path_;
    std::mutex lock_;
    std::string value_;
    int64_t stamp_ = 0;  // modification time and size of the file when it was read
};

// `velmorad token [--new] [--home DIR] [--config FILE]`: prints the token, creating it when
// missing; --new replaces it. The exit status for main.
int tokenCommand(int argc, char** argv);

}  // namespace velmorad
