// Items with boxes on a grid, found by the boxes that they may meet.
//
// Cells of several sizes, each four times the last. An item stands once, in a list of the smallest cells that are as
// wide and high as its box, at the cell of its low corner. So it comes and goes in no time, needs no memory of its own,
// and each search meets it once. A search looks through the cells of every size that has items.
#pragma once

#include "height_test.hpp"
#include "memory.hpp"

#include <algorithm>

struct plane_box {
    grid_place low, high;
};

inline plane_box box_of(grid_place a, grid_place b)
{
    return {{std::min(a.i, b.i), std::min(a.j, b.j)}, {std::max(a.i, b.i), std::max(a.j, b.j)}};
}

struct box_link {
    int next, prev; // in the list of the cell; -1: none
    int level = -1; // -1: not among the boxes
    int cell = 0;
};

// Items are array elements that hold the link; they may move as long as they keep their numbers.
template <typename Item, box_link Item::*link> struct plane_boxes {
    struct cell_size {
        int shift, first; // cells of 1 << shift nodes, from head[first] on
        qx_long nx, ny;
        qx_long nitems;
    };

    cell_size levels[32];
    int nlevels = 0;
    int *head = nullptr;

    plane_boxes() = default;
    plane_boxes(const plane_boxes &) = delete;
    plane_boxes &operator=(const plane_boxes &) = delete;
    ~plane_boxes() { free(head); }

    bool open(const qx_long *dims)
    {
        constexpr qx_long most_cells = qx_long{1} << 20; // of the smallest size
        const auto along = [&](int d, int shift) { return ((dims[d] - 1) >> shift) + 1; };
        int shift = 2, ncells = 0;
        while (along(0, shift) > most_cells / along(1, shift))
            ++shift;
        for (;; shift += 2) {
            const qx_long nx = along(0, shift), ny = along(1, shift);
            levels[nlevels++] = {shift, ncells, nx, ny, 0};
            ncells += static_cast<int>(nx * ny);
            if (nx * ny == 1) break;
        }
        head = static_cast<int *>(malloc(static_cast<size_t>(ncells) * sizeof(int)));
        if (head == nullptr) return false;
        std::fill_n(head, ncells, -1);
        return true;
    }

    void insert(Item *items, int item, const plane_box &box)
    {
        const qx_long extent = std::max(box.high.i - box.low.i, box.high.j - box.low.j);
        int l = 0;
        while (extent > qx_long{1} << levels[l].shift && l < nlevels - 1)
            ++l;
        cell_size &size = levels[l];
        const qx_long cell = (box.low.j >> size.shift) * size.nx + (box.low.i >> size.shift);
        box_link &of = items[item].*link;
        of.level = l;
        of.cell = size.first + static_cast<int>(cell);
        of.prev = -1;
        of.next = head[of.cell];
        if (of.next >= 0) (items[of.next].*link).prev = item;
        head[of.cell] = item;
        ++size.nitems;
    }

    // One that is not there is taken too.
    void remove(Item *items, int item)
    {
        box_link &of = items[item].*link;
        if (of.level < 0) return;
        if (of.next >= 0) (items[of.next].*link).prev = of.prev;
        (of.prev >= 0 ? (items[of.prev].*link).next : head[of.cell]) = of.next;
        --levels[of.level].nitems;
        of.level = -1;
    }

    // How many cells a search of the box looks into.
    qx_long cells_of(const plane_box &box) const
    {
        qx_long ncells = 0;
        for (int l = 0; l < nlevels; ++l)
            if (levels[l].nitems > 0) {
                const int shift = levels[l].shift;
                ncells +=
                    (((box.high.i - box.low.i) >> shift) + 3) * (((box.high.j - box.low.j) >> shift) + 3);
            }
        return ncells;
    }

    // The first item for which visit(item) is true; -1: none. visit sees each item whose box meets this one, and
    // others. It may take the item that it sees away, no other.
    template <typename Visit> int find(const Item *items, const plane_box &box, Visit visit) const
    {
        for (int l = 0; l < nlevels; ++l) {
            const cell_size &size = levels[l];
            if (size.nitems == 0) continue;
            const qx_long width = qx_long{1} << size.shift;
            const qx_long x0 = std::max<qx_long>(box.low.i - width, 0) >> size.shift;
            const qx_long y0 = std::max<qx_long>(box.low.j - width, 0) >> size.shift;
            const qx_long x1 = std::min(box.high.i >> size.shift, size.nx - 1);
            const qx_long y1 = std::min(box.high.j >> size.shift, size.ny - 1);
            for (qx_long y = y0; y <= y1; ++y)
                for (qx_long x = x0; x <= x1; ++x)
                    for (int item = head[size.first + y * size.nx + x]; item >= 0;) {
                        const int next = (items[item].*link).next;
                        if (visit(item)) return item;
                        item = next;
                    }
        }
        return -1;
    }
};
