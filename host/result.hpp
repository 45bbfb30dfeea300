// How results of operations become host_result records.
#pragma once

#include "field.hpp"
#include "lists.hpp"
#include "workers.hpp"

#include <skoklana_host.h>

// What host_result stands at the beginning of. Owns all its lists.
struct whole_result : host_result {
    int capacity; // of sets
};

// Whether an array and a level are what an extraction takes; if not, the failure is recorded.
bool is_scalar(const char *call, const host_array *array, double level);

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
    // New nodes between two of the mesh; both lists are taken over.
    void add_new_nodes(qx_long count, list_of<qx_long> first, list_of<qx_long> second);
    // Cells: rows of nodes, and for each the mesh's cell that it was made of, by number, or null. Both are taken
    // over. Nothing is added for a count of 0.
    bool add_set(int kind, int order, qx_long count, list_of<qx_long> connect, list_of<qx_long> cell);
    // Finds where a scalar reaches the level between the nodes of each new one, and gives all nodes their coordinates,
    // if they are wanted; by the workers.
    bool place(const host_array &scalar, double level, bool with_coords, worker_team *team);
    // Hands the result over.
    host_result *finish();

  private:
    bool no_memory(const char *what) const;
    bool place_share(const host_array &scalar, double level, qx_long first, qx_long end) const;
    void copy_old_nodes(qx_long first, qx_long end) const;

    const char *call;
    const host_field *field;
    whole_result *made = nullptr;
};
