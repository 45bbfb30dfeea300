// What ends the command before its work is done.
#pragma once

#include <stdexcept>
#include <string>

enum exit_code { exit_done = 0, exit_failed = 1, exit_usage = 2 };

// The text tells the user which file, what was wrong with it and what would be right.
struct failure : std::runtime_error {
    explicit failure(const std::string &text, exit_code exit = exit_failed)
        : std::runtime_error(text), code(exit)
    {
    }
    exit_code code;
};

// The user pressed Ctrl-C during an operation of the library.
struct interrupted : std::exception {};
