/* What the library expects of a host's object manager: named functions, progress, settings. */
#ifndef SKOKLANA_HOST_OM_H
#define SKOKLANA_HOST_OM_H

#include <skoklana/types.h>

SKOKLANA_BEGIN

/* A function and the name by which a host binds it. */
typedef struct OM_named_func {
    void (*func)(void);
    const char *name;
} OM_named_func;

/* Takes a table of count named functions, which stays valid for ever. A name may stand more than once,
 * always with the same function. */
int OMadd_named_funcs(const OM_named_func *table, int count);

/* Opens a range of progress: 0 to 100 percent reported inside it are low to high percent of the range
 * around it. Ranges nest; each push is paired with one pop. */
void OMpush_status_range(int low, int high);
void OMpop_status_range(void);

/* Reports progress within the innermost range.
 *
 * message   what is being done; may be NULL
 * stop      out, non-zero: the user has asked to stop; may be NULL */
int OMstatus_check(int percent, const char *message, int *stop);

/* The object at path below parent; OMnull_obj if there is none. */
OMobj_id OMfind_str_subobj(OMobj_id parent, const char *path);
/* Stores an integer in an object. 1 on success. */
int OMset_int_val(OMobj_id object, int value);

extern const OMobj_id OMroot_obj; /* all settings hang below it */
extern const OMobj_id OMnull_obj; /* no object */

SKOKLANA_END
#endif
