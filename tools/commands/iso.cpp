#include "level_command.hpp"

namespace {

class iso : public level_command {
  public:
    explicit iso(CLI::App &app) : level_command(app, level_kind::surfaces) {}
};

} // namespace

extern const command_entry iso_command{"iso", "Extracts the surfaces where an array has a value",
                                       make_command<iso>};
