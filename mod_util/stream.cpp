// Stream lines: one particle followed through a vector field, the size of its steps chosen from what it meets.
//
// In a cell that the particle enters, a step is 0.7 of the cell's shortest side over the speed and the number of
// steps wanted. In the cell in which it was already, the way that it made through the cell's parameters tells: r
// times too far, and the next step is r times shorter; hardly any way, and it is ten times longer. A step that
// runs into a part of the field faster than where it set out is tried again, as short as that speed asks for.

#include <skoklana/trace.h>

#include "traced_field.hpp"

#include <algorithm>

namespace {

constexpr int most_attempts = 100;

// The size of steps from one node of a line to the next.
class step_control {
  public:
    step_control(mesh_info *mesh_, int direction_, int nseg_)
        : mesh(mesh_), direction(direction_), nseg(nseg_)
    {
    }

    double h = 0;

    // At a node of the line.
    void choose(qx_long cell, const float *uvw, float speed)
    {
        if (cell != last_cell) {
            measure(cell);
            last_cell = cell;
            fit_to_cell(speed);
        } else {
            adapt(uvw);
        }
        std::copy_n(uvw, 3, last_uvw);
    }

    // For the cell's size at a speed.
    void fit_to_cell(float speed) { h = direction * 0.7 * size / (static_cast<double>(nseg) * speed); }

  private:
    // An extent that can't be had leaves that of the cell before.
    void measure(qx_long cell)
    {
        mesh->methods->cell_extent_func(mesh, cell, min, max);
        size = max[0] - min[0];
        if (size == 0) size = 1e10f;
        for (int d = 1; d < mesh->nspace; ++d) {
            const float extent = max[d] - min[d];
            if (extent != 0) size = std::min(size, extent);
        }
    }

    // By the way through the cell's parameters since the last node, as a multiple of the way wanted.
    void adapt(const float *uvw)
    {
        float sum = 0;
        for (int d = 0; d < 3; ++d) {
            const float moved = uvw[d] - last_uvw[d];
            sum += moved * moved;
        }
        const float r = static_cast<float>(nseg * std::sqrt(static_cast<double>(sum)));
        if (r < 0.01)
            h = h * 10;
        else if (r < 0.7 || r > 2.0)
            h = h / r;
    }

    mesh_info *mesh;
    int direction, nseg;
    qx_long last_cell = -1;
    float last_uvw[3] = {0, 0, 0};
    float min[3] = {0, 0, 0}, max[3] = {0, 0, 0};
    float size = 0;
};

// What is known of the node that a line has reached.
struct line_node {
    float position[3] = {0, 0, 0};
    float vector[3] = {0, 0, 0};
    qx_long cell = -1;
    float uvw[3] = {0, 0, 0}; // what a kind of cell does not use stays as it is
    float speed = 0;
};

// The caller's arrays, an entry or row a node.
struct line_arrays {
    int nspace, veclen;
    float *coords, *vecs;
    bool record;
    qx_long *cells;
    float *uvws, *speeds, *steps;

    void put(qx_long i, const line_node &node, double h) const
    {
        std::copy_n(node.position, nspace, coords + i * nspace);
        std::copy_n(node.vector, veclen, vecs + i * veclen);
        if (!record) return;
        cells[i] = node.cell;
        std::copy_n(node.uvw, 3, uvws + 3 * i);
        speeds[i] = node.speed;
        steps[i] = static_cast<float>(h);
    }
};

} // namespace

// Fills in what the field has at the node's position; false: the line ends there.
static bool visit(traced_field *field, double min_speed, line_node *node)
{
    if (field->locate(node->position, &node->cell, node->uvw) != 1) return false;
    if (field->sample(node->cell, node->uvw, node->vector) != 1) return false;
    node->speed = row_length(node->vector, field->of.veclen);
    return !(min_speed > node->speed) && node->speed != 0;
}

// From a node to the next position, which is there also after a failure; false: the line ends. A step that
// meets a faster part of the field is shortened and the speed met allowed, so that it gets further next time.
static bool advance(traced_field *field, int order, const line_node &node, step_control *control, float *next)
{
    float blended[3], limit = node.speed, met = node.speed;
    for (int attempt = 0; attempt < most_attempts; ++attempt) {
        const int result =
            take_step(field, control->h, order, node.position, next, node.vector, blended, limit, &met);
        if (result != -1) return result != 0;
        limit = met;
        control->fit_to_cell(met);
    }
    return false;
}

int UTILstream_line(mesh_info *mesh, const blk_tbl *tbl, const void *data, int data_type, int veclen,
                    int null_flag, const void *null_value, int order, int direction, int nseg,
                    double min_speed, const float *start, int max_nodes, int *count, float *coords,
                    float *vecs, int record, qx_long *cells, float *uvws, float *speeds, float *steps,
                    float *work)
{
    const mesh_methods *methods = mesh->methods;
    if (methods->find_cell_func == nullptr || methods->interp_data_func == nullptr ||
        methods->cell_extent_func == nullptr) {
        print_error(no_trace_function);
        return 0;
    }
    *count = 0;
    if (max_nodes < 1 || !fits_integrator(mesh, veclen)) return 1;

    traced_field field(mesh, tbl, {veclen, data, data_type, null_flag, null_value});
    step_control control(mesh, direction, nseg);
    const line_arrays line = {mesh->nspace, veclen, coords, vecs, record != 0, cells, uvws, speeds, steps};
    line_node node;
    std::copy_n(start, mesh->nspace, node.position);
    while (*count < max_nodes && visit(&field, min_speed, &node)) {
        float next[3] = {0, 0, 0};
        control.choose(node.cell, node.uvw, node.speed);
        line.put((*count)++, node, control.h);
        const bool goes_on = advance(&field, order, node, &control, next);
        std::copy_n(next, mesh->nspace, work);
        if (!goes_on) break;
        std::copy_n(next, 3, node.position);
    }
    return 1;
}
