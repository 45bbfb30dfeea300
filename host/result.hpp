// How results of operations become host_result records.
#pragma once

#include "field.hpp"
#include "lists.hpp"

#include <skoklana_host.h>

// What host_result stands at the beginning of. Owns all its lists.
struct whole_result : host_result {
    int capacity; // of sets
};

// Builds a result out of lists that the library handed over, and lets it go where something fails. Functions give
// false, with the failure recorded, where there is no memory.
class result_builder {
  public:
    // call: the name in texts.
    result_builder(const char *call, const host_field *field);
    ~result_builder() { host_free_result(made); }
    result_builder(const result_builder &) = delete;
    result_builder &operator=(const result_builder &) = delete;

    bool begin();
    // Nodes of the mesh that the result has, in their order; before new ones. nodes is taken over.
    void add_old_nodes(qx_long count, list_of<qx_long> nodes);
    // New nodes between two of the mesh, at t from the first; all lists are taken over.
    void add_new_nodes(qx_long count, list_of<qx_long> first, list_of<qx_long> second, list_of<float> t);
    // Cells: rows of nodes, and for each the mesh's cell that it was made of, by number, or null. Both are taken
    // over. Nothing is added for a count of 0.
    bool add_set(int kind, int order, qx_long count, list_of<qx_long> connect, list_of<qx_long> cell);
    // Gives all nodes their coordinates.
    bool place();
    // Hands the result over.
    host_result *finish();

  private:
    bool no_memory(const char *what) const;

    const char *call;
    const host_field *field;
    whole_result *made = nullptr;
};
