// Rows of bits: 64 a word, each row from a word of its own.
//
//     |zero|row 0, word 0|word 1|...|zero|row 1, word 0|word 1|...|zero|
//
// Between the rows stands a word of zeros: bit -1 of a row and the word behind its last are there and 0. What
// a row holds behind its last bit, up to the end of the word, is for its writer to say.
#pragma once

#include "simd.hpp"

#include <skoklana/types.h>

#include <cstdint>

using bit_word = uint64_t;
constexpr int word_bits = 64;

inline qx_long words_for(qx_long nbits)
{
    return (nbits + word_bits - 1) / word_bits;
}

// A word's bits moved to the neighbour below or above, its end bit taken from the word on that side.
FORCE_INLINE bit_word from_next(bit_word word, bit_word next)
{
    return word >> 1 | next << (word_bits - 1);
}

FORCE_INLINE bit_word from_previous(bit_word word, bit_word previous)
{
    return word << 1 | previous >> (word_bits - 1);
}

FORCE_INLINE unsigned bit_at(const bit_word *row, qx_long i)
{
    return static_cast<unsigned>(row[i >> 6] >> (i & 63) & 1);
}

inline int count_set_bits(bit_word word)
{
    word -= word >> 1 & 0x5555555555555555u;
    word = (word & 0x3333333333333333u) + (word >> 2 & 0x3333333333333333u);
    word = (word + (word >> 4)) & 0x0f0f0f0f0f0f0f0fu;
    return static_cast<int>(word * 0x0101010101010101u >> 56);
}

inline void set_first_bits(bit_word *row, qx_long nbits)
{
    for (; nbits > 0; ++row, nbits -= word_bits)
        *row = nbits < word_bits ? (bit_word(1) << nbits) - 1 : ~bit_word(0);
}

// Calls body(first, count) for each run of set bits.
template <typename Body> void for_each_run(const bit_word *words, int nwords, Body body)
{
    int begun = -1; // a run that goes on from the word before
    for (int w = 0; w < nwords; ++w) {
        bit_word left = words[w];
        if (begun >= 0) {
            if (~left == 0) continue;
            const int end = __builtin_ctzll(~left);
            body(begun, w * word_bits + end - begun);
            begun = -1;
            left &= ~bit_word(0) << end;
        }
        while (left != 0) {
            const int first = __builtin_ctzll(left);
            const bit_word beyond = ~left & ~bit_word(0) << first;
            if (beyond == 0) {
                begun = w * word_bits + first;
                break;
            }
            const int end = __builtin_ctzll(beyond);
            body(w * word_bits + first, end - first);
            left &= ~bit_word(0) << end;
        }
    }
    if (begun >= 0) body(begun, nwords * word_bits - begun);
}

// Rows in a block of zeroed words that someone else owns.
struct bit_plane {
    bit_word *words;
    qx_long stride; // words from a row to the next

    static qx_long stride_of(qx_long ncols) { return words_for(ncols) + 1; }
    static qx_long length(qx_long ncols, qx_long nrows) { return 1 + stride_of(ncols) * nrows; }

    // NULL where there are no bits: planes of nulls are left out of meshes without them.
    bit_word *row(qx_long j) const { return words == nullptr ? nullptr : words + 1 + j * stride; }
};
