// What iso and isoline have in common.
#pragma once

#include "command.hpp"
#include "extract.hpp"
#include "options.hpp"

class level_command : public command {
  public:
    level_command(CLI::App &app, level_kind kind);
    void run() override;

  private:
    bool surfaces() const { return kind == level_kind::surfaces; }
    void check_cells(const input &in) const;
    // Why there is nothing.
    std::string reason(const typed_array &of, const scalar_array &scalar) const;
    drawing picture_of(const input &in, const typed_array &of, const carried_arrays &carried,
                       const extracted &made) const;

    level_kind kind;
    input_options file;
    array_options array;
    level_options levels;
    result_options result;
    with_options with;
    bool raw = false;
};
