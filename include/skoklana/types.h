/* Basic types shared by every header: node and cell numbers, host object ids, element types.
 *
 * Conventions that hold for all functions of this library unless their own text says otherwise:
 *
 *   arrays     row-major; coordinates are rows of nspace floats, one row a node; lengths are counted
 *              in elements, never in bytes
 *   results    1 on success, 0 on failure; the failure has then been reported already
 *   reports    through the host, either by ERRerror or as a line on the standard error stream
 *   null data  a field may carry one null value; where a null flag is 0 the null value's pointer may
 *              be NULL and is not read. Values equal it or not in the data's own type, so NaN never does
 *   threads    a mesh_info and its arrays belong to one thread at a time
 *
 * Three words tell who owns an array: *borrowed* (till the call returns), *kept* (the record or field
 * that keeps it frees it, or outlives the borrower) and *handed over* (the caller frees it). Lists that
 * are handed over come from the host's ARRalloc_f; plain free releases them too.
 */
#ifndef SKOKLANA_TYPES_H
#define SKOKLANA_TYPES_H

#include <stdint.h>

/* Around the declarations of a header: C linkage, and exported from the library. */
#ifdef __cplusplus
#define SKOKLANA_BEGIN \
    extern "C" {       \
    _Pragma("GCC visibility push(default)")
#define SKOKLANA_END              \
    _Pragma("GCC visibility pop") \
    }
#else
#define SKOKLANA_BEGIN _Pragma("GCC visibility push(default)")
#define SKOKLANA_END _Pragma("GCC visibility pop")
#endif

SKOKLANA_BEGIN

/* Node numbers, cell numbers and array lengths. */
typedef int64_t qx_long;

/* The host's name for one of its objects: opaque here, 16 bytes, passed by value. */
typedef struct OMobj_id {
    uint64_t word[2];
} OMobj_id;

/* Element types of data arrays. */
enum {
    DTYPE_CHAR = 0,   /* signed 8-bit */
    DTYPE_BYTE = 1,   /* unsigned 8-bit */
    DTYPE_SHORT = 2,  /* signed 16-bit */
    DTYPE_INT = 3,    /* signed 32-bit */
    DTYPE_FLOAT = 4,  /* 32-bit */
    DTYPE_DOUBLE = 5, /* 64-bit */
    DTYPE_QX_LONG = 6 /* qx_long */
};

SKOKLANA_END
#endif
