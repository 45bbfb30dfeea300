// Keys of cells by a single level: what a pattern of corners above and below it is looked up by.
#pragma once

// Keys of a single level: bit b is the flag of corner corner_of_bit[b], 0 or 1. Flag 2 is null.
template <int Corners> struct level_keys {
    static constexpr int ncorners = Corners;
    static constexpr int last_case = (1 << Corners) - 1;
    static constexpr int null_mark = 2;
    static int bits_of(int flag) { return flag; }
    static bool is_mixed(int key)
    {
        return static_cast<unsigned>(key - 1) < static_cast<unsigned>(last_case - 1);
    }
    static bool is_whole(int key) { return key == last_case; }
};
