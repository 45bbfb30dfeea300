// What iso and isoline have in common.
#pragma once

#include "command.hpp"
#include "extract.hpp"
#include "options.hpp"

class level_command : public command {
  public:
    level_command(CLI::App &app, level_kind kind);
    void run() override;
    bool takes_pieces() const override { return true; }

  private:
    bool surfaces() const { return kind == level_kind::surfaces; }
    // What of the array a message or a picture needs.
    struct summary {
        std::string name, colour_by;
        bool colour_cells = false, by_length = false;
        value_range seen; // where nothing came out
    };
    void check_cells(const pieces::totals &whole) const;
    summary summary_of(const input &in, const typed_array &of, const carried_arrays &carried) const;
    // Why there is nothing.
    std::string reason(const summary &of) const;
    void draw(const summary &of, const piece_results &made, const pieces &parts,
              const std::string &counts) const;

    level_kind kind;
    input_options file;
    array_options array;
    level_options levels;
    result_options result;
    with_options with;
    bool raw = false;
};
