/* What the library expects of a host's tools: reports, typed arrays, conversions, small matrices, the
 * number of processors. */
#ifndef SKOKLANA_HOST_TOOL_H
#define SKOKLANA_HOST_TOOL_H

#include <skoklana/types.h>

SKOKLANA_BEGIN

/* ---- reports --------------------------------------------------------------------------------------- */

/* Reports a failure. module: who fails, such as "fld_info"; the second argument is always 0. */
void ERRerror(const char *module, int zero, int severity, const char *message);
/* Memory that an operation cannot do without was refused. The caller asks for it again after this
 * call, and calls again, until it is there: a host frees memory here, waits, or ends the program. */
void ERRout_of_memory(const char *message);

/* ---- typed arrays ---------------------------------------------------------------------------------- */

/* count elements of a type code, not initialised; NULL if they cannot be had. file and line tell who
 * asks. Plain free releases the block as well as ARRfree_f does. */
void *ARRalloc_f(void *zero, int type, qx_long count, int zero2, const char *file, int line);
/* Resizes; on NULL the old block stays as it was. */
void *ARRrealloc_f(void *array, int type, qx_long count, int zero2, const char *file, int line);
void ARRfree_f(void *array, const char *file, int line);

/* ---- conversions ----------------------------------------------------------------------------------- */

/* Bytes of one element of a type code. */
int DTYPEtype_size(int type);
/* Row i of to, veclen elements of to_type, is row list[i] of from, converted. 1 on success. */
int DTYPEcvt_copy_array_list(int from_type, const void *from, int to_type, void *to, int veclen,
                             qx_long count, const qx_long *list);
/* One value of a type code from or to a C type. 1 on success, 0 for an unknown code. */
int UTILtype_to_float(int type, const void *value, float *out);
int UTILtype_to_double(int type, const void *value, double *out);
int UTILdouble_to_type(int type, double value, void *out);

/* ---- small matrices, row-major float ---------------------------------------------------------------- */

/* out = a (rows x inner) times m (inner x cols); out may be a. */
void MATvec_by_mat(const float *a, const float *m, float *out, int rows, int inner, int cols);
/* Inverts in place and returns the determinant; where that is 0 the matrix is left as it was. */
float MATmat2_inverse(float *m);
float MATmat3_inverse(float *m);
void MATmat3_transpose(float *dst, const float *src);
/* The row vector (x, y, z, 1) times a 4 x 4 matrix, translation in row 3, in place. */
void MATvec3_mat4_multiply(float *vec, const float *mat);
/* mat = the identity with offset[0..2] in row 3. */
void MATmat4_translate(float *mat, const float *offset);
void MATbuild_sqrt_table(void);

/* ---- the machine ------------------------------------------------------------------------------------ */

typedef struct CPUprocessor_info {
    int kind;
    int count; /* processors that the program may use */
} CPUprocessor_info;

/* Non-zero on success. */
int CPUget_processor_info(CPUprocessor_info *info);

SKOKLANA_END
#endif
