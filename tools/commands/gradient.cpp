#include "derivative_command.hpp"

namespace {

class gradient : public derivative_command {
  public:
    explicit gradient(CLI::App &app) : derivative_command(app, derivative_kind::gradient) {}
};

} // namespace

extern const command_entry gradient_command{"gradient", "The gradient of a node array, at every node",
                                            make_command<gradient>};
