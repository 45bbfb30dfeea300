// The search of one block for many points at once.
//
// A list is taken a tile of cells at a time. The tile's boxes are worked out once, an axis's ends in a row, and
// each point is held against them four at a time, with limits a little wider than those of a single search.
// What remains is tried in the list's order with the box and mapping of a single search, so the answer is the
// same. A point that is found leaves, and the list is followed as long as there are points.
#pragma once

#include "find_cell.hpp"

#if defined(__SSE2__) && !defined(SKOKLANA_SCALAR)
#include <emmintrin.h>
#endif

struct located {
    qx_long cell;
    float uvw[3];
    bool found;
};

// A point that waits for its block, and which one it is of those located together.
struct queued_point {
    float point[3];
    unsigned index;
};

constexpr int tile_cells = 32;

// A table is filled cell by cell: where a block's list passes a row of cells, the entries of the next block
// stand close behind.
constexpr int entries_ahead = 16;

struct cell_tile {
    alignas(16) float low[3][tile_cells];
    alignas(16) float high[3][tile_cells];
    qx_long cells[tile_cells];
    int ncells;

    // Takes cells from a list, up to its end or a bad entry. The entry to go on with; 0: none. With a bad entry
    // at the head no cell is taken.
    template <int Nspace, typename Cells>
    qx_long fill(const Cells &from, const float *coords, const blk_tbl *table, qx_long entry)
    {
        for (ncells = 0; ncells < tile_cells && entry != 0; entry = table->next_list[entry]) {
            const qx_long cell = table->cell_list[entry];
            if (cell < 0) break;
            cells[ncells++] = cell;
            from.template ask_for_cell<Nspace>(coords, cell);
            const qx_long behind = std::min(entry + entries_ahead, table->list_used - 1);
            __builtin_prefetch(table->next_list + behind);
            __builtin_prefetch(table->cell_list + behind);
        }
        for (int k = 0; k < ncells; ++k) {
            cell_view view;
            lane_box box = empty_lane_box();
            if (from.look_up(cells[k], &view)) box = box_of_nodes<Nspace>(coords, view.nodes, view.nnodes);
            for (int d = 0; d < 3; ++d) {
                low[d][k] = box.min[d];
                high[d][k] = box.max[d];
            }
        }
        return entry;
    }

    // The cells whose boxes meet a window, a bit each.
    FORCE_INLINE unsigned meeting(const box_window &window) const
    {
        unsigned mask = 0;
#if defined(__SSE2__) && !defined(SKOKLANA_SCALAR)
        __m128 lowest[3], highest[3];
        for (int d = 0; d < 3; ++d) {
            lowest[d] = _mm_set1_ps(window.low[d]);
            highest[d] = _mm_set1_ps(window.high[d]);
        }
        for (int k = 0; k < ncells; k += 4) {
            __m128 outside = _mm_setzero_ps();
            for (int d = 0; d < 3; ++d) {
                outside = _mm_or_ps(outside, _mm_cmpgt_ps(_mm_load_ps(low[d] + k), highest[d]));
                outside = _mm_or_ps(outside, _mm_cmplt_ps(_mm_load_ps(high[d] + k), lowest[d]));
            }
            mask |= (~static_cast<unsigned>(_mm_movemask_ps(outside)) & 15u) << k;
        }
#else
        for (int k = 0; k < ncells; ++k) {
            bool outside = false;
            for (int d = 0; d < 3; ++d)
                outside = outside || low[d][k] > window.high[d] || high[d][k] < window.low[d];
            mask |= static_cast<unsigned>(!outside) << k;
        }
#endif
        return mask & (~0u >> (tile_cells - ncells)); // of ncells above 0
    }

    // Around all boxes.
    lane_box bounds() const
    {
        lane_box box = box_of(0);
        for (int k = 1; k < ncells; ++k) {
            const lane_box other = box_of(k);
            box.min = other.min < box.min ? other.min : box.min;
            box.max = other.max > box.max ? other.max : box.max;
        }
        return box;
    }

    lane_box box_of(int k) const
    {
        const lane_box box = {{low[0][k], low[1][k], low[2][k], 0}, {high[0][k], high[1][k], high[2][k], 0}};
        return box;
    }
};
static_assert(tile_cells == 32, "a bit of an unsigned each");

// Locates the points of a queue in the list of their block. The queue is used up.
template <int Nspace, typename Cells>
void search_block(const Cells &cells, const float *coords, const blk_tbl *table, qx_long entry,
                  queued_point *queue, queued_point *end, double tol, located *out)
{
    cell_tile tile;
    while (entry != 0 && queue != end) {
        entry = tile.fill<Nspace>(cells, coords, table, entry);
        if (tile.ncells == 0) return;
        queued_point *rest = queue;
        for (const queued_point *q = queue; q != end; ++q) {
            located *at = out + q->index; // far from the last one: written, not read
            bool found = false;
            for (unsigned mask = tile.meeting(box_window(q->point, tol)); mask != 0 && !found;
                 mask &= mask - 1) {
                const int k = __builtin_ctz(mask);
                cell_view view;
                if (!box_holds(tile.box_of(k), q->point, tol) || !cells.look_up(tile.cells[k], &view))
                    continue;
                found = map_into_cell<Nspace>(coords, view, q->point, at->uvw) > 0;
                if (!found) continue;
                at->cell = tile.cells[k];
                at->found = true;
            }
            if (!found) *rest++ = *q;
        }
        end = rest;
    }
}
