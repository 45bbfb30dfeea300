#include "derivative_command.hpp"

namespace {

class curl : public derivative_command {
  public:
    explicit curl(CLI::App &app) : derivative_command(app, derivative_kind::curl) {}
};

} // namespace

extern const command_entry curl_command{"curl", "The curl of a vector array, at every node",
                                        make_command<curl>};
