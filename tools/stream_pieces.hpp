// Stream lines through a mesh in pieces.
#pragma once

#include "pieces.hpp"
#include "stream_lines.hpp"

#include <functional>
#include <vector>

// Lines and ribbons as trace_lines makes them, but where cells overlap, of which a piece may not know the first: a line
// goes on from piece to piece until it ends. parts: split for
// mesh_use::trace with ghosts. vectors_of: the field on a piece. The result is the first process's; others get the
// counts of none. Throws failure or interrupted; all.
stream_lines trace_lines_in_pieces(pieces &parts,
                                   const std::function<scalar_array(const input &)> &vectors_of,
                                   const std::vector<double> &seeds, const line_options &options);

// The seeds of random_seeds where cells are numbered as in the whole: on lattices, and where pieces are stretches of the
// file's cells. All.
std::vector<double> random_seeds_in_pieces(pieces &parts, int64_t count);
