// What gradient, curl and divergence have in common.
#pragma once

#include "command.hpp"
#include "options.hpp"

enum class derivative_kind { gradient, curl, divergence };

class derivative_command : public command {
  public:
    derivative_command(CLI::App &app, derivative_kind kind);
    void run() override;
    bool takes_pieces() const override { return true; }

  private:
    // The array as the operation takes it.
    scalar_array values(const input &in, const typed_array &of) const;
    // Nodes without a derivative.
    qx_long derive(const input &in, const scalar_array &of, float *out) const;
    // What of a piece nodes without values decide.
    struct nulls {
        bool some = false, none = false; // pieces with such nodes, and without
        bool everywhere = false;         // all are derived as those with
    };
    void derive_pieces(pieces *parts, piece_results *made, nulls *seen, qx_long *without);
    void derive_by_library(const input &in, const scalar_array &of, mesh_info *mesh, const void *values,
                           float *out) const;
    void derive_uniform_part(const input &in, const scalar_array &of, float *out) const;

    derivative_kind kind;
    input_options file;
    array_options array;
    result_options result;
    bool by_library = false;
    std::string made_name;
};
