/* Kernels on typed arrays: values clamped, replaced or classified against bounds, rows copied by a list,
 * components taken out of rows and put together, grids brought to another size, windows and blends, vectors
 * split along a direction.
 *
 * The arrays know nothing of meshes. Each operation stands in a form for any type, which takes a data_type of
 * skoklana/types.h, and in a form a type, named with the suffix _char, _byte, _short, _int, _float, _double
 * or _qx_long, which takes its elements as they are.
 *
 *   count            elements or rows to go through; below 1 nothing is written and the result is 1
 *   stride, offset   in elements: element i of a component is array[offset + i * stride], so that component c
 *                    of rows of veclen elements has stride veclen and offset c
 *   null_flag        not 0: elements that equal the null value are null. In the forms for any type
 *                    null_value points to one element
 *
 * Every operation returns 1 unless its own text says otherwise. An unknown type makes the forms for any type report "unknown data type" under
 * their own name and return 0, whatever the count; UTILthreshold returns 0 without a word.
 *
 * All arrays are borrowed and nothing is allocated. An output array may not overlap an input unless the text
 * allows it. Any thread may call these functions, on arrays of its own.
 *
 * NaN is neither below nor above a bound, and equals no null value. */
#ifndef SKOKLANA_ARRAY_H
#define SKOKLANA_ARRAY_H

#include <skoklana/types.h>

SKOKLANA_BEGIN

/* ---- clamp ----------------------------------------------------------------------------------------- */

/* Holds one component of an array within bounds.
 *
 * in         the values, at offset + i * stride
 * min_flag   not 0: values below min become min; this goes first, so that with min above max a value below
 *            both becomes min
 * max_flag   not 0: values above max become max
 * min, max   bounds as double: truncated for integer types, to 32 bits for char, byte, short and int, of
 *            which the narrow types take the low bits (300 is 44 as a byte), and to 64 bits for qx_long;
 *            rounded to single precision for float. An integer bound beyond those bits is beyond all values
 * out        out, at the same places as in; nothing else of it is written. May be in
 *
 * Null elements stay null, also outside the bounds. With neither bound the component is copied. */
int UTILclamp(qx_long count, const void *in, int stride, int offset, int data_type, int null_flag,
              const void *null_value, int min_flag, double min, int max_flag, double max, void *out);
/* The same by type, with bounds that are elements already. */
int UTILclamp_char(qx_long count, const signed char *in, int stride, int offset, int null_flag,
                   signed char null_value, int min_flag, signed char min, int max_flag, signed char max,
                   signed char *out);
int UTILclamp_byte(qx_long count, const unsigned char *in, int stride, int offset, int null_flag,
                   unsigned char null_value, int min_flag, unsigned char min, int max_flag, unsigned char max,
                   unsigned char *out);
int UTILclamp_short(qx_long count, const short *in, int stride, int offset, int null_flag, short null_value,
                    int min_flag, short min, int max_flag, short max, short *out);
int UTILclamp_int(qx_long count, const int *in, int stride, int offset, int null_flag, int null_value,
                  int min_flag, int min, int max_flag, int max, int *out);
int UTILclamp_float(qx_long count, const float *in, int stride, int offset, int null_flag, float null_value,
                    int min_flag, float min, int max_flag, float max, float *out);
int UTILclamp_double(qx_long count, const double *in, int stride, int offset, int null_flag,
                     double null_value, int min_flag, double min, int max_flag, double max, double *out);
int UTILclamp_qx_long(qx_long count, const qx_long *in, int stride, int offset, int null_flag,
                      qx_long null_value, int min_flag, qx_long min, int max_flag, qx_long max, qx_long *out);

/* ---- copies ---------------------------------------------------------------------------------------- */

/* Gathers rows: row i of out is row list[i] of in.
 *
 * nnodes   rows of in; not read
 * veclen   elements a row
 * in       rows of veclen elements
 * list     count row numbers, each row of in; a number may stand in it many times
 * out      out, count rows of veclen elements */
int UTILcopy_array_list(qx_long nnodes, int veclen, int data_type, const void *in, qx_long count,
                        const qx_long *list, void *out);
/* The same by type. */
int UTILcopy_array_list_char(int veclen, const signed char *in, qx_long count, const qx_long *list,
                             signed char *out);
int UTILcopy_array_list_byte(int veclen, const unsigned char *in, qx_long count, const qx_long *list,
                             unsigned char *out);
int UTILcopy_array_list_short(int veclen, const short *in, qx_long count, const qx_long *list, short *out);
int UTILcopy_array_list_int(int veclen, const int *in, qx_long count, const qx_long *list, int *out);
int UTILcopy_array_list_float(int veclen, const float *in, qx_long count, const qx_long *list, float *out);
int UTILcopy_array_list_double(int veclen, const double *in, qx_long count, const qx_long *list, double *out);
int UTILcopy_array_list_qx_long(int veclen, const qx_long *in, qx_long count, const qx_long *list,
                                qx_long *out);

/* Takes one component out of rows: out[i] = in[offset + i * stride].
 *
 * out   out, count elements side by side */
int UTILextract_scalar(qx_long count, int stride, const void *in, int data_type, int offset, void *out);
/* The same by type; ints go through the form for any type. */
int UTILextract_scalar_char(qx_long count, int stride, const signed char *in, int offset, signed char *out);
int UTILextract_scalar_byte(qx_long count, int stride, const unsigned char *in, int offset,
                            unsigned char *out);
int UTILextract_scalar_short(qx_long count, int stride, const short *in, int offset, short *out);
int UTILextract_scalar_float(qx_long count, int stride, const float *in, int offset, float *out);
int UTILextract_scalar_double(qx_long count, int stride, const double *in, int offset, double *out);
int UTILextract_scalar_qx_long(qx_long count, int stride, const qx_long *in, int offset, qx_long *out);

/* Puts components out of several arrays together to rows: component c of row i is
 * arrays[c][offsets[c] + i * strides[c]].
 *
 * strides, offsets   ncomp entries, in elements
 * arrays             ncomp pointers to elements of one type; an array may stand in it many times
 * ncomp              components a row
 * out                out, count rows of ncomp elements */
int UTILextract_vector(qx_long count, const int *strides, void **arrays, int data_type, int ncomp,
                       const int *offsets, void *out);
/* The same by type. */
int UTILextract_vector_char(qx_long count, const int *strides, signed char **arrays, int ncomp,
                            const int *offsets, signed char *out);
int UTILextract_vector_byte(qx_long count, const int *strides, unsigned char **arrays, int ncomp,
                            const int *offsets, unsigned char *out);
int UTILextract_vector_short(qx_long count, const int *strides, short **arrays, int ncomp, const int *offsets,
                             short *out);
int UTILextract_vector_int(qx_long count, const int *strides, int **arrays, int ncomp, const int *offsets,
                           int *out);
int UTILextract_vector_float(qx_long count, const int *strides, float **arrays, int ncomp, const int *offsets,
                             float *out);
int UTILextract_vector_double(qx_long count, const int *strides, double **arrays, int ncomp,
                              const int *offsets, double *out);
int UTILextract_vector_qx_long(qx_long count, const int *strides, qx_long **arrays, int ncomp,
                               const int *offsets, qx_long *out);

/* ---- thresholds ------------------------------------------------------------------------------------ */

/* Keeps the rows of an array whose values lie within bounds and replaces the others.
 *
 * data               values to test, one for each row: data[offset + i * stride]
 * null_flag          not 0: rows whose value is null are replaced
 * min_flag, min      min_flag not 0: rows whose value is below min are replaced
 * max_flag, max      max_flag not 0: rows whose value is above max are replaced. The bounds are brought into
 *                    the type of data as those of UTILclamp are
 * target             count rows of target_veclen elements of target_data_type, any of the seven types
 *                    whatever that of data
 * fill               what every element of a replaced row becomes, brought into the target's type as the
 *                    bounds are into that of data
 * out                out, rows as those of target. May be target; may be data where the values and their rows
 *                    lie at the same places
 *
 * An unknown type of either array gives 0, unreported. */
int UTILthreshold(qx_long count, const void *data, int stride, int offset, int data_type, int null_flag,
                  const void *null_value, int min_flag, double min, int max_flag, double max,
                  const void *target, int target_veclen, int target_data_type, double fill, void *out);

/* Tells for each value of an array on which side of a level it lies: a byte a value, the node flags of every
 * extraction (which take 0 below the level, 1 at or above it, 2 for null).
 *
 * data        count values, side by side
 * inclusive   not 0: above is value >= level; 0: above is value > level
 * level       integers are compared with its ceiling if inclusive and its floor if not, so that a level
 *             between two integers parts them either way, and one outside the type's range has all
 *             values on one side; floats with the level rounded to single precision; doubles with the
 *             level itself
 * below       the byte for values below; the codes are taken modulo 256
 * above       the byte for values above
 * null_code   the byte for null values, whichever side they lie on
 * out         out, count bytes
 *
 * NaN is below every level, and all values are below a NaN. Cost: one pass at the speed of memory. */
int UTILthreshold_scalar(qx_long count, const void *data, int data_type, int null_flag,
                         const void *null_value, int inclusive, double level, int below, int above,
                         int null_code, unsigned char *out);
/* The same by type. */
int UTILthreshold_scalar_char(qx_long count, const signed char *data, int null_flag, signed char null_value,
                              int inclusive, double level, int below, int above, int null_code,
                              unsigned char *out);
int UTILthreshold_scalar_byte(qx_long count, const unsigned char *data, int null_flag,
                              unsigned char null_value, int inclusive, double level, int below, int above,
                              int null_code, unsigned char *out);
int UTILthreshold_scalar_short(qx_long count, const short *data, int null_flag, short null_value,
                               int inclusive, double level, int below, int above, int null_code,
                               unsigned char *out);
int UTILthreshold_scalar_int(qx_long count, const int *data, int null_flag, int null_value, int inclusive,
                             double level, int below, int above, int null_code, unsigned char *out);
int UTILthreshold_scalar_float(qx_long count, const float *data, int null_flag, float null_value,
                               int inclusive, double level, int below, int above, int null_code,
                               unsigned char *out);
int UTILthreshold_scalar_double(qx_long count, const double *data, int null_flag, double null_value,
                                int inclusive, double level, int below, int above, int null_code,
                                unsigned char *out);
int UTILthreshold_scalar_qx_long(qx_long count, const qx_long *data, int null_flag, qx_long null_value,
                                 int inclusive, double level, int below, int above, int null_code,
                                 unsigned char *out);

/* ---- grids of another size ------------------------------------------------------------------------- */

/* Keeps samples 0, step, 2 step, ... along each axis of a grid, in order and side by side.
 *
 * ndim    axes, at most 16; below 1 nothing is written
 * dims    ndim entries: samples along each axis, axis 0 fastest
 * steps   ndim entries, 1 and up; one that does not divide its dimension stops before the end
 * in      one element a sample: for rows of veclen elements give veclen as an axis 0 of step 1
 * out     out, the product of (dims - 1) / steps + 1 elements
 *
 * Returns 0, without a word, for more than 16 axes, whatever the type, and for a step below 1. Cost: leading
 * axes of step 1 are copied whole. */
int UTILdownsize(int ndim, const qx_long *dims, const int *steps, int dtype, const void *in, void *out);
/* The same by type, for callers with blocks of their own.
 *
 * dims, steps   ndim entries, in elements of in along each axis
 * blocks        ndim entries: the elements copied for each sample; that of axis 0 is used
 * offset        in and out: where in out the next element goes, advanced by what was copied
 *
 * Returns 0 for a step below 1. */
int UTILdownsize_char(int ndim, const qx_long *dims, const qx_long *steps, const qx_long *blocks,
                      const signed char *in, signed char *out, qx_long *offset);
int UTILdownsize_byte(int ndim, const qx_long *dims, const qx_long *steps, const qx_long *blocks,
                      const unsigned char *in, unsigned char *out, qx_long *offset);
int UTILdownsize_short(int ndim, const qx_long *dims, const qx_long *steps, const qx_long *blocks,
                       const short *in, short *out, qx_long *offset);
int UTILdownsize_int(int ndim, const qx_long *dims, const qx_long *steps, const qx_long *blocks,
                     const int *in, int *out, qx_long *offset);
int UTILdownsize_float(int ndim, const qx_long *dims, const qx_long *steps, const qx_long *blocks,
                       const float *in, float *out, qx_long *offset);
int UTILdownsize_double(int ndim, const qx_long *dims, const qx_long *steps, const qx_long *blocks,
                        const double *in, double *out, qx_long *offset);
int UTILdownsize_qx_long(int ndim, const qx_long *dims, const qx_long *steps, const qx_long *blocks,
                         const qx_long *in, qx_long *out, qx_long *offset);

/* Maps a grid onto one of another size by nearest sample, corners on corners.
 *
 * ndim                axes, 1 to 3; for any other number nothing is written
 * in_dims, out_dims   ndim entries: samples along each axis, 1 and up, axis 0 fastest
 * veclen              elements a sample
 * in, out             rows of veclen elements, a row a sample
 *
 * Output sample i of an axis is input sample trunc(i * (in - 1.0) / (out - 1.0) + 0.4999999999999), in double:
 * halfway between two the lower one, up to some 1000 samples an axis, beyond which the sum may round up. An
 * axis of one output sample takes the first. Equal sizes give a copy. */
int UTILresample(int ndim, const qx_long *in_dims, const qx_long *out_dims, int veclen, int dtype,
                 const void *in, void *out);
/* The same by type. */
int UTILresample_char(int ndim, const qx_long *in_dims, const qx_long *out_dims, int veclen,
                      const signed char *in, signed char *out);
int UTILresample_byte(int ndim, const qx_long *in_dims, const qx_long *out_dims, int veclen,
                      const unsigned char *in, unsigned char *out);
int UTILresample_short(int ndim, const qx_long *in_dims, const qx_long *out_dims, int veclen, const short *in,
                       short *out);
int UTILresample_int(int ndim, const qx_long *in_dims, const qx_long *out_dims, int veclen, const int *in,
                     int *out);
int UTILresample_float(int ndim, const qx_long *in_dims, const qx_long *out_dims, int veclen, const float *in,
                       float *out);
int UTILresample_double(int ndim, const qx_long *in_dims, const qx_long *out_dims, int veclen,
                        const double *in, double *out);
int UTILresample_qx_long(int ndim, const qx_long *in_dims, const qx_long *out_dims, int veclen,
                         const qx_long *in, qx_long *out);

/* ---- windows and blends ---------------------------------------------------------------------------- */

/* Runs a weighted window along an array: sample i of out is the sum of weights[k] * in[i + k - nweights / 2].
 *
 * nweights   1 and up
 * weights    nweights entries; unless their sum in double is exactly 1 they are divided by it
 * count      samples
 * veclen     components a sample, each summed by itself
 * in, out    rows of veclen elements; they may not overlap
 *
 * Near the ends the weights that meet no sample drop out and the others are divided by their sum; one that is 0
 * gives what the division gives. Sums are in double, in the order of the weights, truncated towards zero for
 * the integer types: past the range of int, or of qx_long, they stop at its end, and narrower types keep the
 * low bits of an int.
 *
 * Returns 0, without a word and with out as it was, for weights that sum to 0 and for nweights below 1. An
 * unknown type is reported under "UTILfilter". Cost: count * veclen * nweights multiplications. */
int UTILfilter_1d(int nweights, const float *weights, qx_long count, int veclen, int dtype, const void *in,
                  void *out);
/* The same by type. */
int UTILfilter_1d_char(int nweights, const float *weights, qx_long count, int veclen, const signed char *in,
                       signed char *out);
int UTILfilter_1d_byte(int nweights, const float *weights, qx_long count, int veclen, const unsigned char *in,
                       unsigned char *out);
int UTILfilter_1d_short(int nweights, const float *weights, qx_long count, int veclen, const short *in,
                        short *out);
int UTILfilter_1d_int(int nweights, const float *weights, qx_long count, int veclen, const int *in, int *out);
int UTILfilter_1d_float(int nweights, const float *weights, qx_long count, int veclen, const float *in,
                        float *out);
int UTILfilter_1d_double(int nweights, const float *weights, qx_long count, int veclen, const double *in,
                         double *out);
int UTILfilter_1d_qx_long(int nweights, const float *weights, qx_long count, int veclen, const qx_long *in,
                          qx_long *out);

/* Blends two arrays: out[i] = (b[i] - a[i]) * t + a[i].
 *
 * t           0 gives a, 1 gives b as far as the sum in double does
 * a, b, out   count elements; out may be a or b
 *
 * In double, brought into the type as by UTILfilter_1d. */
int UTILinterpolate(qx_long count, double t, int dtype, const void *a, const void *b, void *out);
/* The same by type. */
int UTILinterpolate_char(qx_long count, double t, const signed char *a, const signed char *b,
                         signed char *out);
int UTILinterpolate_byte(qx_long count, double t, const unsigned char *a, const unsigned char *b,
                         unsigned char *out);
int UTILinterpolate_short(qx_long count, double t, const short *a, const short *b, short *out);
int UTILinterpolate_int(qx_long count, double t, const int *a, const int *b, int *out);
int UTILinterpolate_float(qx_long count, double t, const float *a, const float *b, float *out);
int UTILinterpolate_double(qx_long count, double t, const double *a, const double *b, double *out);
int UTILinterpolate_qx_long(qx_long count, double t, const qx_long *a, const qx_long *b, qx_long *out);

/* ---- vectors along a direction --------------------------------------------------------------------- */

/* Takes the part of each vector along a direction, or the part across it.
 *
 * count    vectors
 * veclen   components a vector, at most 3; further ones of a row are not read, nor written
 * in       rows of veclen elements
 * mode     0: axial, dot(v, dir) * dir; 1: tangential, v - dot(v, dir) * dir
 * dir      3 floats, whatever veclen; used as they stand: the parts add up to the vector only for a unit vector
 * out      out, rows of veclen floats; may be in if that holds floats
 *
 * In single precision, values converted by one rounding; missing components count as 0. An unknown type reports
 * "Illegal data type." under "UTILproj_vec" and gives 0. So does, with "Illegal mode. 0:Axial, 1:Tangential.",
 * any other mode where there is a component to write. */
int UTILproj_vec(qx_long count, int veclen, int dtype, const void *in, int mode, const float *dir,
                 float *out);

SKOKLANA_END
#endif
