// A command: options, a help text and work. Each stands in commands/NAME.cpp; README.md tells how one is added.
#pragma once

#include <CLI/CLI.hpp>

#include <memory>

// Its constructor takes the CLI::App of the command and adds the options to it.
class command {
  public:
    command() = default;
    command(const command &) = delete;
    command &operator=(const command &) = delete;
    virtual ~command() = default;
    // Does the work, with the options set. Throws failure or interrupted.
    virtual void run() = 0;
    // Whether it works piece by piece and on several processes (pieces.hpp).
    virtual bool takes_pieces() const { return false; }
};

struct command_entry {
    const char *name;  // as the user types it
    const char *about; // one line for the list of commands
    std::unique_ptr<command> (*make)(CLI::App &app);
};

template <typename Command> std::unique_ptr<command> make_command(CLI::App &app)
{
    return std::make_unique<Command>(app);
}
