// What a piece knows of its nodes or cells: which are its own, and which number each has in the whole.
//
// Pieces of lattices are slabs, whose own nodes and cells follow one another: only the ends of that stretch are kept.
// Others have a list.
#pragma once

#include "packing.hpp"

#include <vtkType.h>

#include <cstddef>
#include <utility>
#include <vector>

// Marks of what a piece has around its own: 0 of its own.
class piece_marks {
  public:
    piece_marks() = default; // there is nothing around
    piece_marks(std::vector<unsigned char> of) : list(std::move(of)), count(list.size()) {}
    // Of so many all but those from first to before end.
    piece_marks(size_t first_, size_t end_, size_t count_) : first(first_), end(end_), count(count_) {}

    bool empty() const { return count == 0; }
    size_t size() const { return count; }
    unsigned char operator[](size_t at) const
    {
        if (!list.empty()) return list[at];
        return at < first || at >= end ? 1 : 0;
    }
    // Marks of the others: those of its own.
    std::vector<unsigned char> own() const
    {
        std::vector<unsigned char> out(count);
        for (size_t at = 0; at < count; ++at)
            out[at] = (*this)[at] == 0 ? 1 : 0;
        return out;
    }
    // Of a slab: the ends of the stretch.
    size_t first_own() const { return first; }
    size_t end_of_own() const { return end; }

    void pack(packer *to) const
    {
        to->add_list(list);
        for (const size_t value : {first, end, count})
            to->add(value);
    }
    explicit piece_marks(unpacker *from) : list(from->take_list<unsigned char>())
    {
        for (size_t *value : {&first, &end, &count})
            *value = from->take<size_t>();
    }

  private:
    std::vector<unsigned char> list;
    size_t first = 0, end = 0, count = 0;
};

// The number of each node in the first piece that has it; below 0 in others.
class piece_numbers {
  public:
    piece_numbers() = default; // of no use
    piece_numbers(std::vector<vtkIdType> of) : list(std::move(of)), count(list.size()) {}
    // Of so many the ones from first to before end, which have the numbers from number on.
    piece_numbers(size_t first_, size_t end_, size_t count_, vtkIdType number_)
        : first(first_), end(end_), count(count_), number(number_)
    {
    }

    bool empty() const { return count == 0; }
    size_t size() const { return count; }
    vtkIdType operator[](size_t at) const
    {
        if (!list.empty()) return list[at];
        return at < first || at >= end ? -1 : number + static_cast<vtkIdType>(at - first);
    }
    // Those of so many nodes of a slab from one on, as a slab of their own.
    piece_numbers part(size_t from, size_t of) const
    {
        const auto within = [&](size_t at) { return at < from ? 0 : at - from < of ? at - from : of; };
        const size_t skipped = first < from ? from - first : 0;
        return {within(first), within(end), of, number + static_cast<vtkIdType>(skipped)};
    }

    void pack(packer *to) const
    {
        to->add_list(list);
        for (const size_t value : {first, end, count})
            to->add(value);
        to->add(number);
    }
    explicit piece_numbers(unpacker *from) : list(from->take_list<vtkIdType>())
    {
        for (size_t *value : {&first, &end, &count})
            *value = from->take<size_t>();
        number = from->take<vtkIdType>();
    }

  private:
    std::vector<vtkIdType> list;
    size_t first = 0, end = 0, count = 0;
    vtkIdType number = 0;
};
