/* What the library expects of a host's object manager: named functions, progress, settings.
 *
 * The library calls these; a program that brings a host of its own implements them, and skoklana_host does
 * for all others. */
#ifndef SKOKLANA_HOST_OM_H
#define SKOKLANA_HOST_OM_H

#include <skoklana/types.h>

SKOKLANA_BEGIN

/* ---- named functions --------------------------------------------------------------------------------- */

/* A function and the name by which a host binds it. */
typedef struct OM_named_func {
    void (*func)(void); /* cast to its own type before a call */
    const char *name;   /* stem and variant, such as "cut_func_unif" or "shape_func_hex_1" */
} OM_named_func;

/* Takes a table of functions, to be found by name from then on.
 *
 * table   kept: it and its texts stay valid for ever; count rows
 * count   rows; below 1 there is nothing to take
 *
 * A name may stand more than once, in one table or in several, always with the same function. A name that
 * stands for another function already goes on standing for that one: the result is then 0, and the other
 * rows are taken all the same. 0 also where there is no memory; no row is taken then. Else 1. */
int OMadd_named_funcs(const OM_named_func *table, int count);

/* ---- progress and interruption ------------------------------------------------------------------------ *
 *
 * Every thread has ranges of its own. An operation makes all its calls on the thread that called it. */

/* Opens a range of progress: 0 to 100 percent reported inside it are low to high percent of the range
 * around it, where 0 <= low <= high <= 100. Ranges nest; each push is paired with one pop. */
void OMpush_status_range(int low, int high);
void OMpop_status_range(void);

/* Reports progress within the innermost range.
 *
 * percent   0 to 100
 * message   borrowed, what is being done; may be NULL
 * stop      out, non-zero: the user has asked to stop; may be NULL
 *
 * Returns 1. */
int OMstatus_check(int percent, const char *message, int *stop);

/* ---- settings ------------------------------------------------------------------------------------------- */

/* The object at path, names joined by dots, below parent; OMnull_obj if there is none. */
OMobj_id OMfind_str_subobj(OMobj_id parent, const char *path);
/* Stores an integer in an object. 1 on success, 0 for an object that holds none. */
int OMset_int_val(OMobj_id object, int value);

extern const OMobj_id OMroot_obj; /* all settings hang below it */
extern const OMobj_id OMnull_obj; /* no object */

SKOKLANA_END
#endif
