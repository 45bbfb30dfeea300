/* What the library expects of a host's tools: reports, typed arrays, conversions, small matrices, the
 * number of processors. Every call may come from several threads at once. */
#ifndef SKOKLANA_HOST_TOOL_H
#define SKOKLANA_HOST_TOOL_H

#include <skoklana/types.h>

SKOKLANA_BEGIN

/* ---- reports ---------------------------------------------------------------------------------------- */

/* Reports a failure to the user.
 *
 * module     borrowed: who fails, such as "fld_info" or an operation's name
 * zero       always 0
 * severity   always 2
 * message    borrowed: what is wrong, one line without a newline */
void ERRerror(const char *module, int zero, int severity, const char *message);

/* Memory that an operation cannot do without was refused. The caller asks for it again after this call, and
 * calls again, until it is there: a host frees memory here, waits, or ends the program.
 *
 * The embedded host reports the first call of a run under the module "out of memory" and then waits a tenth
 * of a second in each, so that other threads and programs can give memory back. After ten seconds in vain
 * it says so on standard error and ends the program by abort. A run is over when a second has passed
 * without a call.
 *
 * message   borrowed: what the memory is for */
void ERRout_of_memory(const char *message);

/* ---- typed arrays ------------------------------------------------------------------------------------- *
 *
 * file and line tell who asks; zero and zero2 are always NULL and 0. */

/* A list of count elements of a type code, not initialised. NULL where it cannot be had: no memory, a
 * negative count, more bytes than a block can have, an unknown type. A count of 0 gives a block too. The
 * list is handed over; plain free releases it as well as ARRfree_f does. */
void *ARRalloc_f(void *zero, int type, qx_long count, int zero2, const char *file, int line);
/* Resizes a list; NULL is taken as one without elements. On NULL the old list stays as it was. */
void *ARRrealloc_f(void *array, int type, qx_long count, int zero2, const char *file, int line);
/* Releases a list. NULL is taken. */
void ARRfree_f(void *array, const char *file, int line);

/* ---- conversions --------------------------------------------------------------------------------------- *
 *
 * To a floating type: the nearest value it has. To an integer type: the fraction is cut off, values beyond
 * the type's range give its nearer end, NaN gives 0. Values need not be aligned. For an unknown type code
 * the result is 0 and nothing is written. */

/* Bytes of one element of a type code. */
int DTYPEtype_size(int type);

/* Converts listed rows.
 *
 * from   rows of veclen elements of from_type, aligned
 * to     out, count rows of veclen elements of to_type, aligned; row i is row list[i] of from
 *
 * Returns 1. */
int DTYPEcvt_copy_array_list(int from_type, const void *from, int to_type, void *to, int veclen,
                             qx_long count, const qx_long *list);

/* One value of a type code to or from a C type. Return 1. */
int UTILtype_to_float(int type, const void *value, float *out);
int UTILtype_to_double(int type, const void *value, double *out);
int UTILdouble_to_type(int type, double value, void *out);

/* ---- small matrices, row-major, all arithmetic in float ------------------------------------------------ */

/* out = a (rows x inner) times m (inner x cols). Each element is summed from 0 in the order of inner. out may
 * be a where cols equals inner and is at most 64; else it overlaps neither factor. */
void MATvec_by_mat(const float *a, const float *m, float *out, int rows, int inner, int cols);

/* Inverts in place: the adjugate times 1 / determinant. Returns the determinant; where that is 0 the matrix
 * is left as it was. Nearly singular matrices are inverted like others, to large or infinite numbers. */
float MATmat2_inverse(float *m);
float MATmat3_inverse(float *m);

/* dst = src with rows and columns exchanged; dst may be src. */
void MATmat3_transpose(float *dst, const float *src);

/* vec = the row (x, y, z, 1) times mat, 4 x 4 with the translation in row 3; its last column is not read. */
void MATvec3_mat4_multiply(float *vec, const float *mat);

/* mat, 4 x 4 = the identity with offset[0..2] in row 3. */
void MATmat4_translate(float *mat, const float *offset);

/* Prepares whatever a host needs for square roots. The embedded host needs nothing. */
void MATbuild_sqrt_table(void);

/* ---- the machine ----------------------------------------------------------------------------------------- */

typedef struct CPUprocessor_info {
    int kind;  /* not read by the library; 0 */
    int count; /* processors that the calling thread may run on, at least 1 */
} CPUprocessor_info;

/* Non-zero on success; 0 with info unchanged where the number cannot be told. */
int CPUget_processor_info(CPUprocessor_info *info);

SKOKLANA_END
#endif
