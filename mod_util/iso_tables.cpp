// Isosurface case tables.
//
// A row lists the crossings of one pattern of corners, polygon by polygon: a digit pair is a crossed cell
// edge, left corner then right corner, and a slash ends a polygon. Everything exported here is derived from
// these rows at compile time, and so are the flat records of iso_cases.hpp.
//
// Corners with values at or above the level are flagged. The comment before a row names them, at their own
// places; the number is the case index, whose bit order is that of corner_of_bit. Each cell edge with one
// flagged end is crossed once. Polygons are what closes when the crossings of every face are joined: two by
// a segment, four by two segments of which each cuts off one flagged corner. This looks at the face alone, so
// neighbours agree on it and the surface has no holes, at the price that a case and its complement differ.
//
// Hexes, prisms and pyramids name the flagged corner first, tetrahedra the other one. Right-hand normals
// point away from the flagged corners for hexes and prisms, towards them for pyramids and tetrahedra.
//
// Lorensen and Cline. Marching cubes: a high resolution 3D surface construction algorithm. 1987
#include <skoklana/tables.h>

#include "iso_cases.hpp"
#include "lattice_cases.hpp"

// clang-format off

//        7--------6        bit  x + 2z + 4y
//       /|       /|
//      4--------5 |        z  y
//      | 3------|-2        | /
//      |/       |/         |/
//      0--------1          +--- x
constexpr const char *hex_rows[256] = {
    /*   0  -------- */ "",
    /*   1  0------- */ "01 03 04",
    /*   2  -1------ */ "12 10 15",
    /*   3  01------ */ "12 03 04 15",
    /*   4  ----4--- */ "47 45 40",
    /*   5  0---4--- */ "01 03 47 45",
    /*   6  -1--4--- */ "12 10 15 / 47 45 40",
    /*   7  01--4--- */ "12 03 47 45 15",
    /*   8  -----5-- */ "56 51 54",
    /*   9  0----5-- */ "01 03 04 / 56 51 54",
    /*  10  -1---5-- */ "12 10 54 56",
    /*  11  01---5-- */ "12 03 04 54 56",
    /*  12  ----45-- */ "56 51 40 47",
    /*  13  0---45-- */ "01 03 47 56 51",
    /*  14  -1--45-- */ "12 10 40 47 56",
    /*  15  01--45-- */ "12 03 47 56",
    /*  16  ---3---- */ "30 32 37",
    /*  17  0--3---- */ "01 32 37 04",
    /*  18  -1-3---- */ "30 32 37 / 12 10 15",
    /*  19  01-3---- */ "12 32 37 04 15",
    /*  20  ---34--- */ "30 32 37 / 47 45 40",
    /*  21  0--34--- */ "01 32 37 47 45",
    /*  22  -1-34--- */ "30 32 37 / 12 10 15 / 47 45 40",
    /*  23  01-34--- */ "12 32 37 47 45 15",
    /*  24  ---3-5-- */ "30 32 37 / 56 51 54",
    /*  25  0--3-5-- */ "01 32 37 04 / 56 51 54",
    /*  26  -1-3-5-- */ "30 32 37 / 12 10 54 56",
    /*  27  01-3-5-- */ "12 32 37 04 54 56",
    /*  28  ---345-- */ "30 32 37 / 56 51 40 47",
    /*  29  0--345-- */ "01 32 37 47 56 51",
    /*  30  -1-345-- */ "30 32 37 / 12 10 40 47 56",
    /*  31  01-345-- */ "12 32 37 47 56",
    /*  32  --2----- */ "23 21 26",
    /*  33  0-2----- */ "01 03 04 / 23 21 26",
    /*  34  -12----- */ "23 10 15 26",
    /*  35  012----- */ "23 03 04 15 26",
    /*  36  --2-4--- */ "23 21 26 / 47 45 40",
    /*  37  0-2-4--- */ "01 03 47 45 / 23 21 26",
    /*  38  -12-4--- */ "23 10 15 26 / 47 45 40",
    /*  39  012-4--- */ "23 03 47 45 15 26",
    /*  40  --2--5-- */ "23 21 26 / 56 51 54",
    /*  41  0-2--5-- */ "01 03 04 / 23 21 26 / 56 51 54",
    /*  42  -12--5-- */ "23 10 54 56 26",
    /*  43  012--5-- */ "23 03 04 54 56 26",
    /*  44  --2-45-- */ "23 21 26 / 56 51 40 47",
    /*  45  0-2-45-- */ "01 03 47 56 51 / 23 21 26",
    /*  46  -12-45-- */ "23 10 40 47 56 26",
    /*  47  012-45-- */ "23 03 47 56 26",
    /*  48  --23---- */ "30 21 26 37",
    /*  49  0-23---- */ "01 21 26 37 04",
    /*  50  -123---- */ "30 10 15 26 37",
    /*  51  0123---- */ "15 26 37 04",
    /*  52  --234--- */ "30 21 26 37 / 47 45 40",
    /*  53  0-234--- */ "01 21 26 37 47 45",
    /*  54  -1234--- */ "30 10 15 26 37 / 47 45 40",
    /*  55  01234--- */ "15 26 37 47 45",
    /*  56  --23-5-- */ "30 21 26 37 / 56 51 54",
    /*  57  0-23-5-- */ "01 21 26 37 04 / 56 51 54",
    /*  58  -123-5-- */ "30 10 54 56 26 37",
    /*  59  0123-5-- */ "56 26 37 04 54",
    /*  60  --2345-- */ "30 21 26 37 / 56 51 40 47",
    /*  61  0-2345-- */ "01 21 26 37 47 56 51",
    /*  62  -12345-- */ "30 10 40 47 56 26 37",
    /*  63  012345-- */ "56 26 37 47",
    /*  64  -------7 */ "76 74 73",
    /*  65  0------7 */ "01 03 04 / 76 74 73",
    /*  66  -1-----7 */ "12 10 15 / 76 74 73",
    /*  67  01-----7 */ "12 03 04 15 / 76 74 73",
    /*  68  ----4--7 */ "76 45 40 73",
    /*  69  0---4--7 */ "01 03 73 76 45",
    /*  70  -1--4--7 */ "12 10 15 / 76 45 40 73",
    /*  71  01--4--7 */ "12 03 73 76 45 15",
    /*  72  -----5-7 */ "56 51 54 / 76 74 73",
    /*  73  0----5-7 */ "01 03 04 / 56 51 54 / 76 74 73",
    /*  74  -1---5-7 */ "12 10 54 56 / 76 74 73",
    /*  75  01---5-7 */ "12 03 04 54 56 / 76 74 73",
    /*  76  ----45-7 */ "56 51 40 73 76",
    /*  77  0---45-7 */ "01 03 73 76 56 51",
    /*  78  -1--45-7 */ "12 10 40 73 76 56",
    /*  79  01--45-7 */ "12 03 73 76 56",
    /*  80  ---3---7 */ "30 32 76 74",
    /*  81  0--3---7 */ "01 32 76 74 04",
    /*  82  -1-3---7 */ "30 32 76 74 / 12 10 15",
    /*  83  01-3---7 */ "12 32 76 74 04 15",
    /*  84  ---34--7 */ "30 32 76 45 40",
    /*  85  0--34--7 */ "01 32 76 45",
    /*  86  -1-34--7 */ "30 32 76 45 40 / 12 10 15",
    /*  87  01-34--7 */ "12 32 76 45 15",
    /*  88  ---3-5-7 */ "30 32 76 74 / 56 51 54",
    /*  89  0--3-5-7 */ "01 32 76 74 04 / 56 51 54",
    /*  90  -1-3-5-7 */ "30 32 76 74 / 12 10 54 56",
    /*  91  01-3-5-7 */ "12 32 76 74 04 54 56",
    /*  92  ---345-7 */ "30 32 76 56 51 40",
    /*  93  0--345-7 */ "01 32 76 56 51",
    /*  94  -1-345-7 */ "30 32 76 56 12 10 40",
    /*  95  01-345-7 */ "12 32 76 56",
    /*  96  --2----7 */ "23 21 26 / 76 74 73",
    /*  97  0-2----7 */ "01 03 04 / 23 21 26 / 76 74 73",
    /*  98  -12----7 */ "23 10 15 26 / 76 74 73",
    /*  99  012----7 */ "23 03 04 15 26 / 76 74 73",
    /* 100  --2-4--7 */ "23 21 26 / 76 45 40 73",
    /* 101  0-2-4--7 */ "01 03 73 76 45 / 23 21 26",
    /* 102  -12-4--7 */ "23 10 15 26 / 76 45 40 73",
    /* 103  012-4--7 */ "23 03 73 76 45 15 26",
    /* 104  --2--5-7 */ "23 21 26 / 56 51 54 / 76 74 73",
    /* 105  0-2--5-7 */ "01 03 04 / 23 21 26 / 56 51 54 / 76 74 73",
    /* 106  -12--5-7 */ "23 10 54 56 26 / 76 74 73",
    /* 107  012--5-7 */ "23 03 04 54 56 26 / 76 74 73",
    /* 108  --2-45-7 */ "23 21 26 / 56 51 40 73 76",
    /* 109  0-2-45-7 */ "01 03 73 76 56 51 / 23 21 26",
    /* 110  -12-45-7 */ "23 10 40 73 76 56 26",
    /* 111  012-45-7 */ "23 03 73 76 56 26",
    /* 112  --23---7 */ "30 21 26 76 74",
    /* 113  0-23---7 */ "01 21 26 76 74 04",
    /* 114  -123---7 */ "30 10 15 26 76 74",
    /* 115  0123---7 */ "15 26 76 74 04",
    /* 116  --234--7 */ "30 21 26 76 45 40",
    /* 117  0-234--7 */ "01 21 26 76 45",
    /* 118  -1234--7 */ "30 10 15 26 76 45 40",
    /* 119  01234--7 */ "15 26 76 45",
    /* 120  --23-5-7 */ "30 21 26 76 74 / 56 51 54",
    /* 121  0-23-5-7 */ "01 21 26 76 74 04 / 56 51 54",
    /* 122  -123-5-7 */ "30 10 54 56 26 76 74",
    /* 123  0123-5-7 */ "56 26 76 74 04 54",
    /* 124  --2345-7 */ "30 21 26 76 56 51 40",
    /* 125  0-2345-7 */ "01 21 26 76 56 51",
    /* 126  -12345-7 */ "30 10 40 / 56 26 76",
    /* 127  012345-7 */ "56 26 76",
    /* 128  ------6- */ "62 65 67",
    /* 129  0-----6- */ "01 03 04 / 62 65 67",
    /* 130  -1----6- */ "12 10 15 / 62 65 67",
    /* 131  01----6- */ "12 03 04 15 / 62 65 67",
    /* 132  ----4-6- */ "62 65 67 / 47 45 40",
    /* 133  0---4-6- */ "01 03 47 45 / 62 65 67",
    /* 134  -1--4-6- */ "12 10 15 / 62 65 67 / 47 45 40",
    /* 135  01--4-6- */ "12 03 47 45 15 / 62 65 67",
    /* 136  -----56- */ "62 51 54 67",
    /* 137  0----56- */ "01 03 04 / 62 51 54 67",
    /* 138  -1---56- */ "12 10 54 67 62",
    /* 139  01---56- */ "12 03 04 54 67 62",
    /* 140  ----456- */ "62 51 40 47 67",
    /* 141  0---456- */ "01 03 47 67 62 51",
    /* 142  -1--456- */ "12 10 40 47 67 62",
    /* 143  01--456- */ "12 03 47 67 62",
    /* 144  ---3--6- */ "30 32 37 / 62 65 67",
    /* 145  0--3--6- */ "01 32 37 04 / 62 65 67",
    /* 146  -1-3--6- */ "30 32 37 / 12 10 15 / 62 65 67",
    /* 147  01-3--6- */ "12 32 37 04 15 / 62 65 67",
    /* 148  ---34-6- */ "30 32 37 / 62 65 67 / 47 45 40",
    /* 149  0--34-6- */ "01 32 37 47 45 / 62 65 67",
    /* 150  -1-34-6- */ "30 32 37 / 12 10 15 / 62 65 67 / 47 45 40",
    /* 151  01-34-6- */ "12 32 37 47 45 15 / 62 65 67",
    /* 152  ---3-56- */ "30 32 37 / 62 51 54 67",
    /* 153  0--3-56- */ "01 32 37 04 / 62 51 54 67",
    /* 154  -1-3-56- */ "30 32 37 / 12 10 54 67 62",
    /* 155  01-3-56- */ "12 32 37 04 54 67 62",
    /* 156  ---3456- */ "30 32 37 / 62 51 40 47 67",
    /* 157  0--3456- */ "01 32 37 47 67 62 51",
    /* 158  -1-3456- */ "30 32 37 / 12 10 40 47 67 62",
    /* 159  01-3456- */ "12 32 37 47 67 62",
    /* 160  --2---6- */ "23 21 65 67",
    /* 161  0-2---6- */ "01 03 04 / 23 21 65 67",
    /* 162  -12---6- */ "23 10 15 65 67",
    /* 163  012---6- */ "23 03 04 15 65 67",
    /* 164  --2-4-6- */ "23 21 65 67 / 47 45 40",
    /* 165  0-2-4-6- */ "01 03 47 45 / 23 21 65 67",
    /* 166  -12-4-6- */ "23 10 15 65 67 / 47 45 40",
    /* 167  012-4-6- */ "23 03 47 45 15 65 67",
    /* 168  --2--56- */ "23 21 51 54 67",
    /* 169  0-2--56- */ "01 03 04 / 23 21 51 54 67",
    /* 170  -12--56- */ "23 10 54 67",
    /* 171  012--56- */ "23 03 04 54 67",
    /* 172  --2-456- */ "23 21 51 40 47 67",
    /* 173  0-2-456- */ "01 03 47 67 23 21 51",
    /* 174  -12-456- */ "23 10 40 47 67",
    /* 175  012-456- */ "23 03 47 67",
    /* 176  --23--6- */ "30 21 65 67 37",
    /* 177  0-23--6- */ "01 21 65 67 37 04",
    /* 178  -123--6- */ "30 10 15 65 67 37",
    /* 179  0123--6- */ "15 65 67 37 04",
    /* 180  --234-6- */ "30 21 65 67 37 / 47 45 40",
    /* 181  0-234-6- */ "01 21 65 67 37 47 45",
    /* 182  -1234-6- */ "30 10 15 65 67 37 / 47 45 40",
    /* 183  01234-6- */ "15 65 67 37 47 45",
    /* 184  --23-56- */ "30 21 51 54 67 37",
    /* 185  0-23-56- */ "01 21 51 54 67 37 04",
    /* 186  -123-56- */ "30 10 54 67 37",
    /* 187  0123-56- */ "54 67 37 04",
    /* 188  --23456- */ "30 21 51 40 47 67 37",
    /* 189  0-23456- */ "01 21 51 / 47 67 37",
    /* 190  -123456- */ "30 10 40 47 67 37",
    /* 191  0123456- */ "47 67 37",
    /* 192  ------67 */ "62 65 74 73",
    /* 193  0-----67 */ "01 03 04 / 62 65 74 73",
    /* 194  -1----67 */ "12 10 15 / 62 65 74 73",
    /* 195  01----67 */ "12 03 04 15 / 62 65 74 73",
    /* 196  ----4-67 */ "62 65 45 40 73",
    /* 197  0---4-67 */ "01 03 73 62 65 45",
    /* 198  -1--4-67 */ "12 10 15 / 62 65 45 40 73",
    /* 199  01--4-67 */ "12 03 73 62 65 45 15",
    /* 200  -----567 */ "62 51 54 74 73",
    /* 201  0----567 */ "01 03 04 / 62 51 54 74 73",
    /* 202  -1---567 */ "12 10 54 74 73 62",
    /* 203  01---567 */ "12 03 04 54 74 73 62",
    /* 204  ----4567 */ "62 51 40 73",
    /* 205  0---4567 */ "01 03 73 62 51",
    /* 206  -1--4567 */ "12 10 40 73 62",
    /* 207  01--4567 */ "12 03 73 62",
    /* 208  ---3--67 */ "30 32 62 65 74",
    /* 209  0--3--67 */ "01 32 62 65 74 04",
    /* 210  -1-3--67 */ "30 32 62 65 74 / 12 10 15",
    /* 211  01-3--67 */ "12 32 62 65 74 04 15",
    /* 212  ---34-67 */ "30 32 62 65 45 40",
    /* 213  0--34-67 */ "01 32 62 65 45",
    /* 214  -1-34-67 */ "30 32 62 65 45 40 / 12 10 15",
    /* 215  01-34-67 */ "12 32 62 65 45 15",
    /* 216  ---3-567 */ "30 32 62 51 54 74",
    /* 217  0--3-567 */ "01 32 62 51 54 74 04",
    /* 218  -1-3-567 */ "30 32 62 12 10 54 74",
    /* 219  01-3-567 */ "12 32 62 / 54 74 04",
    /* 220  ---34567 */ "30 32 62 51 40",
    /* 221  0--34567 */ "01 32 62 51",
    /* 222  -1-34567 */ "30 32 62 12 10 40",
    /* 223  01-34567 */ "12 32 62",
    /* 224  --2---67 */ "23 21 65 74 73",
    /* 225  0-2---67 */ "01 03 04 / 23 21 65 74 73",
    /* 226  -12---67 */ "23 10 15 65 74 73",
    /* 227  012---67 */ "23 03 04 15 65 74 73",
    /* 228  --2-4-67 */ "23 21 65 45 40 73",
    /* 229  0-2-4-67 */ "01 03 73 23 21 65 45",
    /* 230  -12-4-67 */ "23 10 15 65 45 40 73",
    /* 231  012-4-67 */ "23 03 73 / 15 65 45",
    /* 232  --2--567 */ "23 21 51 54 74 73",
    /* 233  0-2--567 */ "01 03 04 / 23 21 51 54 74 73",
    /* 234  -12--567 */ "23 10 54 74 73",
    /* 235  012--567 */ "23 03 04 54 74 73",
    /* 236  --2-4567 */ "23 21 51 40 73",
    /* 237  0-2-4567 */ "01 03 73 23 21 51",
    /* 238  -12-4567 */ "23 10 40 73",
    /* 239  012-4567 */ "23 03 73",
    /* 240  --23--67 */ "30 21 65 74",
    /* 241  0-23--67 */ "01 21 65 74 04",
    /* 242  -123--67 */ "30 10 15 65 74",
    /* 243  0123--67 */ "15 65 74 04",
    /* 244  --234-67 */ "30 21 65 45 40",
    /* 245  0-234-67 */ "01 21 65 45",
    /* 246  -1234-67 */ "30 10 15 65 45 40",
    /* 247  01234-67 */ "15 65 45",
    /* 248  --23-567 */ "30 21 51 54 74",
    /* 249  0-23-567 */ "01 21 51 54 74 04",
    /* 250  -123-567 */ "30 10 54 74",
    /* 251  0123-567 */ "54 74 04",
    /* 252  --234567 */ "30 21 51 40",
    /* 253  0-234567 */ "01 21 51",
    /* 254  -1234567 */ "30 10 40",
    /* 255  01234567 */ "",
};

// Triangles 0, 1, 2 and 3, 4, 5 with side edges 0-3, 1-4, 2-5. Bits: corners 5, 2, 0, 3, 1, 4.
constexpr const char *prism_rows[64] = {
    /*  0  ------ */ "",
    /*  1  -----5 */ "52 54 53",
    /*  2  --2--- */ "21 25 20",
    /*  3  --2--5 */ "21 54 53 20",
    /*  4  0----- */ "01 02 03",
    /*  5  0----5 */ "52 54 53 / 01 02 03",
    /*  6  0-2--- */ "21 25 03 01",
    /*  7  0-2--5 */ "21 54 53 03 01",
    /*  8  ---3-- */ "34 30 35",
    /*  9  ---3-5 */ "52 54 34 30",
    /* 10  --23-- */ "21 25 20 / 34 30 35",
    /* 11  --23-5 */ "21 54 34 30 20",
    /* 12  0--3-- */ "01 02 35 34",
    /* 13  0--3-5 */ "52 54 34 01 02",
    /* 14  0-23-- */ "21 25 35 34 01",
    /* 15  0-23-5 */ "21 54 34 01",
    /* 16  -1---- */ "14 12 10",
    /* 17  -1---5 */ "52 54 53 / 14 12 10",
    /* 18  -12--- */ "14 25 20 10",
    /* 19  -12--5 */ "14 54 53 20 10",
    /* 20  01---- */ "14 12 02 03",
    /* 21  01---5 */ "52 54 53 / 14 12 02 03",
    /* 22  012--- */ "14 25 03",
    /* 23  012--5 */ "14 54 53 03",
    /* 24  -1-3-- */ "14 12 10 / 34 30 35",
    /* 25  -1-3-5 */ "52 54 34 30 / 14 12 10",
    /* 26  -123-- */ "14 25 20 10 / 34 30 35",
    /* 27  -123-5 */ "14 54 34 30 20 10",
    /* 28  01-3-- */ "14 12 02 35 34",
    /* 29  01-3-5 */ "52 54 34 14 12 02",
    /* 30  0123-- */ "14 25 35 34",
    /* 31  0123-5 */ "14 54 34",
    /* 32  ----4- */ "45 41 43",
    /* 33  ----45 */ "52 41 43 53",
    /* 34  --2-4- */ "45 41 43 / 21 25 20",
    /* 35  --2-45 */ "21 41 43 53 20",
    /* 36  0---4- */ "45 41 43 / 01 02 03",
    /* 37  0---45 */ "52 41 43 53 / 01 02 03",
    /* 38  0-2-4- */ "45 41 43 / 21 25 03 01",
    /* 39  0-2-45 */ "21 41 43 53 03 01",
    /* 40  ---34- */ "45 41 30 35",
    /* 41  ---345 */ "52 41 30",
    /* 42  --234- */ "45 41 30 35 / 21 25 20",
    /* 43  --2345 */ "21 41 30 20",
    /* 44  0--34- */ "45 41 01 02 35",
    /* 45  0--345 */ "52 41 01 02",
    /* 46  0-234- */ "45 41 01 21 25 35",
    /* 47  0-2345 */ "21 41 01",
    /* 48  -1--4- */ "45 12 10 43",
    /* 49  -1--45 */ "52 12 10 43 53",
    /* 50  -12-4- */ "45 25 20 10 43",
    /* 51  -12-45 */ "20 10 43 53",
    /* 52  01--4- */ "45 12 02 03 43",
    /* 53  01--45 */ "52 12 02 03 43 53",
    /* 54  012-4- */ "45 25 03 43",
    /* 55  012-45 */ "03 43 53",
    /* 56  -1-34- */ "45 12 10 30 35",
    /* 57  -1-345 */ "52 12 10 30",
    /* 58  -1234- */ "45 25 20 10 30 35",
    /* 59  -12345 */ "20 10 30",
    /* 60  01-34- */ "45 12 02 35",
    /* 61  01-345 */ "52 12 02",
    /* 62  01234- */ "45 25 35",
    /* 63  012345 */ "",
};

// Corner 0 is the apex, 1 to 4 go round the base. Bits: corners 1, 2, 3, 4, 0.
constexpr const char *pyr_rows[32] = {
    /*  0  ----- */ "",
    /*  1  -1--- */ "12 10 14",
    /*  2  --2-- */ "20 21 23",
    /*  3  -12-- */ "20 10 14 23",
    /*  4  ---3- */ "30 32 34",
    /*  5  -1-3- */ "12 10 14 / 30 32 34",
    /*  6  --23- */ "20 21 34 30",
    /*  7  -123- */ "20 10 14 34 30",
    /*  8  ----4 */ "40 43 41",
    /*  9  -1--4 */ "12 10 40 43",
    /* 10  --2-4 */ "20 21 23 / 40 43 41",
    /* 11  -12-4 */ "20 10 40 43 23",
    /* 12  ---34 */ "30 32 41 40",
    /* 13  -1-34 */ "12 10 40 30 32",
    /* 14  --234 */ "20 21 41 40 30",
    /* 15  -1234 */ "20 10 40 30",
    /* 16  0---- */ "01 02 03 04",
    /* 17  01--- */ "12 02 03 04 14",
    /* 18  0-2-- */ "01 21 23 03 04",
    /* 19  012-- */ "23 03 04 14",
    /* 20  0--3- */ "01 02 32 34 04",
    /* 21  01-3- */ "12 02 32 34 04 14",
    /* 22  0-23- */ "01 21 34 04",
    /* 23  0123- */ "34 04 14",
    /* 24  0---4 */ "01 02 03 43 41",
    /* 25  01--4 */ "12 02 03 43",
    /* 26  0-2-4 */ "01 21 23 03 43 41",
    /* 27  012-4 */ "23 03 43",
    /* 28  0--34 */ "01 02 32 41",
    /* 29  01-34 */ "12 02 32",
    /* 30  0-234 */ "01 21 41",
    /* 31  01234 */ "",
};

// Bits: corners 0, 1, 2, 3. The unflagged corner comes first.
constexpr const char *tet_rows[16] = {
    /*  0  ---- */ "",
    /*  1  0--- */ "10 30 20",
    /*  2  -1-- */ "01 21 31",
    /*  3  01-- */ "20 21 31 30",
    /*  4  --2- */ "12 02 32",
    /*  5  0-2- */ "10 30 32 12",
    /*  6  -12- */ "01 02 32 31",
    /*  7  012- */ "32 31 30",
    /*  8  ---3 */ "23 03 13",
    /*  9  0--3 */ "10 13 23 20",
    /* 10  -1-3 */ "01 21 23 03",
    /* 11  01-3 */ "20 21 23",
    /* 12  --23 */ "12 02 03 13",
    /* 13  0-23 */ "10 13 12",
    /* 14  -123 */ "01 02 03",
    /* 15  0123 */ "",
};

// Triangles of a polygon by its size less 1: how many, and the first of them. Up to five points they are a
// fan from point 0; hexagons and heptagons are split otherwise.
#define POLYGONS_TO_6 {0, 0}, {0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 3}
#define TRIANGLES_TO_6 {{0, 1, 2}}, {{0, 2, 3}}, {{0, 3, 4}}, {{0, 1, 2}}, {{0, 2, 3}}, {{0, 3, 5}}, {{3, 4, 5}}
#define TRIANGLES_TO_7 TRIANGLES_TO_6, {{0, 1, 2}}, {{0, 2, 3}}, {{0, 3, 6}}, {{3, 4, 6}}, {{4, 5, 6}}
#define MIRRORED_TO_6 {{0, 2, 1}}, {{0, 3, 2}}, {{0, 4, 3}}, {{0, 2, 1}}, {{0, 3, 2}}, {{0, 5, 3}}, {{3, 5, 4}}
// clang-format on

constexpr iso_pair polygons_to_7[8] = {POLYGONS_TO_6, {5, 7}, {0, 0}};
constexpr iso_triple triangles_to_7[12] = {TRIANGLES_TO_7};
constexpr iso_triple mirrored_to_6[8] = {MIRRORED_TO_6, {{0, 0, 0}}};

// ---- rows to numbers -------------------------------------------------------------------------------------

namespace {

struct parsed_row {
    int npoints, npolygons;
    int polygon_size[4];
    int left[12], right[12];
};

template <int Cases> struct parsed_table {
    parsed_row row[Cases];
};

} // namespace

// Polygons hold points in a row's order: a crossing belongs to the polygon being read.
static constexpr parsed_row parse_row(const char *text, int filler)
{
    parsed_row row = {};
    for (int p = 0; p < 12; ++p)
        row.left[p] = row.right[p] = filler;
    row.npolygons = *text != 0 ? 1 : 0;
    for (const char *c = text; *c != 0; c += *c == ' ' || *c == '/' ? 1 : 2) {
        if (*c == ' ') continue;
        if (*c == '/') {
            ++row.npolygons;
            continue;
        }
        row.left[row.npoints] = c[0] - '0';
        row.right[row.npoints] = c[1] - '0';
        ++row.npoints;
        ++row.polygon_size[row.npolygons - 1];
    }
    return row;
}

template <int Cases>
static constexpr parsed_table<Cases> parse_rows(const char *const (&rows)[Cases], int filler)
{
    parsed_table<Cases> table = {};
    for (int index = 0; index < Cases; ++index)
        table.row[index] = parse_row(rows[index], filler);
    return table;
}

constexpr parsed_table<256> hex = parse_rows(hex_rows, 0);
constexpr parsed_table<64> prism = parse_rows(prism_rows, 0);
constexpr parsed_table<32> pyr = parse_rows(pyr_rows, 0);
constexpr parsed_table<16> tet = parse_rows(tet_rows, -1);

static constexpr iso_case flatten(const parsed_row &row, const iso_triple *triangles)
{
    iso_case flat = {};
    flat.npoints = static_cast<unsigned char>(row.npoints);
    for (int p = 0; p < row.npoints; ++p) {
        flat.left[p] = static_cast<unsigned char>(row.left[p]);
        flat.right[p] = static_cast<unsigned char>(row.right[p]);
    }
    int first_point = 0;
    for (int polygon = 0; polygon < row.npolygons; ++polygon) {
        const iso_pair split = polygons_to_7[row.polygon_size[polygon] - 1];
        for (int t = 0; t < split.ntri; ++t, ++flat.ntriangles)
            for (int corner = 0; corner < 3; ++corner)
                flat.points[3 * flat.ntriangles + corner] =
                    static_cast<unsigned char>(first_point + triangles[split.first + t].p[corner]);
        first_point += row.polygon_size[polygon];
    }
    return flat;
}

// ---- what the tables lean on -----------------------------------------------------------------------------

template <typename Kind> static constexpr bool is_flagged(int index, int corner)
{
    for (int bit = 0; bit < Kind::ncorners; ++bit)
        if (Kind::corner_of_bit[bit] == corner) return (index >> bit & 1) != 0;
    return false;
}

// Each crossing leads from a flagged corner to one that is not, or the other way round, and every edge of
// the cell with such ends is listed once.
template <typename Kind, int Cases>
static constexpr bool rows_cross(const parsed_table<Cases> &table, const char *edges, bool flagged_first)
{
    for (int index = 0; index < Cases; ++index) {
        const parsed_row &row = table.row[index];
        for (int p = 0; p < row.npoints; ++p)
            if (is_flagged<Kind>(index, row.left[p]) != flagged_first ||
                is_flagged<Kind>(index, row.right[p]) == flagged_first)
                return false;
        int ncrossed = 0;
        for (const char *e = edges; *e != 0; e += *e == ' ' ? 1 : 2) {
            if (*e == ' ') continue;
            const int a = e[0] - '0', b = e[1] - '0';
            if (is_flagged<Kind>(index, a) == is_flagged<Kind>(index, b)) continue;
            ++ncrossed;
            int nlisted = 0;
            for (int p = 0; p < row.npoints; ++p)
                if ((row.left[p] == a && row.right[p] == b) || (row.left[p] == b && row.right[p] == a))
                    ++nlisted;
            if (nlisted != 1) return false;
        }
        if (ncrossed != row.npoints) return false;
    }
    return true;
}

template <int Cases> static constexpr bool polygons_fit(const parsed_table<Cases> &table, int largest)
{
    for (const parsed_row &row : table.row)
        for (int polygon = 0; polygon < row.npolygons; ++polygon)
            if (row.polygon_size[polygon] < 3 || row.polygon_size[polygon] > largest) return false;
    return true;
}

static_assert(rows_cross<hex_cases>(hex, "01 12 23 30 45 56 67 74 04 15 26 37", true), "hex crossings");
static_assert(rows_cross<prism_cases>(prism, "01 12 20 34 45 53 03 14 25", true), "prism crossings");
static_assert(rows_cross<pyr_cases>(pyr, "01 02 03 04 12 23 34 41", true), "pyr crossings");
static_assert(rows_cross<tet_cases>(tet, "01 02 03 12 13 23", false), "tet crossings");
static_assert(polygons_fit(hex, 7), "hex polygons");
static_assert(polygons_fit(prism, 6), "prism polygons");
static_assert(polygons_fit(pyr, 6), "pyr polygons");
static_assert(polygons_fit(tet, 4), "tet polygons");

// ---- exported arrays -------------------------------------------------------------------------------------

// clang-format off
#define LIST_4(ENTRY, kind, i) ENTRY(kind, i), ENTRY(kind, i + 1), ENTRY(kind, i + 2), ENTRY(kind, i + 3)
#define LIST_16(ENTRY, kind, i) LIST_4(ENTRY, kind, i), LIST_4(ENTRY, kind, i + 4), LIST_4(ENTRY, kind, i + 8), LIST_4(ENTRY, kind, i + 12)
#define LIST_32(ENTRY, kind, i) LIST_16(ENTRY, kind, i), LIST_16(ENTRY, kind, i + 16)
#define LIST_64(ENTRY, kind, i) LIST_32(ENTRY, kind, i), LIST_32(ENTRY, kind, i + 32)
#define LIST_256(ENTRY, kind, i) LIST_64(ENTRY, kind, i), LIST_64(ENTRY, kind, i + 64), LIST_64(ENTRY, kind, i + 128), LIST_64(ENTRY, kind, i + 192)

#define FIRST_4(a) {a[0], a[1], a[2], a[3]}
#define FIRST_12(a) {a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9], a[10], a[11]}

#define POINTS(kind, i) kind.row[i].npoints
#define POLYGONS(kind, i) kind.row[i].npolygons
#define SIZES(kind, i) FIRST_4(kind.row[i].polygon_size)
#define LEFT_12(kind, i) FIRST_12(kind.row[i].left)
#define RIGHT_12(kind, i) FIRST_12(kind.row[i].right)
#define LEFT_4(kind, i) FIRST_4(kind.row[i].left)
#define RIGHT_4(kind, i) FIRST_4(kind.row[i].right)
#define FLAT(kind, i) flatten(kind.row[i], triangles_to_7)
#define FLAT_MIRRORED(kind, i) flatten(kind.row[i], mirrored_to_6)

const int ISOninter_pts_hex[256] = {LIST_256(POINTS, hex, 0)};
const int ISOninter_polys_hex[256] = {LIST_256(POLYGONS, hex, 0)};
const unsigned char ISOnppoly_hex[256][4] = {LIST_256(SIZES, hex, 0)};
const unsigned char ISOleft_vert_hex[256][12] = {LIST_256(LEFT_12, hex, 0)};
const unsigned char ISOright_vert_hex[256][12] = {LIST_256(RIGHT_12, hex, 0)};
const iso_pair ISOncell_hex[8] = {POLYGONS_TO_6, {5, 7}, {0, 0}};
const iso_triple ISOnpcel_hex[12] = {TRIANGLES_TO_7};
constexpr iso_case iso_rows_hex[256] = {LIST_256(FLAT, hex, 0)};

const int ISOedge_table_hex[12] = {0, 1, 0, 2, 0, 3, 1, 2, 1, 3, 2, 3};

const int ISOninter_pts_prism[64] = {LIST_64(POINTS, prism, 0)};
const int ISOninter_polys_prism[64] = {LIST_64(POLYGONS, prism, 0)};
const int ISOnppoly_prism[64][4] = {LIST_64(SIZES, prism, 0)};
const unsigned char ISOleft_vert_prism[64][12] = {LIST_64(LEFT_12, prism, 0)};
const unsigned char ISOright_vert_prism[64][12] = {LIST_64(RIGHT_12, prism, 0)};
const iso_pair ISOncell_prism[6] = {POLYGONS_TO_6};
const iso_triple ISOnpcel_prism[8] = {TRIANGLES_TO_6, {{0, 0, 0}}};
constexpr iso_case iso_rows_prism[64] = {LIST_64(FLAT, prism, 0)};

const int ISOninter_pts_pyr[32] = {LIST_32(POINTS, pyr, 0)};
const int ISOninter_polys_pyr[32] = {LIST_32(POLYGONS, pyr, 0)};
const int ISOnppoly_pyr[32][4] = {LIST_32(SIZES, pyr, 0)};
const unsigned char ISOleft_vert_pyr[32][12] = {LIST_32(LEFT_12, pyr, 0)};
const unsigned char ISOright_vert_pyr[32][12] = {LIST_32(RIGHT_12, pyr, 0)};
const iso_pair ISOncell_pyr[6] = {POLYGONS_TO_6};
const iso_triple ISOnpcel_pyr[8] = {TRIANGLES_TO_6, {{0, 0, 0}}};
constexpr iso_case iso_rows_pyr[32] = {LIST_32(FLAT, pyr, 0)};

const int ISOninter_pts_tet[16] = {LIST_16(POINTS, tet, 0)};
const int ISOninter_polys_tet[16] = {LIST_16(POLYGONS, tet, 0)};
const int ISOnppoly_tet[16][4] = {LIST_16(SIZES, tet, 0)};
const int ISOleft_vert_tet[16][4] = {LIST_16(LEFT_4, tet, 0)};
const int ISOright_vert_tet[16][4] = {LIST_16(RIGHT_4, tet, 0)};
const iso_pair ISOncell_tet[6] = {POLYGONS_TO_6};
const iso_triple ISOnpcel_tet[8] = {MIRRORED_TO_6, {{0, 0, 0}}};
constexpr iso_case iso_rows_tet[16] = {LIST_16(FLAT_MIRRORED, tet, 0)};
// clang-format on

constexpr lattice_case_table lattice_cases = derive_lattice_cases(iso_rows_hex);
