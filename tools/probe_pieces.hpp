// Answers of several pieces of a mesh at the same points: each point has one.
#pragma once

#include "probe.hpp"

#include <vector>

class probe_answers {
  public:
    explicit probe_answers(qx_long npoints);
    // Those of a piece, with their order; all pieces have the same arrays.
    void add(const probed &piece);
    // Those of all processes at the first one, others keep their own; all.
    void gather();
    const probed &all() const { return best; }

  private:
    void take(qx_long point, int64_t order, const std::vector<typed_array> &from, qx_long row, bool inside);
    void make_room(const std::vector<typed_array> &arrays_like);

    qx_long npoints;
    probed best;
};
