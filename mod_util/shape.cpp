// The exported shape functions: cell_shape of shape.hpp under a name for each cell kind and order.

#include "shape.hpp"

#include <skoklana/cell.h>

#define EXPORT_SHAPE(suffix, kind, order)                  \
    void UTILsh_func_##suffix(const float *uvw, float *n)  \
    {                                                      \
        cell_shape<kind, order>::values(uvw, n);           \
    }                                                      \
    void UTILsh_deriv_##suffix(const float *uvw, float *d) \
    {                                                      \
        cell_shape<kind, order>::slopes(uvw, d);           \
    }
FOR_EACH_SHAPE(EXPORT_SHAPE)
