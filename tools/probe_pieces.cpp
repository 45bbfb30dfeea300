#include "probe_pieces.hpp"

#include "packing.hpp"
#include "process_group.hpp"

#include <vtkDataArray.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

probe_answers::probe_answers(qx_long npoints_) : npoints(npoints_)
{
    best.inside.assign(static_cast<size_t>(npoints), 0);
    best.order.assign(static_cast<size_t>(npoints), probed_piece::none);
}

static size_t row_bytes(const typed_array &array)
{
    return static_cast<size_t>(array.kept->GetDataTypeSize()) * static_cast<size_t>(array.veclen);
}

// Rows without an answer are NaN, or 0 of integers.
void probe_answers::make_room(const std::vector<typed_array> &arrays_like)
{
    if (!best.arrays.empty()) return;
    for (const typed_array &one : arrays_like) {
        best.arrays.push_back(like(one, npoints));
        with_values(best.arrays.back(), [&](auto *values) {
            using T = std::remove_pointer_t<decltype(values)>;
            std::fill_n(values, npoints * one.veclen, std::numeric_limits<T>::quiet_NaN());
        });
    }
}

void probe_answers::take(qx_long point, int64_t order, const std::vector<typed_array> &from, qx_long row,
                         bool inside)
{
    const auto at = static_cast<size_t>(point);
    if (order >= best.order[at]) return;
    best.order[at] = order;
    best.inside[at] = inside ? 1 : 0;
    for (size_t a = 0; a < from.size(); ++a) {
        const size_t bytes = row_bytes(best.arrays[a]);
        memcpy(static_cast<char *>(best.arrays[a].values) + at * bytes,
               static_cast<const char *>(from[a].values) + static_cast<size_t>(row) * bytes, bytes);
    }
}

void probe_answers::add(const probed &piece)
{
    make_room(piece.arrays);
    for (qx_long i = 0; i < npoints; ++i) {
        const auto at = static_cast<size_t>(i);
        if (piece.order[at] != probed_piece::none)
            take(i, piece.order[at], piece.arrays, i, piece.inside[at] != 0);
    }
}

void probe_answers::gather()
{
    if (!processes::several()) return;
    if (!processes::is_first()) {
        packer packed;
        std::vector<qx_long> points;
        for (qx_long i = 0; i < npoints; ++i)
            if (best.order[static_cast<size_t>(i)] != probed_piece::none) points.push_back(i);
        packed.add_list(points);
        for (const qx_long i : points) {
            packed.add(best.order[static_cast<size_t>(i)]);
            packed.add(best.inside[static_cast<size_t>(i)]);
        }
        packed.add(best.arrays.size());
        for (const typed_array &array : best.arrays) {
            packed.add_text(array.name);
            packed.add(array.type);
            packed.add(array.veclen);
            const size_t bytes = row_bytes(array);
            std::string rows;
            for (const qx_long i : points)
                rows.append(static_cast<const char *>(array.values) + static_cast<size_t>(i) * bytes, bytes);
            packed.add_text(rows);
        }
        processes::send(packed.bytes, 0);
        return;
    }
    for (int from = 1; from < processes::size(); ++from) {
        const std::string text = processes::receive(from);
        unpacker packed(text);
        const auto points = packed.take_list<qx_long>();
        std::vector<int64_t> orders;
        std::vector<unsigned char> inside;
        for (size_t i = 0; i < points.size(); ++i) {
            orders.push_back(packed.take<int64_t>());
            inside.push_back(packed.take<unsigned char>());
        }
        std::vector<typed_array> arrays(packed.take<size_t>());
        for (typed_array &array : arrays) {
            array.name = packed.take_text();
            array.type = packed.take<int>();
            array.veclen = packed.take<int>();
            array = like(array, static_cast<qx_long>(points.size()));
            const std::string rows = packed.take_text();
            if (!rows.empty()) memcpy(array.values, rows.data(), rows.size());
        }
        make_room(arrays);
        for (size_t i = 0; i < points.size(); ++i)
            take(points[i], orders[i], arrays, static_cast<qx_long>(i), inside[i] != 0);
    }
}
