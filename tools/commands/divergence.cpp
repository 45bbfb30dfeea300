#include "derivative_command.hpp"

namespace {

class divergence : public derivative_command {
  public:
    explicit divergence(CLI::App &app) : derivative_command(app, derivative_kind::divergence) {}
};

} // namespace

extern const command_entry divergence_command{"divergence", "The divergence of a vector array, at every node",
                                              make_command<divergence>};
