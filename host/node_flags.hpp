// On which side of a level the nodes of a mesh lie: found out once, for all workers to read.
#pragma once

#include "field.hpp"
#include "lists.hpp"
#include "workers.hpp"

#include <skoklana_host.h>

#include <utility>

class node_flags {
  public:
    node_flags(const host_field *field_, const host_array &array_, double level_, worker_team *team_)
        : field(field_), array(array_), level(level_), team(team_)
    {
    }

    // A byte a node, as the library's kernels read it. False: no memory.
    bool classify();
    // The same for a cut, with the output number of each node, -1 where it is not retained.
    bool classify_for_cut(int side);

    int has_null() const { return array.null != nullptr ? 1 : 0; }
    // Kernels take it without const, and leave it as it is.
    unsigned char *flags() const { return flag.get(); }
    const qx_long *numbers() const { return number.get(); }
    qx_long nold() const { return nretained; }
    // nold entries.
    list_of<qx_long> take_old_nodes() { return std::move(old_node); }

  private:
    const void *value(qx_long node) const;
    void classify_nodes(qx_long first, qx_long end);

    const host_field *const field;
    const host_array array;
    const double level;
    worker_team *const team;
    list_of<unsigned char> flag;
    list_of<qx_long> number, old_node;
    qx_long nretained = 0;
};
