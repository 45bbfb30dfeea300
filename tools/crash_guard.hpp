// Readers that crash.
#pragma once

#include <string>

// While one lives, a crash and an exit of other people's code end the program with a message that blames the
// file, and exit code 1. One at a time.
class crash_guard {
  public:
    explicit crash_guard(const std::string &path);
    ~crash_guard();
    crash_guard(const crash_guard &) = delete;
    crash_guard &operator=(const crash_guard &) = delete;
    // Where the user reads messages, while one lives too. Handlers of signals may ask.
    static int user_stream();
};
