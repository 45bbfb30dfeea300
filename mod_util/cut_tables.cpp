// Cut case tables.
//
// A row is a pattern of kept corners. Before the colon stand its new nodes, one on each cell edge with one
// kept end, a digit pair each: the lower corner, then the higher. They are called a, b, c and so on, in this
// order. Behind it stand the pieces that fill the kept part, by their nodes: a digit is a corner, a letter a
// new node. Everything exported here is derived from these rows at compile time, and so are the records of
// cut_cases.hpp.
//
// The comment before a row names the kept corners, at their own places; the number is the case index, which
// has bit c set for corner c. Corners are numbered as by the shape functions. The kept part of a face with
// two kept corners across a diagonal is two triangles apart, for volume cells: this looks at the face alone,
// so neighbours agree on what is kept of the face that they share, though not always on its triangles. A
// quadrilateral keeps corners 0 and 2 together and corners 1 and 3 apart. Pieces have the sense of
// first-order cells.
//
// Order of new nodes, of pieces and of their nodes fix the numbers and the connect lists that a cut gives:
// rows are not to be tidied.
#include <skoklana/tables.h>

#include "cut_cases.hpp"
#include "lattice_cut_cases.hpp"

// clang-format off

// Twelve rows are given; the others were found by tests/tables/hex_cut_search.cpp, which says how.
constexpr const char *hex_cut_rows[255] = {
    /*   0  -------- */ "",
    /*   1  0------- */ "01 03 04 : c0ba",
    /*   2  -1------ */ "01 12 15 : 1acb",
    /*   3  01------ */ "12 03 04 15 : c1ad c1ba c0b1",
    /*   4  --2----- */ "12 23 26 : 2acb",
    /*   5  0-2----- */ "01 03 04 23 12 26 : e2df c0ba",
    /*   6  -12----- */ "01 15 23 26 : 12cb 1abc 2bdc",
    /*   7  012----- */ "23 03 04 15 26 : d2ae a12d b1ad c1bd c0b1",
    /*   8  ---3---- */ "03 23 37 : 3abc",
    /*   9  0--3---- */ "01 04 23 37 : 03da 0adb 3acd",
    /*  10  -1-3---- */ "01 03 12 15 23 37 : 1adc 3bef",
    /*  11  01-3---- */ "04 12 15 23 37 : 01bc 03ed 0ace 0bde 0bec",
    /*  12  --23---- */ "03 12 26 37 : 23ac 2abc 3acd",
    /*  13  0-23---- */ "01 04 12 26 37 : 03ba 23cd 3acd 3adb 3bde",
    /*  14  -123---- */ "01 03 15 26 37 : 12ac 23be 2acb 2bce 2cde",
    /*  15  0123---- */ "15 26 37 04 : a021 a2cb a032 a3c2 d03a d3ca",
    /*  16  ----4--- */ "04 45 47 : 4acb",
    /*  17  0---4--- */ "01 03 45 47 : 04cb 0abc 4bdc",
    /*  18  -1--4--- */ "01 04 12 15 45 47 : 1adc 4bfe",
    /*  19  01--4--- */ "03 12 15 45 47 : 01bc 04de 0aeb 0bdc 0bed",
    /*  20  --2-4--- */ "04 12 23 26 45 47 : 2bdc 4afe",
    /*  21  0-2-4--- */ "01 03 12 23 26 45 47 : 04fb 0abf 2ced 4bgf",
    /*  22  -12-4--- */ "01 04 15 23 26 45 47 : 12dc 1acd 2ced 4bgf",
    /*  23  012-4--- */ "03 15 23 26 45 47 : 01ab 01be 04ea 0aeb 12cb 1abc 2bdc 4afe abce acfe",
    /*  24  ---34--- */ "03 04 23 37 45 47 : 3acd 4bfe",
    /*  25  0--34--- */ "01 23 37 45 47 : 03cb 04de 0abd 0bcd 0ced",
    /*  26  -1-34--- */ "01 03 04 12 15 23 37 45 47 : 1aed 3bfg 4cih",
    /*  27  01-34--- */ "12 15 23 37 45 47 : 01ab 03dc 04ef 0acb 0bcd 0bdf 0bfe",
    /*  28  --234--- */ "03 04 12 26 37 45 47 : 23ad 2acd 3ade 4bgf",
    /*  29  0-234--- */ "01 12 26 37 45 47 : 03da 04af 04fd 0adf 23bd 2bcd 3abd 4afe abdf abfe",
    /*  30  -1234--- */ "01 03 04 15 26 37 45 47 : 12ad 23bf 2adb 2bdf 2def 4chg",
    /*  31  01234--- */ "15 26 37 45 47 : 012a 023c 02ca 04de 0acd 0ced 2abc",
    /*  32  -----5-- */ "15 45 56 : 5abc",
    /*  33  0----5-- */ "01 03 04 56 15 45 : d5fe c0ba",
    /*  34  -1---5-- */ "01 12 45 56 : 15da 1adb 5acd",
    /*  35  01---5-- */ "03 04 12 45 56 : 01ab 15ed 1abe 1aec 1bde",
    /*  36  --2--5-- */ "12 15 23 26 45 56 : 2adc 5bef",
    /*  37  0-2--5-- */ "01 03 04 12 15 23 26 45 56 : 0abc 2dgf 5ehi",
    /*  38  -12--5-- */ "01 23 26 45 56 : 12bc 15ed 1adb 1bde 1bec",
    /*  39  012--5-- */ "03 04 23 26 45 56 : 01ab 12cd 15fe 1abe 1adc 1aef 1afd",
    /*  40  ---3-5-- */ "03 15 23 37 45 56 : 3acd 5bef",
    /*  41  0--3-5-- */ "01 04 15 23 37 45 56 : 03ea 0aeb 3ade 5cfg",
    /*  42  -1-3-5-- */ "01 03 12 23 37 45 56 : 15ga 1agc 3bde 5afg",
    /*  43  01-3-5-- */ "04 12 23 37 45 56 : 01ba 03ac 03cb 0abc 15be 1aeb 3acd 5bef abce acde",
    /*  44  --23-5-- */ "03 12 15 26 37 45 56 : 23ad 2abd 3ade 5cfg",
    /*  45  0-23-5-- */ "01 04 12 15 26 37 45 56 : 03ba 23ce 3ace 3aeb 3bef 5dgh",
    /*  46  -123-5-- */ "01 03 26 37 45 56 : 12ac 12cf 15fa 1afc 23bc 2acb 3bcd 5aef abef abfc",
    /*  47  0123-5-- */ "04 26 37 45 56 : 013a 123b 13ab 15ed 1ade 1aeb 3abc",
    /*  48  ----45-- */ "04 15 47 56 : 45bc 4acb 5bcd",
    /*  49  0---45-- */ "01 03 15 47 56 : 04ab 45ce 4abc 4bde 4bec",
    /*  50  -1--45-- */ "01 04 12 47 56 : 15ca 45bd 5abd 5adc 5cde",
    /*  51  01--45-- */ "12 03 47 56 : 50a1 40a5 d4a5 c4ad 40ba c4ba",
    /*  52  --2-45-- */ "04 12 15 23 26 47 56 : 2bed 45cf 4afc 5cfg",
    /*  53  0-2-45-- */ "01 03 12 15 23 26 47 56 : 04ab 2cfe 45dh 4abd 4bgh 4bhd",
    /*  54  -12-45-- */ "01 04 23 26 47 56 : 12ad 12df 15fa 1afd 2adc 45bf 4bef 5abf abdc abfd",
    /*  55  012-45-- */ "03 23 26 47 56 : 01a4 12bc 145e 14ea 1aeb 1bec 4ade",
    /*  56  ---345-- */ "03 04 15 23 37 47 56 : 3ade 45cf 4bfc 5cfg",
    /*  57  0--345-- */ "01 15 23 37 47 56 : 03da 04ae 04ed 0ade 3acd 45be 4aeb 5bef abcd abde",
    /*  58  -1-345-- */ "01 03 04 12 23 37 47 56 : 15da 3bef 45cg 5acg 5agd 5dgh",
    /*  59  01-345-- */ "12 23 37 47 56 : 01a5 03cb 045d 05ad 0abc 0acd 5ade",
    /*  60  --2345-- */ "03 04 12 15 26 37 47 56 : 23ae 2ace 3aef 45dg 4bgd 5dgh",
    /*  61  0-2345-- */ "01 12 15 26 37 47 56 : 03ef 03fa 04af 23bd 3abf 3bdf 3def 45cg 4afg 4agc",
    /*  62  -12345-- */ "01 03 04 26 37 47 56 : 12ad 12ba 15da 23be 2ade 2aeb 45cf 5acd 5cfd 5dfg",
    /*  63  012345-- */ "26 37 47 56 : 012d 01d5 023b 02bd 045d 04dc 0bcd 2abd",
    /*  64  ------6- */ "26 56 67 : 6abc",
    /*  65  0-----6- */ "01 03 04 26 56 67 : 0abc 6def",
    /*  66  -1----6- */ "01 12 15 26 56 67 : 1acb 6def",
    /*  67  01----6- */ "03 04 12 15 26 56 67 : 01cb 0abc 1bdc 6efg",
    /*  68  --2---6- */ "12 23 56 67 : 26da 2adb 6acd",
    /*  69  0-2---6- */ "01 03 04 12 23 56 67 : 0abc 26gd 2dge 6dfg",
    /*  70  -12---6- */ "01 15 23 56 67 : 12ab 26ed 2abe 2aec 2bde",
    /*  71  012---6- */ "03 04 15 23 56 67 : 01ac 01cb 0abc 12dc 1acd 26de 2ced 6def abce acde",
    /*  72  ---3--6- */ "03 23 26 37 56 67 : 3abd 6cef",
    /*  73  0--3--6- */ "01 04 23 26 37 56 67 : 03ea 0aeb 3ace 6dfg",
    /*  74  -1-3--6- */ "01 03 12 15 23 26 37 56 67 : 1adc 3beg 6fhi",
    /*  75  01-3--6- */ "04 12 15 23 26 37 56 67 : 01bc 03fd 0acf 0bdf 0bfc 6egh",
    /*  76  --23--6- */ "03 12 37 56 67 : 23ac 26ed 2abd 2ade 2aec",
    /*  77  0-23--6- */ "01 04 12 37 56 67 : 03bd 03da 0adb 23cd 26fc 2cfd 3acd 6cef acdf acfe",
    /*  78  -123--6- */ "01 03 15 37 56 67 : 12ac 23bd 26fe 2acd 2adb 2ced 2def",
    /*  79  0123--6- */ "04 15 37 56 67 : 012b 023c 02cb 0abc 26ed 2bde 2bec",
    /*  80  ----4-6- */ "04 26 45 47 56 67 : 4adc 6bef",
    /*  81  0---4-6- */ "01 03 26 45 47 56 67 : 04db 0abd 4bed 6cfg",
    /*  82  -1--4-6- */ "01 04 12 15 26 45 47 56 67 : 1adc 4bgf 6ehi",
    /*  83  01--4-6- */ "03 12 15 26 45 47 56 67 : 01bc 04ef 0afb 0bec 0bfe 6dgh",
    /*  84  --2-4-6- */ "04 12 23 45 47 56 67 : 26gb 2bgc 4aed 6bfg",
    /*  85  0-2-4-6- */ "01 03 47 45 23 12 56 67 : e2gf h26g e2hg c4ba 40ba c4ad",
    /*  86  -12-4-6- */ "01 04 15 23 45 47 56 67 : 12ac 26hg 2ach 2ahd 2cgh 4bfe",
    /*  87  012-4-6- */ "03 15 23 45 47 56 67 : 01ab 01bd 04de 0aeb 0bed 12ab 26gf 2abf 2afg 2agc",
    /*  88  ---34-6- */ "03 04 23 26 37 45 47 56 67 : 3ace 4bgf 6dhi",
    /*  89  0--34-6- */ "01 23 26 37 45 47 56 67 : 03db 04ef 0abe 0bde 0dfe 6cgh",
    /*  90  -1-34-6- */ "01 03 04 12 15 23 26 37 45 47 56 67 : 1aed 3bfh 4cji 6gkl",
    /*  91  01-34-6- */ "12 15 23 26 37 45 47 56 67 : 01ab 03ec 04fg 0acb 0bce 0beg 0bgf 6dhi",
    /*  92  --234-6- */ "03 04 12 37 45 47 56 67 : 23ad 26hg 2acg 2agh 2ahd 4bfe",
    /*  93  0-234-6- */ "01 12 37 45 47 56 67 : 03ba 03cb 04de 0abd 0bce 0bed 23bc 26gf 2bfc 2cfg",
    /*  94  -1234-6- */ "01 03 04 15 37 45 47 56 67 : 12ad 23be 26ih 2ade 2aeb 2dhe 2ehi 4cgf",
    /*  95  01234-6- */ "15 37 45 47 56 67 : 012a 01ac 023b 02ba 04cd 0abd 0adc 26fe 2aeb 2bef",
    /*  96  -----56- */ "15 26 45 67 : 56bc 5acb 6bcd",
    /*  97  0----56- */ "01 03 04 15 26 45 67 : 0abc 56ef 5dfe 6efg",
    /*  98  -1---56- */ "01 12 26 45 67 : 15ba 56ce 5acb 5ade 5aec",
    /*  99  01---56- */ "03 04 12 26 45 67 : 01ac 01cb 0abc 15ce 1bec 56de 5ced 6def bcde bdfe",
    /* 100  --2--56- */ "12 15 23 45 67 : 26ca 56bd 6abd 6adc 6cde",
    /* 101  0-2--56- */ "01 03 04 12 15 23 45 67 : 0abc 26fd 56eg 6deg 6dgf 6fgh",
    /* 102  -12--56- */ "01 23 45 67 : 12b6 156b 15bc 1acb 56bc 6bcd",
    /* 103  012--56- */ "03 04 23 45 67 : 01ab 12c6 156d 16cd 1abc 1bdc 6cde",
    /* 104  ---3-56- */ "03 15 23 26 37 45 67 : 3ace 56df 5bfd 6dfg",
    /* 105  0--3-56- */ "01 23 37 04 26 15 45 67 : f6g5 e6gf geh6 d3ca d03a a3cb",
    /* 106  -1-3-56- */ "01 03 12 23 26 37 45 67 : 15ca 3bdf 56eh 5aec 5agh 5ahe",
    /* 107  01-3-56- */ "04 12 23 26 37 45 67 : 01bf 01fa 03ec 0afe 0bcf 0cef 15bf 56dg 5bfg 5bgd",
    /* 108  --23-56- */ "03 12 15 37 45 67 : 23bd 26fb 2bfd 3abd 56cf 5cef 6bcf abdc bcfd",
    /* 109  0-23-56- */ "01 04 12 15 37 45 67 : 03ba 23ce 26ec 3acb 3bce 56df 6cde 6dfe 6efg",
    /* 110  -123-56- */ "01 03 37 45 67 : 12a5 23bc 256e 25ea 2aeb 2bec 5ade",
    /* 111  0123-56- */ "04 37 45 67 : 012a 023a 12a5 23ab 256d 25da 2adb 5acd",
    /* 112  ----456- */ "04 15 26 47 67 : 45ad 56ce 5acb 5adc 5cde",
    /* 113  0---456- */ "01 03 15 26 47 67 : 04ae 0abe 45ce 4aec 56cf 5cef 6cfd abef acfe",
    /* 114  -1--456- */ "01 04 12 26 47 67 : 15ca 45be 56df 5abc 5bec 5cef 5cfd",
    /* 115  01--456- */ "03 12 26 47 67 : 01b5 045d 05bd 0adb 56ce 5bdc 5cde",
    /* 116  --2-456- */ "04 12 15 23 47 67 : 26fb 2bfd 45ce 4aec 56cf 5cef 6bcf bcfe bdef",
    /* 117  0-2-456- */ "01 03 12 15 23 47 67 : 04ab 26ec 45dg 4abg 4agd 4bfg 56dg 6cde 6dge",
    /* 118  -12-456- */ "01 04 23 47 67 : 12a5 256e 25ea 2aec 45bd 5abd 5ade",
    /* 119  012-456- */ "03 23 47 67 : 01b5 045c 05bc 0acb 12b5 256b 56bd 5bcd",
    /* 120  ---3456- */ "03 04 15 23 26 37 47 67 : 3adf 45bg 56eh 5bec 5bge 5egh",
    /* 121  0--3456- */ "01 15 23 26 37 47 67 : 03ec 04af 0acf 0cef 45af 56dg 5adb 5afg 5agd",
    /* 122  -1-3456- */ "01 03 04 12 23 26 37 47 67 : 15da 3beg 45ch 56fi 5acd 5chd 5dhi 5dif",
    /* 123  01-3456- */ "12 23 26 37 47 67 : 01a5 03db 045e 05ae 0abe 0bde 56cf 5aef 5afc",
    /* 124  --23456- */ "03 04 12 15 37 47 67 : 23ae 26gd 2acd 2ade 2dge 45bf 56dg 5bfg 5bgd",
    /* 125  0-23456- */ "01 12 15 37 47 67 : 03db 04ce 0abc 0bdc 0cde 23bd 26db 45ce 56ce 6bcd 6ced 6def",
    /* 126  -123456- */ "01 03 04 37 47 67 : 12a5 23bd 256f 25fa 2adb 2afd 45ce 5acf 5cef",
    /* 127  0123456- */ "37 47 67 : 0125 023a 02ac 02c5 045b 05cb 0abc 256c",
    /* 128  -------7 */ "37 47 67 : 7acb",
    /* 129  0------7 */ "01 03 04 37 47 67 : 0abc 7dfe",
    /* 130  -1-----7 */ "01 12 15 37 47 67 : 1acb 7dfe",
    /* 131  01-----7 */ "03 04 12 15 37 47 67 : 01cb 0abc 1bdc 7egf",
    /* 132  --2----7 */ "12 23 26 37 47 67 : 2acb 7dfe",
    /* 133  0-2----7 */ "01 03 04 12 23 26 37 47 67 : 0abc 2dfe 7gih",
    /* 134  -12----7 */ "01 15 23 26 37 47 67 : 12cb 1abc 2bdc 7egf",
    /* 135  012----7 */ "03 04 15 23 26 37 47 67 : 01ab 12de 1abd 1bce 1bed 7fhg",
    /* 136  ---3---7 */ "03 23 47 67 : 37cb 3abc 7bdc",
    /* 137  0--3---7 */ "01 04 23 47 67 : 03ba 37de 3ace 3adb 3aed",
    /* 138  -1-3---7 */ "01 03 12 15 23 47 67 : 1adc 37fe 3bef 7egf",
    /* 139  01-3---7 */ "04 12 15 23 47 67 : 01ba 03ad 0abd 1acb 37ed 3ade 7dfe abde abec",
    /* 140  --23---7 */ "03 12 26 47 67 : 23bc 37de 3abd 3bcd 3ced",
    /* 141  0-23---7 */ "01 04 12 26 47 67 : 03ba 23cd 37ef 3acb 3bce 3cdf 3cfe",
    /* 142  -123---7 */ "01 03 15 26 47 67 : 12ad 1acd 23bd 2adb 37bf 3bdf 7bfe abfd acdf",
    /* 143  0123---7 */ "04 15 26 47 67 : 013a 123c 13ac 1abc 37de 3acd 3ced",
    /* 144  ----4--7 */ "04 37 45 67 : 47da 4adc 7abd",
    /* 145  0---4--7 */ "01 03 37 45 67 : 04ab 47ec 4abe 4aed 4bce",
    /* 146  -1--4--7 */ "01 04 12 15 37 45 67 : 1adc 47gb 4bgf 7beg",
    /* 147  01--4--7 */ "03 12 15 37 45 67 : 01ac 04ea 0aec 1acb 47ed 4ade 7dfe acde cdef",
    /* 148  --2-4--7 */ "04 12 23 26 37 45 67 : 2bdc 47ga 4agf 7aeg",
    /* 149  0-2-4--7 */ "01 03 12 23 26 37 45 67 : 04ab 2ced 47hf 4abh 4ahg 4bfh",
    /* 150  -12-4--7 */ "23 01 15 26 67 45 04 37 : d1a2 b1dc bad1 74hf h4gf h7fe",
    /* 151  012-4--7 */ "03 15 23 26 37 45 67 : 01ab 04ba 12cd 1abd 1adc 47ge 4aeb 4beg 4bgf",
    /* 152  ---34--7 */ "03 04 23 45 67 : 37ac 47db 7acb 7bcd 7ced",
    /* 153  0--34--7 */ "01 23 45 67 : 037c 03cb 04c7 0abc 37cb 7bdc",
    /* 154  -1-34--7 */ "01 03 04 12 15 23 45 67 : 1aed 37bf 47gc 7bfc 7cfg 7fhg",
    /* 155  01-34--7 */ "12 15 23 45 67 : 01ab 037c 04d7 07dc 0acd 0adb 7ced",
    /* 156  --234--7 */ "03 04 12 26 45 67 : 23ad 2acd 37af 3adf 47fb 4bfe 7afb abcd abdf",
    /* 157  0-234--7 */ "01 12 26 45 67 : 034a 23bc 34ae 34e7 3abc 3ace 4aed",
    /* 158  -1234--7 */ "01 03 04 15 26 45 67 : 12ad 23bg 2adg 2agb 2deg 37bg 47fc 7bfc 7bgf",
    /* 159  01234--7 */ "15 26 45 67 : 012b 01ba 023b 037b 04c7 07cb 0abc 7bdc",
    /* 160  -----5-7 */ "15 37 45 47 56 67 : 5ace 7bfd",
    /* 161  0----5-7 */ "01 03 04 15 37 45 47 56 67 : 0abc 5dfh 7eig",
    /* 162  -1---5-7 */ "01 12 37 45 47 56 67 : 15fa 1afb 5adf 7cge",
    /* 163  01---5-7 */ "03 04 12 37 45 47 56 67 : 01ab 15ge 1abg 1agc 1beg 7dhf",
    /* 164  --2--5-7 */ "12 15 23 26 37 45 47 56 67 : 2adc 5bfh 7eig",
    /* 165  0-2--5-7 */ "01 03 04 23 12 26 56 15 45 67 47 37 : hgi5 d2fe c0ba l7kj",
    /* 166  -12--5-7 */ "01 23 26 37 45 47 56 67 : 12bc 15ge 1aeb 1beg 1bgc 7dhf",
    /* 167  012--5-7 */ "03 04 23 26 37 45 47 56 67 : 01ab 12cd 15hf 1abf 1adc 1afh 1ahd 7eig",
    /* 168  ---3-5-7 */ "03 15 23 45 47 56 67 : 37ec 3ace 5bdf 7cge",
    /* 169  0--3-5-7 */ "01 04 15 23 45 47 56 67 : 03ba 37fh 3adh 3afb 3ahf 5ceg",
    /* 170  -1-3-5-7 */ "01 03 12 23 45 47 56 67 : 15ga 1agc 37fd 3bdf 5aeg 7dhf",
    /* 171  01-3-5-7 */ "04 12 23 45 47 56 67 : 01ca 03ac 15fd 1adc 1bcf 1cdf 37eg 3acg 3age",
    /* 172  --23-5-7 */ "03 12 15 26 45 47 56 67 : 23bd 37fh 3abf 3bdf 3dhf 5ceg",
    /* 173  0-23-5-7 */ "01 04 12 15 26 45 47 56 67 : 03ba 23ce 37gi 3acb 3bce 3bei 3big 5dfh",
    /* 174  -123-5-7 */ "01 03 26 45 47 56 67 : 12ac 15fd 1adc 1cdf 23ac 37eg 3acg 3aeb 3age",
    /* 175  0123-5-7 */ "04 26 45 47 56 67 : 013a 123b 13ab 15ec 1acb 1bce 37df 3abf 3afd",
    /* 176  ----45-7 */ "04 15 37 56 67 : 45bd 47ec 4acb 4bce 4bed",
    /* 177  0---45-7 */ "01 03 15 37 56 67 : 04ab 45ce 47fd 4abd 4adc 4cde 4dfe",
    /* 178  -1--45-7 */ "01 04 12 37 56 67 : 15ea 1aec 45be 47fb 4bfe 5abe 7bdf abef abfd",
    /* 179  01--45-7 */ "03 12 37 56 67 : 01a4 145d 14da 1adb 47ec 4ace 4aed",
    /* 180  --2-45-7 */ "04 12 15 23 26 37 56 67 : 2bed 45cg 47hf 4afc 4cfh 4chg",
    /* 181  0-2-45-7 */ "01 03 12 15 23 26 37 56 67 : 04ab 2cfe 45dh 47ig 4abg 4agi 4ahd 4aih",
    /* 182  -12-45-7 */ "01 04 23 26 37 56 67 : 12cd 15fb 1abc 1bdc 1bfd 45bf 47ge 4bef 4egf",
    /* 183  012-45-7 */ "03 23 26 37 56 67 : 01a4 12bc 145e 14ea 1acb 1aec 47fd 4ade 4dfe",
    /* 184  ---345-7 */ "03 04 15 23 56 67 : 37af 3adf 45be 47fb 4bfe 5bec 7afb abef adfe",
    /* 185  0--345-7 */ "01 15 23 56 67 : 034a 34ae 34e7 3ace 45bd 4aeb 4bed",
    /* 186  -1-345-7 */ "01 03 04 12 23 56 67 : 15da 37bg 3beg 45cf 47fc 5acd 5cfd 7bfc 7bgf begf",
    /* 187  01-345-7 */ "12 23 56 67 : 01a5 037d 03db 045d 04d7 05ad 0abd 5adc",
    /* 188  --2345-7 */ "03 04 12 15 26 56 67 : 23ce 37ag 3acg 3ceg 45df 47ga 4adb 4afd 4agf",
    /* 189  0-2345-7 */ "01 12 15 26 56 67 : 034a 23bd 34af 34f7 3abf 3bdf 45ce 4aec 4afe",
    /* 190  -12345-7 */ "01 03 04 26 56 67 : 12ad 15da 23ad 37cf 3acb 3adf 3afc 45cf 47fc 5acf 5afd 5dfe",
    /* 191  012345-7 */ "26 56 67 : 0134 123a 134a 145b 14ba 34ac 34c7 4acb",
    /* 192  ------67 */ "26 37 47 56 : 67bd 6adb 7bdc",
    /* 193  0-----67 */ "01 03 04 26 37 47 56 : 0abc 67eg 6dge 7egf",
    /* 194  -1----67 */ "01 12 15 26 37 47 56 : 1acb 67eg 6dge 7egf",
    /* 195  01----67 */ "03 04 12 15 26 37 47 56 : 01cb 0abc 1bdc 67fh 6ehf 7fhg",
    /* 196  --2---67 */ "12 23 37 47 56 : 26ba 67cd 6acb 6adc 6aed",
    /* 197  0-2---67 */ "01 03 04 12 23 37 47 56 : 0abc 26ed 67fg 6dfe 6dgf 6dhg",
    /* 198  -12---67 */ "01 15 23 37 47 56 : 12cb 1abc 26cf 2bfc 67df 6cfd 7dfe bcdf bdef",
    /* 199  012---67 */ "03 04 15 23 37 47 56 : 01ac 0abc 12dg 1acg 1agd 26dg 67ef 6dfe 6dgf abcg",
    /* 200  ---3--67 */ "03 23 26 47 56 : 37ab 67ce 7abe 7aed 7bce",
    /* 201  0--3--67 */ "01 04 23 26 47 56 : 03bc 0acb 37ec 3bce 67de 6dfe 7cde bced bdef",
    /* 202  -1-3--67 */ "01 03 12 15 23 26 47 56 : 1adc 37be 67fh 7beh 7bhg 7efh",
    /* 203  01-3--67 */ "04 12 15 23 26 47 56 : 01bc 03ad 0acd 0bdc 37ad 67ef 6egf 7ade 7aef aefg",
    /* 204  --23--67 */ "03 12 47 56 : 23bc 23c6 26cb 367c 3abc 6bdc",
    /* 205  0-23--67 */ "01 04 12 47 56 : 03ba 23c6 367d 36dc 3acd 3adb 6ced",
    /* 206  -123--67 */ "01 03 15 47 56 : 12ac 23b7 267e 27be 2acb 2bce 7bed",
    /* 207  0123--67 */ "04 15 47 56 : 012b 023c 02cb 0abc 23c7 267c 26cd 2bdc",
    /* 208  ----4-67 */ "04 26 37 45 56 : 47da 67be 7abe 7acb 7aed",
    /* 209  0---4-67 */ "01 03 26 37 45 56 : 04eb 0abe 47ed 4bde 67df 6cfd 7dfe bcdf bdef",
    /* 210  -1--4-67 */ "01 04 12 15 26 37 45 56 : 1adc 47gb 67eh 7beh 7bfe 7bhg",
    /* 211  01--4-67 */ "03 12 15 26 37 45 56 : 01ac 04fa 0afc 1acb 47fe 4aef 67dg 7dfe 7dgf abec acef",
    /* 212  --2-4-67 */ "04 12 23 37 45 56 : 26cf 2bfc 47ed 4ade 67df 6cfd 7dfe bcef cdef",
    /* 213  0-2-4-67 */ "01 03 12 23 37 45 56 : 04ab 26dg 2cgd 47fe 4abe 4aef 67eg 6dge 7egf cdfg defg",
    /* 214  -12-4-67 */ "01 04 15 23 37 45 56 : 12ac 26dg 2acg 2agd 47fb 67dg 7bdf 7bed 7dgf",
    /* 215  012-4-67 */ "03 15 23 37 45 56 : 01cb 04ed 0adc 0bce 0cde 12cb 26cb 47ed 67de 6bec 6bfe 6ced",
    /* 216  ---34-67 */ "03 04 23 26 45 56 : 37ac 47eb 67df 7acd 7adf 7aeb 7afe",
    /* 217  0--34-67 */ "01 23 26 45 56 : 037b 04d7 07db 0abd 67ce 7bce 7bed",
    /* 218  -1-34-67 */ "01 03 04 12 15 23 26 45 56 : 1aed 37bf 47hc 67gi 7bfh 7bhc 7fgh 7gih",
    /* 219  01-34-67 */ "12 15 23 26 45 56 : 01ab 037c 04e7 07ec 0acb 0bce 67df 7cde 7dfe",
    /* 220  --234-67 */ "03 04 12 45 56 : 23a7 267e 27ae 2ace 47db 7aeb 7bed",
    /* 221  0-234-67 */ "01 12 45 56 : 037a 04a7 23a7 267d 27ad 2abd 47ca 7adc",
    /* 222  -1234-67 */ "01 03 04 15 45 56 : 12ad 23b7 267f 27bf 2adf 2afb 47ec 7bec 7bfe",
    /* 223  01234-67 */ "15 45 56 : 012a 0237 027c 02ca 04b7 07bc 0acb 267c",
    /* 224  -----567 */ "15 26 37 45 47 : 56ad 67ce 6acb 6adc 6cde",
    /* 225  0----567 */ "01 03 04 15 26 37 45 47 : 0abc 56dg 67fh 6dfe 6dgf 6fgh",
    /* 226  -1---567 */ "01 12 26 37 45 47 : 15be 1aeb 56ce 5bec 67cf 6cef 7cfd bcdf bcfe",
    /* 227  01---567 */ "03 04 12 26 37 45 47 : 01ab 15cf 1abf 1afc 56df 5cfd 67dg 6dfg 7dge cdeg cdgf",
    /* 228  --2--567 */ "12 15 23 37 45 47 : 26ca 56be 67df 6abc 6bdc 6bef 6bfd",
    /* 229  0-2--567 */ "01 03 04 12 15 23 37 45 47 : 0abc 26fd 56eh 67gi 6def 6ehf 6fhi 6fig",
    /* 230  -12--567 */ "01 23 37 45 47 : 12b6 156d 16bd 1adb 67ce 6bdc 6cde",
    /* 231  012--567 */ "03 04 23 37 45 47 : 01ab 12c6 156e 16ce 1abe 1aec 67df 6cef 6cfd",
    /* 232  ---3-567 */ "03 15 23 26 45 47 : 37fc 3acf 56de 5bed 67df 6def 7cdf bced cdfe",
    /* 233  0--3-567 */ "01 04 15 23 26 45 47 : 03bd 0adb 37gd 3bdg 56cf 67eg 6cfg 6cge 7deg abed bdge",
    /* 234  -1-3-567 */ "01 03 12 23 26 45 47 : 15ca 37bd 56eg 5afg 5agc 5cge 67eg 7bde 7beg",
    /* 235  01-3-567 */ "04 12 23 26 45 47 : 01be 03fc 0aef 0bcf 0bfe 15be 37fc 56be 67cf 6bcd 6bef 6bfc",
    /* 236  --23-567 */ "03 12 15 45 47 : 23b6 367e 36eb 3abe 56cd 6bcd 6bde",
    /* 237  0-23-567 */ "01 04 12 15 45 47 : 03ba 23c6 367f 36fc 3acb 3bcf 56de 6cdf 6def",
    /* 238  -123-567 */ "01 03 45 47 : 12b6 156c 16bc 1acb 23b6 367b 67bd 6bcd",
    /* 239  0123-567 */ "04 45 47 : 013a 1236 13ab 13b6 156b 367c 36cb 3abc",
    /* 240  ----4567 */ "04 15 26 37 : 45b6 46b7 47bd 4adb 67db 6bdc",
    /* 241  0---4567 */ "01 03 15 26 37 : 04ab 45c6 46ce 46e7 4abc 4bec 6ced",
    /* 242  -1--4567 */ "01 04 12 26 37 : 15ca 45b7 56d7 57db 5abd 5adc 7bed",
    /* 243  01--4567 */ "03 12 26 37 : 01a5 045a 15ba 45a7 56c7 57ca 5acb 7adc",
    /* 244  --2-4567 */ "04 12 15 23 37 : 26db 45c6 46ce 46e7 4aec 6bce 6bed",
    /* 245  0-2-4567 */ "01 03 12 15 23 37 : 04ab 26ec 45d6 46df 46f7 4abf 4afd 6cde 6dfe",
    /* 246  -12-4567 */ "01 04 23 37 : 12a6 156a 26ca 45a6 46ad 46d7 4abd 6adc",
    /* 247  012-4567 */ "03 23 37 : 01a4 12b6 1456 146c 14ca 16bc 1acb 46c7",
    /* 248  ---34567 */ "03 04 15 23 26 : 37ad 45c7 47cb 56c7 67ec 7acb 7adc 7cde",
    /* 249  0--34567 */ "01 15 23 26 : 037c 04b7 07bc 0acb 45b7 56b7 67db 7bcd",
    /* 250  -1-34567 */ "01 03 04 12 23 26 : 15da 37be 45c7 56f7 57fc 5acd 5cfd 7bef 7bfc",
    /* 251  01-34567 */ "12 23 26 : 01a5 037b 0457 05ac 05c7 07cb 0abc 56c7",
    /* 252  --234567 */ "03 04 12 15 : 23c6 367b 36bc 3acb 45b6 46b7 56db 6bcd",
    /* 253  0-234567 */ "01 12 15 : 034a 23b6 3467 34ab 34b6 45c6 46cb 4abc",
    /* 254  -1234567 */ "03 01 04 : 2156 b126 51b6 b2a6 3276 a236 a376 7456 75c6 c5b6 a7c6 bac6 74c5",
};

// Triangles 0, 1, 2 and 3, 4, 5 with side edges 0-3, 1-4, 2-5.
constexpr const char *prism_cut_rows[64] = {
    /*  0  ------ */ "",
    /*  1  0----- */ "01 02 03 : a0cb",
    /*  2  -1---- */ "14 12 01 : a1cb",
    /*  3  01---- */ "14 12 02 03 : d0cb a0db 10ab",
    /*  4  --2--- */ "12 25 02 : a2cb",
    /*  5  0-2--- */ "12 25 03 01 : a2cb a0c2 d0ca",
    /*  6  -12--- */ "14 25 02 01 : a2cb a1c2 a1dc",
    /*  7  012--- */ "14 25 03 : a2cb a0c2 10a2",
    /*  8  ---3-- */ "34 03 35 : b3ac",
    /*  9  0--3-- */ "01 02 35 34 : a0cb a03c a3dc",
    /* 10  -1-3-- */ "14 12 01 34 03 35 : e3df a1cb",
    /* 11  01-3-- */ "14 12 02 35 34 : b0dc b03d b3ed e03b 10ab a0eb",
    /* 12  --23-- */ "12 25 02 34 03 35 : bac2 e3df",
    /* 13  0-23-- */ "12 25 35 34 01 : a0b2 a0cb e3da e03a a3dc a03c",
    /* 14  -123-- */ "14 25 02 01 34 03 35 : b1c2 a1cb a1dc f3eg",
    /* 15  0123-- */ "14 25 35 34 : 20ab a0cb 10a2 a0dc d03c",
    /* 16  ----4- */ "45 14 34 : c4ba",
    /* 17  0---4- */ "45 14 34 01 02 03 : d0fe c4ba",
    /* 18  -1--4- */ "45 12 01 34 : a1cb d1ca 41da",
    /* 19  01--4- */ "45 12 02 03 34 : b0dc e4ba 41eb e1db 10db",
    /* 20  --2-4- */ "45 14 34 12 25 02 : edf2 c4ba",
    /* 21  0-2-4- */ "45 14 34 12 25 03 01 : d0e2 d0fe c4ba g0fd",
    /* 22  -12-4- */ "45 25 02 01 34 : b1c2 a1cb a1dc 41ea e1da",
    /* 23  012-4- */ "45 25 03 34 : 10b2 a0cb 10ab 10ca d1ca 41da",
    /* 24  ---34- */ "45 14 03 35 : c3ad b34a c3ba",
    /* 25  0--34- */ "45 14 01 02 35 : d3ae c0ad a03d c03a b34a c3ba",
    /* 26  -1-34- */ "45 12 01 03 35 : d3ae a1cb 41ca d4ca d34a",
    /* 27  01-34- */ "45 12 02 35 : c3ad b0ac a03c 10ab 103a 413a",
    /* 28  --234- */ "45 14 03 35 12 25 02 : feg2 c3ad c4ba c34a",
    /* 29  0-234- */ "45 14 01 12 25 35 : 20fe d2fe d0f2 c03d d3ca d3af d03f b34a c3ba",
    /* 30  -1234- */ "45 25 02 01 03 35 : a2cb a1c2 a1dc 41da e3af e4da e34a",
    /* 31  01234- */ "45 25 35 : 20cb a2cb 10a2 a0c2 104a 403a a03c",
    /* 32  -----5 */ "25 45 35 : bac5",
    /* 33  0----5 */ "25 45 35 01 02 03 : bac5 d0fe",
    /* 34  -1---5 */ "25 45 35 14 12 01 : bac5 d1fe",
    /* 35  01---5 */ "25 45 35 14 12 02 03 : c5ba 10de d0ge g0fe",
    /* 36  --2--5 */ "12 45 35 02 : d5a2 bad5 cbd5",
    /* 37  0-2--5 */ "12 45 35 03 01 : a0d2 c5a2 cad2 bac5 e0da",
    /* 38  -12--5 */ "14 45 35 02 01 : b1d2 d5b2 cbd5 b1ed a1eb",
    /* 39  012--5 */ "14 45 35 03 : b2c5 b0d2 10b2 a0db 10ab cbd2",
    /* 40  ---3-5 */ "25 45 34 03 : a3b5 d3ba d3cb",
    /* 41  0--3-5 */ "25 45 34 01 02 : a3b5 e3ba d3cb d03b b03e d0be",
    /* 42  -1-3-5 */ "25 45 34 03 14 12 01 : a3b5 d3ba e1gf d3cb",
    /* 43  01-3-5 */ "25 45 34 14 12 02 : f35a f5ba f3b5 c03b c0be b03f e0bf 10de d0ce",
    /* 44  --23-5 */ "12 45 34 03 02 : e5a2 bae5 dbe5 d3b5 d3cb",
    /* 45  0-23-5 */ "12 45 34 01 : a052 a035 a3b5 d3ca d03a a3cb",
    /* 46  -123-5 */ "14 45 34 03 02 01 : b1e2 e5b2 b1fe a1fb dbe5 d3b5 d3cb",
    /* 47  0123-5 */ "14 45 34 : b052 10b2 b035 10ab a0cb c03b",
    /* 48  ----45 */ "25 14 34 35 : d5ba d4b5 c4bd",
    /* 49  0---45 */ "25 14 34 35 01 02 03 : d5ba d4b5 c4bd e0gf",
    /* 50  -1--45 */ "25 12 01 34 35 : e4a5 e4ba d4be 41db d1cb",
    /* 51  01--45 */ "25 12 02 03 34 35 : f4a5 f4ba e4bf 41eb b0dc e1db 10db",
    /* 52  --2-45 */ "12 14 34 35 02 : e5a2 d4a5 dae5 c4ad c4ba",
    /* 53  0-2-45 */ "12 14 34 35 03 01 : a0e2 d5a2 dae2 d4a5 d4ba c4bd f0ea",
    /* 54  -12-45 */ "02 01 34 35 : 51a2 41a5 d4a5 c4ad c1ba 41ca",
    /* 55  012-45 */ "03 34 35 : c125 41c5 10a2 c1a2 b1ac 41bc",
    /* 56  ---345 */ "25 14 03 : c5ba c345 c4b5",
    /* 57  0--345 */ "25 14 01 02 : b35a d3ba b345 c3bd c03d",
    /* 58  -1-345 */ "25 12 01 03 : a345 d3ba b34a d34b d4cb 41cb",
    /* 59  01-345 */ "25 12 02 : a345 b34a c3ba 413b 103b 30cb",
    /* 60  --2345 */ "12 14 03 02 : d5a2 c3a5 a345 c34a c4ba cad5",
    /* 61  0-2345 */ "12 14 01 : a052 a035 a345 b34a c3ba c03a",
    /* 62  -12345 */ "02 01 03 : 51a2 41a5 c345 c4a5 41ba c4ba",
    /* 63  012345 */ "",
};

// Corner 0 is the apex, 1 to 4 go round the base.
constexpr const char *pyr_cut_rows[32] = {
    /*  0  ----- */ "",
    /*  1  0---- */ "01 02 03 04 : c0ad b0ac",
    /*  2  -1--- */ "12 01 14 : b1ac",
    /*  3  01--- */ "12 02 03 04 14 : d1ae a01d b0ad c0bd",
    /*  4  --2-- */ "02 12 23 : b2ac",
    /*  5  0-2-- */ "01 12 23 03 04 : d0ae c2ad 20ad b2ac",
    /*  6  -12-- */ "02 01 14 23 : c2bd b2ad b12c",
    /*  7  012-- */ "23 03 04 14 : c1ad 21ac b2ac 201c b02c",
    /*  8  ---3- */ "03 23 34 : b3ac",
    /*  9  0--3- */ "01 02 23 34 04 : c3ed c0e3 c0be b0ae",
    /* 10  -1-3- */ "12 01 14 03 23 34 : e3df b1ac",
    /* 11  01-3- */ "12 02 23 34 04 14 : c3ed c0e3 c0be b1ae a1fe b01e",
    /* 12  --23- */ "02 12 34 03 : b3dc b2d3 b2ad",
    /* 13  0-23- */ "01 12 34 04 : b3dc 20d3 b2d3 b2ad 20ad",
    /* 14  -123- */ "02 01 14 34 03 : c23d c3ed c2e3 b12c b2ae c2be",
    /* 15  0123- */ "34 04 14 : 20b3 a2b3 c2ba 21cb 201b",
    /* 16  ----4 */ "04 34 14 : a4cb",
    /* 17  0---4 */ "01 02 03 34 14 : c4ed c0a4 cae4 b0ac",
    /* 18  -1--4 */ "12 01 04 34 : c4ad c1a4 b1ac",
    /* 19  01--4 */ "12 02 03 34 : c4ad c014 c1a4 a01c b0ac",
    /* 20  --2-4 */ "02 12 23 04 34 14 : d4fe b2ac",
    /* 21  0-2-4 */ "01 12 23 03 34 14 : d4fe d0a4 daf4 b2dc b2ad 20ad",
    /* 22  -12-4 */ "02 01 04 34 23 : 41ed c4ed c1e4 b12c c2ae c12e b2ac",
    /* 23  012-4 */ "23 03 34 : 41ac b4ac b014 b1a4 201b b12a",
    /* 24  ---34 */ "03 23 14 04 : d4b3 bad3 cbd4",
    /* 25  0--34 */ "01 02 23 14 : a043 c0a3 a4c3 cad4 b0ac",
    /* 26  -1-34 */ "12 01 04 03 23 : c4e3 dce3 cae4 c1a4 b1ac",
    /* 27  01-34 */ "12 02 23 : 30c4 c0b4 b014 b1a4 bac4",
    /* 28  --234 */ "02 12 14 04 03 : d2e3 b2d3 d4c3 cbd3 d2ae b2ad",
    /* 29  0-234 */ "01 12 14 : 30a4 c3a4 20a3 bac3 b2a3",
    /* 30  -1234 */ "02 01 04 03 : 42c3 c2d3 c124 b12c c2ad b2ac",
    /* 31  01234 */ "",
};

constexpr const char *tet_cut_rows[16] = {
    /*  0  ---- */ "",
    /*  1  0--- */ "01 03 02 : b0ca",
    /*  2  -1-- */ "01 12 13 : cab1",
    /*  3  01-- */ "02 12 13 03 : c0b1 d0bc d0ab",
    /*  4  --2- */ "12 02 23 : b2ca",
    /*  5  0-2- */ "01 03 23 12 : a0cd c02d b0ca",
    /*  6  -12- */ "01 02 23 13 : a2d1 a2cd b2ca",
    /*  7  012- */ "23 13 03 : b021 a02b c0ab",
    /*  8  ---3 */ "23 03 13 : a3bc",
    /*  9  0--3 */ "01 13 23 02 : c0ab 30cb c0da",
    /* 10  -1-3 */ "01 12 23 03 : b3a1 c3ab c3da",
    /* 11  01-3 */ "02 12 23 : 30b1 30cb c0ab",
    /* 12  --23 */ "12 02 03 13 : a3cd b23a b3ca",
    /* 13  0-23 */ "01 13 12 : a0bc b02c 302b",
    /* 14  -123 */ "01 02 03 : a231 b2ca c23a",
    /* 15  0123 */ "",
};

constexpr const char *quad_cut_rows[16] = {
    /*  0  ---- */ "",
    /*  1  0--- */ "01 03 : b0a",
    /*  2  -1-- */ "01 12 : a1b",
    /*  3  01-- */ "12 03 : a01 b0a",
    /*  4  --2- */ "12 23 : ba2",
    /*  5  0-2- */ "01 12 23 03 : 2cb cab dac d0a",
    /*  6  -12- */ "01 23 : 2a1 ba2",
    /*  7  012- */ "23 03 : a12 b01 ab1",
    /*  8  ---3 */ "23 03 : 3ba",
    /*  9  0--3 */ "01 23 : 3ab 30a",
    /* 10  -1-3 */ "01 12 23 03 : a1b 3dc",
    /* 11  01-3 */ "12 23 : a01 b0a 30b",
    /* 12  --23 */ "12 03 : 3a2 3ba",
    /* 13  0-23 */ "01 12 : 23b 3ab 30a",
    /* 14  -123 */ "01 03 : a12 3b2 ba2",
    /* 15  0123 */ "",
};

constexpr const char *tri_cut_rows[8] = {
    /* 0  --- */ "",
    /* 1  0-- */ "01 02 : b0a",
    /* 2  -1- */ "01 12 : ba1",
    /* 3  01- */ "12 02 : a01 b0a",
    /* 4  --2 */ "12 02 : 2ba",
    /* 5  0-2 */ "01 12 : 0ab 20b",
    /* 6  -12 */ "01 02 : 2a1 2ba",
    /* 7  012 */ "",
};

constexpr const char *line_cut_rows[4] = {
    /* 0  -- */ "",
    /* 1  0- */ "01 : 0a",
    /* 2  -1 */ "01 : a1",
    /* 3  01 */ "",
};
// clang-format on

// ---- rows to records -------------------------------------------------------------------------------------

static constexpr bool is_letter(char c)
{
    return c >= 'a' && c <= 'z';
}

// A line of the cut: a side of one triangle alone, between two new nodes.
static constexpr void find_cut_lines(cut_case *row, int ncorners)
{
    const int nentries = 3 * row->ncells;
    int used = 0;
    for (int a = 0; a < row->npoints; ++a)
        for (int b = a + 1; b < row->npoints; ++b) {
            int nsides = 0;
            for (int i = 0; i < nentries; ++i) {
                const int from = row->nodes[i] - ncorners,
                          to = row->nodes[i % 3 == 2 ? i - 2 : i + 1] - ncorners;
                nsides += (from == a && to == b) || (from == b && to == a);
            }
            if (nsides != 1) continue;
            row->lines[used++] = static_cast<unsigned char>(a);
            row->lines[used++] = static_cast<unsigned char>(b);
            ++row->nlines;
        }
}

template <typename Cases> static constexpr cut_case parse_cut_row(const char *text)
{
    cut_case row = {};
    const char *c = text;
    for (; *c != 0 && *c != ':'; c += 3) {
        row.left[row.npoints] = static_cast<unsigned char>(c[0] - '0');
        row.right[row.npoints] = static_cast<unsigned char>(c[1] - '0');
        ++row.npoints;
    }
    int used = 0;
    for (; *c != 0; ++c) {
        if (*c == ':') continue;
        if (*c == ' ')
            ++row.ncells;
        else
            row.nodes[used++] =
                static_cast<unsigned char>(is_letter(*c) ? *c - 'a' + Cases::ncorners : *c - '0');
    }
    if (Cases::piece_list == TRI_LIST) find_cut_lines(&row, Cases::ncorners);
    return row;
}

namespace {

template <int Cases> struct cut_table {
    cut_case row[Cases];
};

} // namespace

template <typename Kind, int Rows>
static constexpr cut_table<Kind::last_case + 1> parse_cut_rows(const char *const (&rows)[Rows])
{
    cut_table<Kind::last_case + 1> table = {};
    for (int index = 1; index < Kind::last_case; ++index)
        table.row[index] = parse_cut_row<Kind>(rows[index]);
    return table;
}

constexpr auto hex_cuts = parse_cut_rows<hex_cut_cases>(hex_cut_rows);
constexpr auto prism_cuts = parse_cut_rows<prism_cut_cases>(prism_cut_rows);
constexpr auto pyr_cuts = parse_cut_rows<pyr_cut_cases>(pyr_cut_rows);
constexpr auto tet_cuts = parse_cut_rows<tet_cut_cases>(tet_cut_rows);
constexpr auto quad_cuts = parse_cut_rows<quad_cut_cases>(quad_cut_rows);
constexpr auto tri_cuts = parse_cut_rows<tri_cut_cases>(tri_cut_rows);
constexpr auto line_cuts = parse_cut_rows<line_cut_cases>(line_cut_rows);

// ---- what the tables lean on -----------------------------------------------------------------------------

static constexpr bool is_kept(int index, int corner)
{
    return (index >> corner & 1) != 0;
}

// Every edge of the cell with one kept end has one new node, lower corner first; pieces are over kept corners
// and new nodes, and use all of them.
template <typename Kind, int Cases>
static constexpr bool cuts_fit(const cut_table<Cases> &table, const char *edges)
{
    constexpr int nnodes = cut_list_nnodes[Kind::piece_list];
    for (int index = 1; index < Kind::last_case; ++index) {
        const cut_case &row = table.row[index];
        int ncrossed = 0;
        for (const char *e = edges; *e != 0; e += *e == ' ' ? 1 : 2) {
            if (*e == ' ' || is_kept(index, e[0] - '0') == is_kept(index, e[1] - '0')) continue;
            int nlisted = 0;
            for (int p = 0; p < row.npoints; ++p)
                nlisted += row.left[p] == e[0] - '0' && row.right[p] == e[1] - '0';
            if (nlisted != 1) return false;
            ++ncrossed;
        }
        if (ncrossed != row.npoints || row.ncells == 0 || row.ncells * nnodes > most_cut_nodes) return false;
        for (int node = 0; node < Kind::ncorners + row.npoints; ++node) {
            bool used = false;
            for (int i = 0; i < row.ncells * nnodes; ++i)
                used = used || row.nodes[i] == node;
            if (used != (node >= Kind::ncorners || is_kept(index, node))) return false;
        }
    }
    return true;
}

static_assert(cuts_fit<hex_cut_cases>(hex_cuts, "01 03 04 12 15 23 26 37 45 47 56 67"), "hex cuts");
static_assert(cuts_fit<prism_cut_cases>(prism_cuts, "01 02 03 12 14 25 34 35 45"), "prism cuts");
static_assert(cuts_fit<pyr_cut_cases>(pyr_cuts, "01 02 03 04 12 14 23 34"), "pyr cuts");
static_assert(cuts_fit<tet_cut_cases>(tet_cuts, "01 02 03 12 13 23"), "tet cuts");
static_assert(cuts_fit<quad_cut_cases>(quad_cuts, "01 03 12 23"), "quad cuts");
static_assert(cuts_fit<tri_cut_cases>(tri_cuts, "01 02 12"), "tri cuts");
static_assert(cuts_fit<line_cut_cases>(line_cuts, "01"), "line cuts");

// ---- runs ------------------------------------------------------------------------------------------------

namespace {

// Rows end to end, as they are exported. The two cases of a line share their new node.
template <int Cases, int Points, int Cells, int Entries> struct cut_runs {
    int first_point[Cases], first_cell[Cases], first_entry[Cases], first_line[Cases];
    unsigned char left[Points], right[Points];
    unsigned char type[Cells], nnodes[Cells];
    unsigned char node[Entries], is_new[Entries];
    unsigned char line[64];
    int npoints, ncells, nentries, nline_entries;
};

} // namespace

template <typename Kind, int Points, int Cells, int Entries, int Cases>
static constexpr cut_runs<Cases, Points, Cells, Entries> join_cut_rows(const cut_table<Cases> &table)
{
    constexpr int piece_nnodes = cut_list_nnodes[Kind::piece_list];
    cut_runs<Cases, Points, Cells, Entries> runs = {};
    for (int index = 1; index < Kind::last_case; ++index) {
        const cut_case &row = table.row[index];
        runs.first_cell[index] = runs.ncells;
        runs.first_entry[index] = runs.nentries;
        runs.first_line[index] = runs.nline_entries;
        if (Kind::ncorners > 2 || index == 1) {
            runs.first_point[index] = runs.npoints;
            for (int p = 0; p < row.npoints; ++p, ++runs.npoints) {
                runs.left[runs.npoints] = row.left[p];
                runs.right[runs.npoints] = row.right[p];
            }
        }
        for (int cell = 0; cell < row.ncells; ++cell, ++runs.ncells) {
            runs.type[runs.ncells] = Kind::piece_list;
            runs.nnodes[runs.ncells] = piece_nnodes;
        }
        for (int i = 0; i < row.ncells * piece_nnodes; ++i, ++runs.nentries) {
            const bool is_new = row.nodes[i] >= Kind::ncorners;
            runs.node[runs.nentries] =
                static_cast<unsigned char>(row.nodes[i] - (is_new ? Kind::ncorners : 0));
            runs.is_new[runs.nentries] = is_new;
        }
        for (int i = 0; i < 2 * row.nlines; ++i)
            runs.line[runs.nline_entries++] = row.lines[i];
    }
    return runs;
}

// Room for entries is rounded up to what the lists below hold.
constexpr auto hex = join_cut_rows<hex_cut_cases, 1536, 1664, 6464>(hex_cuts);
constexpr auto prism = join_cut_rows<prism_cut_cases, 288, 288, 1104>(prism_cuts);
constexpr auto pyr = join_cut_rows<pyr_cut_cases, 128, 128, 496>(pyr_cuts);
constexpr auto tet = join_cut_rows<tet_cut_cases, 48, 48, 144>(tet_cuts);
constexpr auto quad = join_cut_rows<quad_cut_cases, 32, 32, 96>(quad_cuts);
constexpr auto tri = join_cut_rows<tri_cut_cases, 16, 16, 32>(tri_cuts);
constexpr auto line = join_cut_rows<line_cut_cases, 4, 4, 4>(line_cuts);

template <typename Runs>
static constexpr bool has_lengths(const Runs &runs, int npoints, int ncells, int nentries)
{
    return runs.npoints == npoints && runs.ncells == ncells && runs.nentries == nentries;
}
static_assert(has_lengths(hex, 1536, 1608, 6432), "hex runs");
static_assert(has_lengths(prism, 288, 274, 1096), "prism runs");
static_assert(has_lengths(pyr, 128, 121, 484), "pyr runs");
static_assert(has_lengths(tet, 48, 34, 136), "tet runs");
static_assert(has_lengths(quad, 32, 30, 90) && quad.nline_entries == 32, "quad runs");
static_assert(has_lengths(tri, 12, 9, 27) && tri.nline_entries == 12, "tri runs");
static_assert(has_lengths(line, 1, 2, 4), "line runs");

// ---- exported arrays -------------------------------------------------------------------------------------

// clang-format off
#define LIST_4(ENTRY, k, i) ENTRY(k, i), ENTRY(k, i + 1), ENTRY(k, i + 2), ENTRY(k, i + 3)
#define LIST_8(ENTRY, k, i) LIST_4(ENTRY, k, i), LIST_4(ENTRY, k, i + 4)
#define LIST_15(ENTRY, k, i) LIST_8(ENTRY, k, i), LIST_4(ENTRY, k, i + 8), ENTRY(k, i + 12), ENTRY(k, i + 13), ENTRY(k, i + 14)
#define LIST_16(ENTRY, k, i) LIST_8(ENTRY, k, i), LIST_8(ENTRY, k, i + 8)
#define LIST_32(ENTRY, k, i) LIST_16(ENTRY, k, i), LIST_16(ENTRY, k, i + 16)
#define LIST_48(ENTRY, k, i) LIST_32(ENTRY, k, i), LIST_16(ENTRY, k, i + 32)
#define LIST_64(ENTRY, k, i) LIST_32(ENTRY, k, i), LIST_32(ENTRY, k, i + 32)
#define LIST_96(ENTRY, k, i) LIST_64(ENTRY, k, i), LIST_32(ENTRY, k, i + 64)
#define LIST_128(ENTRY, k, i) LIST_64(ENTRY, k, i), LIST_64(ENTRY, k, i + 64)
#define LIST_144(ENTRY, k, i) LIST_128(ENTRY, k, i), LIST_16(ENTRY, k, i + 128)
#define LIST_255(ENTRY, k, i) LIST_128(ENTRY, k, i), LIST_64(ENTRY, k, i + 128), LIST_48(ENTRY, k, i + 192), LIST_15(ENTRY, k, i + 240)
#define LIST_256(ENTRY, k, i) LIST_128(ENTRY, k, i), LIST_128(ENTRY, k, i + 128)
#define LIST_288(ENTRY, k, i) LIST_256(ENTRY, k, i), LIST_32(ENTRY, k, i + 256)
#define LIST_496(ENTRY, k, i) LIST_256(ENTRY, k, i), LIST_144(ENTRY, k, i + 256), LIST_96(ENTRY, k, i + 400)
#define LIST_512(ENTRY, k, i) LIST_256(ENTRY, k, i), LIST_256(ENTRY, k, i + 256)
#define LIST_1024(ENTRY, k, i) LIST_512(ENTRY, k, i), LIST_512(ENTRY, k, i + 512)
#define LIST_1104(ENTRY, k, i) LIST_1024(ENTRY, k, i), LIST_64(ENTRY, k, i + 1024), LIST_16(ENTRY, k, i + 1088)
#define LIST_1536(ENTRY, k, i) LIST_1024(ENTRY, k, i), LIST_512(ENTRY, k, i + 1024)
#define LIST_1664(ENTRY, k, i) LIST_1536(ENTRY, k, i), LIST_128(ENTRY, k, i + 1536)
#define LIST_6464(ENTRY, k, i) LIST_1536(ENTRY, k, i), LIST_1536(ENTRY, k, i + 1536), LIST_1536(ENTRY, k, i + 3072), LIST_1536(ENTRY, k, i + 4608), LIST_256(ENTRY, k, i + 6144), LIST_64(ENTRY, k, i + 6400)

#define CORNERS(k, i) count_bits(i)
#define POINTS(k, i) k##_cuts.row[i].npoints
#define CELLS(k, i) k##_cuts.row[i].ncells
#define FIRST_POINT(k, i) k.first_point[i]
#define FIRST_CELL(k, i) k.first_cell[i]
#define FIRST_ENTRY(k, i) k.first_entry[i]
#define LEFT(k, i) k.left[i]
#define RIGHT(k, i) k.right[i]
#define TYPE(k, i) k.type[i]
#define NNODES(k, i) k.nnodes[i]
#define NODE(k, i) k.node[i]
#define IS_NEW(k, i) k.is_new[i]
#define LINES(k, i) k##_cuts.row[i].nlines
#define FIRST_LINE(k, i) k.first_line[i]
#define LINE_POINT(k, i) k.line[i]
#define RECORD(k, i) k##_cuts.row[i]

static constexpr int count_bits(int index)
{
    int count = 0;
    for (; index != 0; index >>= 1) count += index & 1;
    return count;
}

// FEW: entries of the first two arrays by case, CASES of the others, WIDE of the starts of connect runs.
#define CUT_ARRAYS(k, FEW, CASES, WIDE, POINT_LIST, CELL_LIST, ENTRY_LIST) \
    const int CUTmax_index_##k = k##_cut_cases::last_case; \
    const int CUTnold_nodes_##k[FEW] = {LIST_##FEW(CORNERS, k, 0)}; \
    const int CUTnnew_nodes_##k[FEW] = {LIST_##FEW(POINTS, k, 0)}; \
    const int CUTm_ind_##k[CASES] = {LIST_##CASES(FIRST_POINT, k, 0)}; \
    const unsigned char CUTmin_node_##k[] = {POINT_LIST(LEFT, k, 0)}; \
    const unsigned char CUTmax_node_##k[] = {POINT_LIST(RIGHT, k, 0)}; \
    const int CUTncell_##k[CASES] = {LIST_##CASES(CELLS, k, 0)}; \
    const int CUTt_ind_##k[CASES] = {LIST_##CASES(FIRST_CELL, k, 0)}; \
    const unsigned char CUTcell_type_##k[] = {CELL_LIST(TYPE, k, 0)}; \
    const unsigned char CUTcell_nnode_##k[] = {CELL_LIST(NNODES, k, 0)}; \
    const int CUTc_ind_##k[WIDE] = {LIST_##CASES(FIRST_ENTRY, k, 0)}; \
    const unsigned char CUTconnect_list_##k[] = {ENTRY_LIST(NODE, k, 0)}; \
    const unsigned char CUTnew_flag_list_##k[] = {ENTRY_LIST(IS_NEW, k, 0)};

#define CUT_LINE_ARRAYS(k, CASES, LINE_POINTS) \
    const int CUTedge_nline_##k[CASES] = {LIST_##CASES(LINES, k, 0)}; \
    const int CUTedge_cind_##k[CASES] = {LIST_##CASES(FIRST_LINE, k, 0)}; \
    const unsigned char CUTedge_connect_list_##k[] = {LINE_POINTS(LINE_POINT, k, 0)};

CUT_ARRAYS(hex, 255, 255, 255, LIST_1536, LIST_1664, LIST_6464)
CUT_ARRAYS(prism, 64, 64, 64, LIST_288, LIST_288, LIST_1104)
CUT_ARRAYS(pyr, 32, 32, 32, LIST_128, LIST_128, LIST_496)
CUT_ARRAYS(tet, 15, 16, 18, LIST_48, LIST_48, LIST_144)
CUT_ARRAYS(quad, 16, 16, 18, LIST_32, LIST_32, LIST_96)
CUT_ARRAYS(tri, 8, 8, 8, LIST_16, LIST_16, LIST_32)
CUT_ARRAYS(line, 4, 4, 4, LIST_4, LIST_4, LIST_4)
CUT_LINE_ARRAYS(quad, 16, LIST_32)
CUT_LINE_ARRAYS(tri, 8, LIST_16)

constexpr cut_case cut_rows_hex[256] = {LIST_256(RECORD, hex, 0)};
constexpr cut_case cut_rows_prism[64] = {LIST_64(RECORD, prism, 0)};
constexpr cut_case cut_rows_pyr[32] = {LIST_32(RECORD, pyr, 0)};
constexpr cut_case cut_rows_tet[16] = {LIST_16(RECORD, tet, 0)};
constexpr cut_case cut_rows_quad[16] = {LIST_16(RECORD, quad, 0)};
constexpr cut_case cut_rows_tri[8] = {LIST_8(RECORD, tri, 0)};
constexpr cut_case cut_rows_line[4] = {LIST_4(RECORD, line, 0)};
// clang-format on

constexpr lattice_cut_table<3> lattice_cuts_hex = derive_lattice_cuts<3>(cut_rows_hex);
constexpr lattice_cut_table<2> lattice_cuts_quad = derive_lattice_cuts<2>(cut_rows_quad);
