/* Case tables of the extractions, read-only. */
#ifndef SKOKLANA_TABLES_H
#define SKOKLANA_TABLES_H

#include <skoklana/types.h>

SKOKLANA_BEGIN

typedef struct iso_pair {
    int ntri;
    int first;
} iso_pair;

typedef struct iso_triple {
    int p[3];
} iso_triple;

extern const int ISOninter_pts_hex[256];
extern const int ISOninter_polys_hex[256];
extern const unsigned char ISOnppoly_hex[256][4];
extern const unsigned char ISOleft_vert_hex[256][12];
extern const unsigned char ISOright_vert_hex[256][12];
extern const iso_pair ISOncell_hex[8];
extern const iso_triple ISOnpcel_hex[12];
extern const int ISOninter_pts_prism[64];
extern const int ISOninter_polys_prism[64];
extern const int ISOnppoly_prism[64][4];
extern const unsigned char ISOleft_vert_prism[64][12];
extern const unsigned char ISOright_vert_prism[64][12];
extern const iso_pair ISOncell_prism[6];
extern const iso_triple ISOnpcel_prism[8];
extern const int ISOninter_pts_pyr[32];
extern const int ISOninter_polys_pyr[32];
extern const int ISOnppoly_pyr[32][4];
extern const unsigned char ISOleft_vert_pyr[32][12];
extern const unsigned char ISOright_vert_pyr[32][12];
extern const iso_pair ISOncell_pyr[6];
extern const iso_triple ISOnpcel_pyr[8];
extern const int ISOninter_pts_tet[16];
extern const int ISOninter_polys_tet[16];
extern const int ISOnppoly_tet[16][4];
extern const int ISOleft_vert_tet[16][4];
extern const int ISOright_vert_tet[16][4];
extern const iso_pair ISOncell_tet[6];
extern const iso_triple ISOnpcel_tet[8];
extern const int ISOedge_table_hex[12];

SKOKLANA_END
#endif
