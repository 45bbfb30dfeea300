// Lists of a block table in a form that is quick to search, made while an operation locates many points.
//
// Most cells of a block's list fail by their boxes. A packed list holds each cell's box, widened by the
// tolerance, as six bytes on a scale of 256 steps across the block. A point is put on the same scale, and 16
// boxes are compared at once. What remains is tried in the list's order with the box and mapping of a single
// search, so the answer is the same. The scale
//
//     x -> clamp((x - origin) * 256 / width, 0, 255), truncated
//
// never falls as x rises, however it is rounded, so a box that holds the point holds it packed as well.
//
// Packing costs about as much as two searches of the list. A block is packed when it is searched for the second
// time, so that few points in many blocks lose nothing. All memory is asked for beforehand, for the blocks that
// can be searched twice; without it nothing is packed.
#pragma once

#include "find_cell.hpp"

#include <cstdlib>

#if defined(__SSE2__) && !defined(SKOKLANA_SCALAR)
#include <emmintrin.h>
#endif

constexpr int group_cells = 16;
constexpr int group_bytes = 6 * group_cells; // for each axis the boxes' low ends, then their high ends

// Followed in memory by the groups, then by the cells' numbers.
struct packed_list {
    double origin[3];
    qx_long ncells;

    static qx_long groups_of(qx_long ncells) { return (ncells + group_cells - 1) / group_cells; }
    static qx_long bytes_of(qx_long ncells)
    {
        return static_cast<qx_long>(sizeof(packed_list)) + groups_of(ncells) * group_bytes +
               ncells * static_cast<qx_long>(sizeof(qx_long));
    }

    unsigned char *groups() { return reinterpret_cast<unsigned char *>(this + 1); }
    qx_long *cells() { return reinterpret_cast<qx_long *>(groups() + groups_of(ncells) * group_bytes); }
};
static_assert(sizeof(packed_list) % sizeof(qx_long) == 0 && group_bytes % sizeof(qx_long) == 0,
              "cell numbers, and the next list behind them, are aligned");

FORCE_INLINE unsigned char on_scale(double x, double origin, double scale)
{
    const double at = (x - origin) * scale;
    return at > 0 ? at < 255 ? static_cast<unsigned char>(at) : 255 : 0;
}

// Which boxes of a group hold a place on the scale, a bit each.
FORCE_INLINE unsigned boxes_holding(const unsigned char *group, const unsigned char *at)
{
#if defined(__SSE2__) && !defined(SKOKLANA_SCALAR)
    __m128i hold = _mm_set1_epi8(-1);
    for (int d = 0; d < 3; ++d) {
        const __m128i *ends = reinterpret_cast<const __m128i *>(group + 2 * d * group_cells);
        const __m128i x = _mm_set1_epi8(static_cast<char>(at[d]));
        const __m128i above_low = _mm_cmpeq_epi8(_mm_max_epu8(_mm_loadu_si128(ends), x), x);
        const __m128i below_high = _mm_cmpeq_epi8(_mm_min_epu8(_mm_loadu_si128(ends + 1), x), x);
        hold = _mm_and_si128(hold, _mm_and_si128(above_low, below_high));
    }
    return static_cast<unsigned>(_mm_movemask_epi8(hold));
#else
    unsigned mask = 0;
    for (int c = 0; c < group_cells; ++c) {
        bool holds = true;
        for (int d = 0; d < 3; ++d) {
            const unsigned char *low = group + 2 * d * group_cells + c;
            holds = holds && low[0] <= at[d] && at[d] <= low[group_cells];
        }
        mask |= static_cast<unsigned>(holds) << c;
    }
    return mask;
#endif
}

// The cells of a packed list that may hold a point, in the list's order.
struct packed_search {
    packed_list *list = nullptr;
    unsigned char at[3];
    qx_long group;
    unsigned mask;

    void start(const float *point, const double *scale)
    {
        for (int d = 0; d < 3; ++d)
            at[d] = on_scale(point[d], list->origin[d], scale[d]);
        group = -1;
        mask = 0;
    }

    // The next one; -1: no more.
    qx_long next()
    {
        while (mask == 0) {
            if (++group >= packed_list::groups_of(list->ncells)) return -1;
            mask = boxes_holding(list->groups() + group * group_bytes, at);
        }
        const qx_long entry = group * group_cells + __builtin_ctz(mask);
        mask &= mask - 1;
        return list->cells()[entry];
    }
};

class packed_lists {
  public:
    double scale[3]; // of all blocks

    packed_lists() = default;
    packed_lists(const packed_lists &) = delete;
    packed_lists &operator=(const packed_lists &) = delete;
    ~packed_lists()
    {
        free(slots);
        free(arena);
    }

    void open(const block_finder &finder_, qx_long npts)
    {
        finder = &finder_;
        const blk_tbl *table = finder->table;
        for (int d = 0; d < 3; ++d) {
            const bool is_cut = d < finder->naxes && finder->extent[d] > 1e-30 && table->nblk > 1;
            width[d] = is_cut ? static_cast<double>(finder->extent[d]) / (table->nblk - 1) : 0;
            scale[d] = is_cut ? 256 / width[d] : 0;
        }
        // Lists of one entry each are the worst case.
        const qx_long most_lists = std::min(table->nblocks, npts / 2), most_entries = table->list_used;
        if (most_lists > most_bytes / packed_list::bytes_of(1) || most_entries > most_bytes / entry_bytes)
            return;
        size = most_lists * packed_list::bytes_of(1) + most_entries * entry_bytes;
        slots = static_cast<qx_long *>(calloc(static_cast<size_t>(table->nblocks), sizeof(qx_long)));
        arena = static_cast<unsigned char *>(malloc(static_cast<size_t>(size)));
    }

    // The packed list of a block that is about to be searched; null: none, search the list itself.
    template <int Nspace, typename Cells>
    packed_list *list_of(const Cells &cells, const float *coords, qx_long block)
    {
        if (slots == nullptr || arena == nullptr) return nullptr;
        if (slots[block] == never_searched) {
            slots[block] = searched_once;
            return nullptr;
        }
        if (slots[block] == searched_once) slots[block] = pack<Nspace>(cells, coords, block);
        return slots[block] >= first_place ? at_place(slots[block]) : nullptr;
    }

  private:
    // Entries of slots: what is known of a block, or its list's place in the arena plus first_place.
    static constexpr qx_long never_searched = 0, searched_once = 1, not_packed = 2, first_place = 3;
    static constexpr qx_long most_bytes = qx_long{1} << 60;
    static constexpr qx_long entry_bytes = sizeof(qx_long) + group_bytes / group_cells;

    packed_list *at_place(qx_long slot) const
    {
        return reinterpret_cast<packed_list *>(arena + (slot - first_place));
    }

    // What becomes of a block's slot. A list that would not fit stays as it is; one with a bad entry ends there.
    template <int Nspace, typename Cells> qx_long pack(const Cells &cells, const float *coords, qx_long block)
    {
        const blk_tbl *table = finder->table;
        const auto entries = [&](auto each) {
            qx_long entry = table->blocks[block];
            for (; entry != 0 && table->cell_list[entry] >= 0; entry = table->next_list[entry])
                if (!each(table->cell_list[entry])) return false;
            return true;
        };
        qx_long ncells = 0;
        if (!entries([&](qx_long) { return packed_list::bytes_of(++ncells) <= size - used; }))
            return not_packed;

        const qx_long slot = first_place + used;
        used += packed_list::bytes_of(ncells);
        packed_list *list = at_place(slot);
        list->ncells = ncells;
        const qx_long at[3] = {block % table->nblk, block / table->nblk % table->nblk,
                               block / table->nblk / table->nblk};
        for (int d = 0; d < 3; ++d)
            list->origin[d] = table->min_ext[d] + static_cast<double>(at[d]) * width[d];

        // Places that no box is put in hold nothing: each of these ends excludes what the other lets through.
        for (qx_long half = 0; half < packed_list::groups_of(ncells) * 6; ++half)
            memset(list->groups() + half * group_cells, half % 2 == 0 ? 255 : 0, group_cells);
        qx_long k = 0;
        entries([&](qx_long cell) {
            cell_view view;
            if (cells.look_up(cell, &view))
                put_box(list, k, box_of_nodes<Nspace>(coords, view.nodes, view.nnodes));
            list->cells()[k++] = cell;
            return true;
        });
        return slot;
    }

    void put_box(packed_list *list, qx_long k, const lane_box &box) const
    {
        unsigned char *low = list->groups() + k / group_cells * group_bytes + k % group_cells;
        for (int d = 0; d < 3; ++d, low += 2 * group_cells) {
            low[0] = on_scale(box.min[d] - static_cast<double>(finder->tol), list->origin[d], scale[d]);
            low[group_cells] =
                on_scale(box.max[d] + static_cast<double>(finder->tol), list->origin[d], scale[d]);
        }
    }

    const block_finder *finder = nullptr;
    double width[3];
    qx_long *slots = nullptr; // by block
    unsigned char *arena = nullptr;
    qx_long used = 0, size = 0; // bytes
};
