#include "level_command.hpp"

namespace {

class isoline : public level_command {
  public:
    explicit isoline(CLI::App &app) : level_command(app, level_kind::lines) {}
};

} // namespace

extern const command_entry isoline_command{
    "isoline", "Extracts the lines on flat cells where an array has a value", make_command<isoline>};
