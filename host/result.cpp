// Results: nodes of the mesh and nodes between them, sets of cells over these, and data carried onto both.
#include "result.hpp"

#include "report.hpp"
#include "values.hpp"

#include "mod_util/type_switch.hpp"

#include <skoklana/host/tool.h>

#include <algorithm>
#include <cmath>

bool is_scalar(const char *call, const host_array *array, double level)
{
    if (array == nullptr || array->data == nullptr) return host_fail("%s: array is NULL", call) != 0;
    if (DTYPEtype_size(array->type) == 0)
        return host_fail("%s: %d is no element type", call, array->type) != 0;
    if (array->veclen != 1)
        return host_fail("%s: a row has %d elements, but a level is one of a scalar", call, array->veclen) !=
               0;
    return !std::isnan(level) || host_fail("%s: the level is not a number", call) != 0;
}

result_builder::result_builder(const char *call_, const host_field *field_) : call(call_), field(field_) {}

bool result_builder::no_memory(const char *what) const
{
    return host_fail("%s: no memory for %s", call, what) != 0;
}

bool result_builder::begin()
{
    made = allocate_zeroed<whole_result>(1);
    if (made == nullptr) return no_memory("the result");
    made->nspace = field->nspace;
    return true;
}

void result_builder::add_old_nodes(qx_long count, list_of<qx_long> nodes)
{
    made->nold = count;
    made->nnodes += count;
    made->old_node = nodes.release();
}

void result_builder::add_new_nodes(qx_long count, list_of<qx_long> first, list_of<qx_long> second)
{
    made->nnodes += count;
    made->first_node = first.release();
    made->second_node = second.release();
}

bool result_builder::add_set(int kind, int order, qx_long count, list_of<qx_long> connect,
                             list_of<qx_long> cell)
{
    if (count == 0) return true;
    if (made->nsets == made->capacity) {
        const int capacity = 4 + 2 * made->capacity;
        void *sets = realloc(made->sets, static_cast<size_t>(capacity) * sizeof(host_set));
        if (sets == nullptr) return no_memory("the sets of the result");
        made->sets = static_cast<host_set *>(sets);
        made->capacity = capacity;
    }
    made->sets[made->nsets++] = {kind, order, count, connect.release(), cell.release()};
    made->ncells += count;
    return true;
}

// New nodes first to end - 1. False: no place for them.
bool result_builder::place_share(const host_array &scalar, double level, qx_long first, qx_long end) const
{
    with_dtype_silent(scalar.type, [&](auto tag) {
        const auto *data = static_cast<const typename decltype(tag)::type *>(scalar.data);
        for (qx_long i = first; i < end; ++i) {
            const double a = static_cast<double>(data[made->first_node[i]]),
                         b = static_cast<double>(data[made->second_node[i]]);
            made->t[i] = a == b ? 0 : static_cast<float>((level - a) / (b - a));
        }
        return 0;
    });
    if (made->coords == nullptr || first == end) return true;
    mesh_info *mesh = const_cast<mesh_info *>(&field->mesh);
    return mesh->methods->eval_coord_func(mesh, end - first, made->first_node + first,
                                          made->second_node + first, made->t + first,
                                          made->coords + (made->nold + first) * field->nspace) == 1;
}

void result_builder::copy_old_nodes(qx_long first, qx_long end) const
{
    for (qx_long i = first; made->coords != nullptr && i < end; ++i)
        copy_node(field, made->old_node[i], made->coords + i * field->nspace);
}

bool result_builder::place(const host_array &scalar, double level, bool with_coords, worker_team *team)
{
    const qx_long nold = made->nold, nnew = made->nnodes - nold;
    const int nworkers = team->size();
    made->t = allocate_list<float>(nnew).release();
    if (made->t == nullptr) return no_memory("the places of the new nodes");
    mesh_info *mesh = const_cast<mesh_info *>(&field->mesh);
    const auto eval_coord = mesh->methods->eval_coord_func;
    bool placed[most_workers] = {};
    placed[0] = true;
    if (with_coords) {
        made->coords = allocate_list<float>(made->nnodes * field->nspace).release();
        if (made->coords == nullptr) return no_memory("the coordinates of the result");
        // The record fetches what it lacks for a first node: workers find it there.
        if (nnew > 0)
            placed[0] = eval_coord != nullptr &&
                        eval_coord(mesh, 0, made->first_node, made->second_node, made->t, made->coords) == 1;
    }
    auto place = [&](int k) {
        copy_old_nodes(share_begin(nold, k, nworkers), share_begin(nold, k + 1, nworkers));
        placed[k] =
            place_share(scalar, level, share_begin(nnew, k, nworkers), share_begin(nnew, k + 1, nworkers));
    };
    if (placed[0]) team->run(place);
    return std::all_of(placed, placed + nworkers, [](bool done) { return done; }) ||
           host_fail("%s: the new nodes could not be placed", call) != 0;
}

host_result *result_builder::finish()
{
    whole_result *done = made;
    made = nullptr;
    return done;
}

static_assert(SKOKLANA_HOST_VERSION == BUILT_VERSION, "the header has the version of another project");

namespace {

bool is_array(const char *call, const host_result *result, const host_array *from, const void *to)
{
    if (result == nullptr) return host_fail("%s: result is NULL", call) != 0;
    if (from == nullptr || from->data == nullptr) return host_fail("%s: from is NULL", call) != 0;
    if (from->veclen < 1)
        return host_fail("%s: a row has %d elements, but it has at least 1", call, from->veclen) != 0;
    if (DTYPEtype_size(from->type) == 0) return host_fail("%s: %d is no element type", call, from->type) != 0;
    return to != nullptr || host_fail("%s: to is NULL", call) != 0;
}

template <typename T>
void carry_nodes(const host_result &result, const host_array &from, T *to, unsigned char *mask)
{
    const T *data = static_cast<const T *>(from.data);
    for (qx_long i = 0; i < result.nnodes; ++i) {
        weighted_nodes nodes;
        if (i < result.nold) {
            nodes.add(result.old_node[i], 1);
        } else {
            const qx_long k = i - result.nold;
            const double t = static_cast<double>(result.t[k]);
            const bool has_third = result.third_node != nullptr && result.third_node[k] >= 0;
            const double s = has_third ? static_cast<double>(result.s[k]) : 0;
            nodes.add(result.first_node[k], 1 - t);
            nodes.add(result.second_node[k], t * (1 - s));
            if (has_third) nodes.add(result.third_node[k], t * s);
        }
        const bool has_value = nodes.count > 0 && !touches_null<T>(nodes, from);
        T *row = to + i * from.veclen;
        for (int c = 0; c < from.veclen; ++c)
            row[c] = has_value ? weighted_value<T>(nodes, data + c, from.veclen) : T{0};
        if (!has_value && from.null != nullptr) memcpy(row, from.null, sizeof *row);
        if (mask != nullptr) mask[i] = has_value ? 1 : 0;
    }
}

template <typename T> void carry_cells(const host_result &result, const host_array &from, T *to)
{
    const T *data = static_cast<const T *>(from.data);
    for (int s = 0; s < result.nsets; ++s)
        for (qx_long i = 0; i < result.sets[s].ncells; ++i, to += from.veclen)
            std::copy_n(data + result.sets[s].cell[i] * from.veclen, from.veclen, to);
}

} // namespace

extern "C" {

int host_carry_nodes(const host_result *result, const host_array *from, void *to, unsigned char *mask)
{
    if (!is_array("host_carry_nodes", result, from, to)) return HOST_FAILED;
    return with_dtype_silent(from->type, [&](auto tag) {
        carry_nodes(*result, *from, static_cast<typename decltype(tag)::type *>(to), mask);
        return static_cast<int>(HOST_DONE);
    });
}

int host_carry_cells(const host_result *result, const host_array *from, void *to)
{
    if (!is_array("host_carry_cells", result, from, to)) return HOST_FAILED;
    for (int s = 0; s < result->nsets; ++s)
        if (result->sets[s].cell == nullptr)
            return host_fail(
                "host_carry_cells: the result was made without the cells that its own come from");
    return with_dtype_silent(from->type, [&](auto tag) {
        carry_cells(*result, *from, static_cast<typename decltype(tag)::type *>(to));
        return static_cast<int>(HOST_DONE);
    });
}

const host_set *host_set_of_kind(const host_result *result, int kind)
{
    for (int s = 0; result != nullptr && s < result->nsets; ++s)
        if (result->sets[s].kind == kind) return &result->sets[s];
    return nullptr;
}

void host_free_result(host_result *given)
{
    whole_result *result = static_cast<whole_result *>(given);
    if (result == nullptr) return;
    for (int s = 0; s < result->nsets; ++s) {
        free(result->sets[s].connect);
        free(result->sets[s].cell);
    }
    for (void *list : {static_cast<void *>(result->sets), static_cast<void *>(result->old_node),
                       static_cast<void *>(result->first_node), static_cast<void *>(result->second_node),
                       static_cast<void *>(result->t), static_cast<void *>(result->coords),
                       static_cast<void *>(result->third_node), static_cast<void *>(result->s)})
        free(list);
    free(result);
}

void host_free(void *list)
{
    free(list);
}

int host_version(void)
{
    return SKOKLANA_HOST_VERSION;
}

} // extern "C"
