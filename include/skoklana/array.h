/* Kernels on typed arrays. */
#ifndef SKOKLANA_ARRAY_H
#define SKOKLANA_ARRAY_H

#include <skoklana/types.h>

SKOKLANA_BEGIN

int UTILclamp(qx_long count, const void *in, int stride, int offset, int data_type, int null_flag,
              const void *null_value, int min_flag, double min, int max_flag, double max, void *out);
int UTILcopy_array_list(qx_long nnodes, int veclen, int data_type, const void *in, qx_long count,
                        const qx_long *list, void *out);
int UTILextract_scalar(qx_long count, int stride, const void *in, int data_type, int offset, void *out);
int UTILextract_vector(qx_long count, const int *strides, void **arrays, int data_type, int ncomp,
                       const int *offsets, void *out);
int UTILthreshold(qx_long count, const void *data, int stride, int offset, int data_type, int null_flag,
                  const void *null_value, int min_flag, double min, int max_flag, double max,
                  const void *target, int target_veclen, int target_data_type, double fill, void *out);
int UTILthreshold_scalar(qx_long count, const void *data, int data_type, int null_flag,
                         const void *null_value, int inclusive, double level, int below, int above,
                         int null_code, unsigned char *out);
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
int UTILextract_scalar_char(qx_long count, int stride, const signed char *in, int offset, signed char *out);
int UTILextract_scalar_byte(qx_long count, int stride, const unsigned char *in, int offset,
                            unsigned char *out);
int UTILextract_scalar_short(qx_long count, int stride, const short *in, int offset, short *out);
int UTILextract_scalar_float(qx_long count, int stride, const float *in, int offset, float *out);
int UTILextract_scalar_double(qx_long count, int stride, const double *in, int offset, double *out);
int UTILextract_scalar_qx_long(qx_long count, int stride, const qx_long *in, int offset, qx_long *out);
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

SKOKLANA_END
#endif
