#include "cell_workers.hpp"

#include "progress.hpp"

#include "mod_util/cell_set.hpp"

#include <skoklana/cell.h>

#include <algorithm>
#include <cassert>
#include <cstring>

namespace {

constexpr qx_long block_cells = 256;       // of second order, that are cut into pieces together
constexpr qx_long entries_a_check = 65536; // of connect lists, between two status checks

// Entries that the cells of a set take to read, about; pieces of a cell of second order have more than its row.
qx_long cost_of_cell(const mesh_info &mesh, int set)
{
    return mesh.cell_nnodes[set] * (mesh.cell_order[set] > 1 ? 6 : 1);
}

int kind_of_piece(int ndim)
{
    return ndim == 1 ? CELL_LINE : ndim == 2 ? CELL_TRI : CELL_TET;
}

// An edge of a worker that an earlier one has too.
qx_long met_before(int worker, qx_long edge)
{
    return -1 - (edge * most_workers + worker);
}

// -1: the worker has not met it.
int find_edge(const mt_edge_table &edges, qx_long lo, qx_long hi)
{
    for (int link = edges.heads[lo]; link != 0; link = edges.next[link])
        if (edges.hi[link - 1] == hi) return link - 1;
    return -1;
}

bool resize_numbers(qx_long **list, qx_long count)
{
    const size_t bytes = static_cast<size_t>(std::max<qx_long>(count, 1)) * sizeof(qx_long);
    void *grown = realloc(*list, bytes);
    if (grown == nullptr) return false;
    expect_to_fill(grown, static_cast<qx_long>(bytes));
    *list = static_cast<qx_long *>(grown);
    return true;
}

} // namespace

// Growth may copy a list, and the copy touches fresh memory. So a list takes at once what the rest of the work will ask for
// if it goes on as before; what stays unused of that is never touched, and is given back in the end. If there is no memory
// for it, what is needed now will do.
bool reserve_entries(qx_long **list, qx_long *room, qx_long used, qx_long more, double done)
{
    const qx_long needed = used + more;
    if (needed <= *room && *list != nullptr) return true;
    const qx_long least = std::max(needed, *room + *room / 2);
    const qx_long expected =
        done > 0 ? static_cast<qx_long>(static_cast<double>(used) * 1.125 / done) + more : needed;
    for (const qx_long raised : {std::max(least, expected), least}) {
        if (!resize_numbers(list, raised)) continue;
        *room = raised;
        return true;
    }
    return false;
}

bool reserve_edges(mt_edge_table *edges, qx_long more)
{
    const qx_long needed = edges->count + more + 2; // tables grow when two places are left
    if (needed <= edges->capacity) return true;
    const qx_long raised = std::max<qx_long>(needed, edges->capacity + edges->capacity / 2);
    if (raised > INT32_MAX) return false;
    void *next = realloc(edges->next, static_cast<size_t>(raised) * sizeof(int));
    if (next == nullptr) return false;
    edges->next = static_cast<int *>(next);
    std::fill(edges->next + edges->capacity, edges->next + raised, 0);
    if (!resize_numbers(&edges->lo, raised) || !resize_numbers(&edges->hi, raised)) return false;
    edges->capacity = static_cast<int>(raised);
    return true;
}

cell_workers::~cell_workers()
{
    for (int k = 0; workers != nullptr && k < nworkers; ++k) {
        UTILmt_edge_table_delete(workers[k].edges);
        free(workers[k].place);
        for (worker_list &list : workers[k].lists) {
            free(list.connect);
            free(list.cell);
        }
    }
    free(workers);
}

// ---- extraction ------------------------------------------------------------------------------------------------

// Rows of cells from first_cell on, by number within the mesh, of which each has so many pieces.
bool cell_workers::take_rows(const row_stretch &rows, qx_long first_cell, qx_long pieces,
                             cell_worker *worker) const
{
    for (row_stretch part = rows; part.first < rows.end; part.first = part.end) {
        part.end = std::min(part.first + task.rows_a_call, rows.end);
        qx_long before[most_cell_lists];
        for (int l = 0; l < task.nlists; ++l)
            before[l] = worker->lists[l].ncells;
        if (!task.extract(task.operation, part, worker)) return false;
        for (int l = 0; l < task.nlists; ++l) {
            const worker_list &made = worker->lists[l];
            for (qx_long i = before[l]; pieces > 1 && i < made.ncells; ++i)
                made.cell[i] /= pieces;
            for (qx_long i = before[l]; first_cell != 0 && i < made.ncells; ++i)
                made.cell[i] += first_cell;
        }
    }
    return true;
}

// Cells first to end - 1 of a set. done: what the worker has done of its share.
int cell_workers::take_set(int set, qx_long first, qx_long end, cell_worker *worker, qx_long *done,
                           qx_long share) const
{
    const mesh_info &mesh = task.field->made;
    const qx_long *connect = task.field->sets[set].connect, cost = cost_of_cell(mesh, set),
                  first_in_mesh = mesh.cell_first[set];
    const int kind = task.field->sets[set].kind, nnodes = mesh.cell_nnodes[set];
    const bool whole = mesh.cell_order[set] < 2;
    const auto tesselate = set_function<tesselate_func>(&mesh, set, SLOT_TESSELATE);
    const qx_long step = whole ? std::max<qx_long>(entries_a_check / nnodes, 1) : block_cells;
    for (qx_long behind; first < end; *done += (behind - first) * cost, first = behind) {
        behind = std::min(first + step, end);
        if (is_stopped(*done, share, nullptr)) return HOST_STOPPED;
        // The lists of the first worker become those of all.
        worker->done =
            static_cast<double>(*done) / static_cast<double>(worker == workers ? share * nworkers : share);
        if (whole) {
            if (!take_rows({kind, nnodes, connect, first, behind}, first_in_mesh, 1, worker))
                return HOST_FAILED;
            continue;
        }
        qx_long npieces = 0, *pieces = nullptr;
        int piece_nnodes = 0;
        if (tesselate(behind - first, connect + first * nnodes, &npieces, &pieces, &piece_nnodes) != 1)
            return HOST_FAILED;
        const list_of<qx_long> held(pieces);
        const row_stretch rows = {kind_of_piece(mesh.cell_ndim[set]), piece_nnodes, pieces, 0, npieces};
        if (!take_rows(rows, first_in_mesh + first, npieces / (behind - first), worker)) return HOST_FAILED;
    }
    return HOST_DONE;
}

void cell_workers::work(int k)
{
    const mesh_info &mesh = task.field->made;
    cell_worker *const worker = &workers[k];
    worker->result = HOST_FAILED;
    worker->edges = UTILmt_edge_table_create(mesh.nnodes);
    if (worker->edges == nullptr) return;
    worker->result = HOST_DONE;
    const auto takes = [&](int set) { return task.takes(task.operation, task.field->sets[set].kind); };
    qx_long total = 0;
    for (int set = 0; set < mesh.ncell_sets; ++set)
        if (takes(set)) total += mesh.cell_count[set] * cost_of_cell(mesh, set);
    const qx_long begin = share_begin(total, k, nworkers), end = share_begin(total, k + 1, nworkers);
    qx_long before = 0, done = 0;
    for (int set = 0; worker->result == HOST_DONE && set < mesh.ncell_sets; ++set) {
        if (!takes(set)) continue;
        const qx_long cost = cost_of_cell(mesh, set), count = mesh.cell_count[set];
        const auto cell_at = [=](qx_long position) {
            return std::clamp<qx_long>((position - before + cost - 1) / cost, 0, count);
        };
        worker->result = take_set(set, cell_at(begin), cell_at(end), worker, &done, end - begin);
        before += count * cost;
    }
    if (worker->result != HOST_DONE || worker->edges->count == 0) return;
    const qx_long *lo = worker->edges->lo;
    const auto range = std::minmax_element(lo, lo + worker->edges->count);
    worker->lowest = *range.first;
    worker->highest = *range.second;
}

int cell_workers::extract()
{
    workers = allocate_zeroed<cell_worker>(nworkers);
    if (workers == nullptr) return HOST_FAILED;
    auto body = [this](int k) { work(k); };
    task.team->run(body);
    int result = HOST_DONE;
    for (int k = 0; k < nworkers; ++k) // to be stopped is no failure, whatever else has failed
        if (result != HOST_STOPPED && workers[k].result != HOST_DONE) result = workers[k].result;
    return result != HOST_STOPPED && is_stopped(1, 1, nullptr) ? static_cast<int>(HOST_STOPPED) : result;
}

// ---- one numbering -----------------------------------------------------------------------------------------------

bool cell_workers::find_places(int k)
{
    cell_worker &worker = workers[k];
    const mt_edge_table &edges = *worker.edges;
    worker.nfresh = edges.count;
    if (k == 0) return true;
    worker.nfresh = 0;
    if (!resize_numbers(&worker.place, edges.count)) return false;
    for (int e = 0; e < edges.count; ++e) {
        qx_long place = 0;
        for (int j = 0; place == 0 && j < k; ++j) {
            const cell_worker &earlier = workers[j];
            if (earlier.edges->count == 0 || edges.lo[e] < earlier.lowest || edges.lo[e] > earlier.highest)
                continue;
            const int same = find_edge(*earlier.edges, edges.lo[e], edges.hi[e]);
            if (same >= 0) place = met_before(j, same);
        }
        worker.place[e] = place < 0 ? place : worker.nfresh++;
    }
    return true;
}

qx_long cell_workers::joint_number(const cell_worker &worker, qx_long edge) const
{
    if (&worker == workers) return edge;
    const qx_long place = worker.place[edge];
    if (place >= 0) return worker.base + place;
    const qx_long met = -1 - place, owner = met % most_workers, same = met / most_workers;
    return workers[owner].base + (owner == 0 ? same : workers[owner].place[same]);
}

// Copies a share of what the workers behind the first one have made.
void cell_workers::copy_share(int share, qx_long *lo, qx_long *hi) const
{
    const int n = nworkers;
    const qx_long nold = task.nold;
    const worker_list *to = workers[0].lists;
    qx_long used[most_cell_lists], ncells[most_cell_lists];
    for (int l = 0; l < task.nlists; ++l) {
        used[l] = to[l].used;
        ncells[l] = to[l].ncells;
    }
    for (int k = 1; k < n; ++k) {
        const cell_worker &worker = workers[k];
        const mt_edge_table &edges = *worker.edges;
        for (qx_long e = share_begin(edges.count, share, n); e < share_begin(edges.count, share + 1, n);
             ++e) {
            if (worker.place[e] < 0) continue;
            lo[worker.base + worker.place[e]] = edges.lo[e];
            hi[worker.base + worker.place[e]] = edges.hi[e];
        }
        for (int l = 0; l < task.nlists; ++l) {
            const worker_list &from = worker.lists[l];
            const qx_long begin = share_begin(from.used, share, n),
                          end = share_begin(from.used, share + 1, n);
            for (qx_long i = begin; i < end; ++i)
                to[l].connect[used[l] + i] = from.connect[i] < nold
                                                 ? from.connect[i]
                                                 : nold + joint_number(worker, from.connect[i] - nold);
            const qx_long first = share_begin(from.ncells, share, n);
            std::copy_n(from.cell + first, share_begin(from.ncells, share + 1, n) - first,
                        to[l].cell + ncells[l] + first);
            used[l] += from.used;
            ncells[l] += from.ncells;
        }
    }
}

bool cell_workers::join(result_builder *result)
{
    bool found[most_workers] = {};
    auto find = [&](int k) { found[k] = find_places(k); };
    task.team->run(find);
    qx_long nnodes = 0;
    for (int k = 0; k < nworkers; ++k) {
        if (!found[k]) return false;
        workers[k].base = nnodes;
        nnodes += workers[k].nfresh;
    }
    qx_long used[most_cell_lists] = {}, ncells[most_cell_lists] = {};
    cell_worker &first = workers[0];
    for (int l = 0; l < task.nlists; ++l) {
        for (int k = 0; k < nworkers; ++k) {
            used[l] += workers[k].lists[l].used;
            ncells[l] += workers[k].lists[l].ncells;
        }
        if (used[l] > 0 && !resize_numbers(&first.lists[l].connect, used[l])) return false;
        if (ncells[l] > 0 && !resize_numbers(&first.lists[l].cell, ncells[l])) return false;
    }
    if (!resize_numbers(&first.edges->lo, nnodes) || !resize_numbers(&first.edges->hi, nnodes)) return false;
    auto copy = [&](int share) { copy_share(share, first.edges->lo, first.edges->hi); };
    if (nworkers > 1) task.team->run(copy);

    for (int l = 0; l < task.nlists; ++l) {
        if (used[l] == 0) continue;
        worker_list &list = first.lists[l];
        const int kind = task.kind_of_list[l];
        list_of<qx_long> connect(list.connect), cells(list.cell);
        list.connect = list.cell = nullptr;
        if (!result->add_set(kind, 1, used[l] / cell_kinds[kind].ncorners, std::move(connect),
                             std::move(cells)))
            return false;
    }
    list_of<qx_long> lo(first.edges->lo), hi(first.edges->hi);
    first.edges->lo = first.edges->hi = nullptr;
    result->add_new_nodes(nnodes, std::move(lo), std::move(hi));
    return true;
}
