// Data arrays between VTK and the library's element types.
#pragma once

#include <skoklana/types.h>

#include <vtkDataArray.h>
#include <vtkSmartPointer.h>
#include <vtkType.h>

#include <string>
#include <vector>

class vtkDataSet;
class vtkDataSetAttributes;

// VTK's 64-bit integer and ours are two types of one representation.
static_assert(sizeof(vtkTypeInt64) == sizeof(qx_long), "lists are shared with VTK");
inline vtkTypeInt64 *vtk_list(qx_long *list)
{
    return reinterpret_cast<vtkTypeInt64 *>(list);
}
inline qx_long *our_list(vtkTypeInt64 *list)
{
    return reinterpret_cast<qx_long *>(list);
}

// One data array as the library takes it. The values are VTK's own where its type and layout allow, and a
// converted copy where not.
struct typed_array {
    std::string name;
    int type = DTYPE_FLOAT; // DTYPE_CHAR to DTYPE_QX_LONG
    int veclen = 1;         // values a node or cell
    qx_long count = 0;      // nodes or cells
    void *values = nullptr;
    vtkSmartPointer<vtkDataArray> kept; // holds values
    std::string widened;                // the type that the file had, where values are a copy of another type
};

// Arrays that are no numbers (texts, and VTK's marks of ghosts) are left out, and so are those whose length
// is not count, of which notes tells.
std::vector<typed_array> arrays_of(vtkDataSetAttributes *attributes, qx_long count,
                                   std::vector<std::string> *notes);

// The arrays that go along onto the nodes and cells of a result.
struct carried_arrays {
    std::vector<typed_array> node, cell;
};

// A new VTK array for count rows of the array's type, with its name; values unset.
typed_array like(const typed_array &array, qx_long count);
vtkSmartPointer<vtkDataArray> new_vtk_array(int type, int veclen, qx_long count, const std::string &name);
void *values_of(vtkDataArray *array);

const char *name_of_type(int type);

// Calls body with the values as pointers of their own type.
template <typename Body> void with_values(const typed_array &array, Body body)
{
    switch (array.type) {
    case DTYPE_CHAR: body(static_cast<signed char *>(array.values)); break;
    case DTYPE_BYTE: body(static_cast<unsigned char *>(array.values)); break;
    case DTYPE_SHORT: body(static_cast<short *>(array.values)); break;
    case DTYPE_INT: body(static_cast<int *>(array.values)); break;
    case DTYPE_FLOAT: body(static_cast<float *>(array.values)); break;
    case DTYPE_DOUBLE: body(static_cast<double *>(array.values)); break;
    default: body(static_cast<qx_long *>(array.values));
    }
}

// The least and greatest value; of the length of rows where veclen is above 1. NaN do not count.
struct value_range {
    double lo = 0, hi = 0;
    qx_long nans = 0; // rows with a NaN
    bool any = false; // lo and hi are set
};
value_range range_of(const typed_array &array);

// Writes the value as one of the type's. False: the type cannot hold it (floats hold all, rounded).
bool value_in_type(int type, double value, void *out);
// A bound limited to what the type can hold. True: it was beyond.
bool limit_to_type(int type, double *bound);

// A scalar with, maybe, a null value.
struct scalar_array {
    typed_array array;
    int null_flag = 0;
    double null_value_bits = 0; // holds one value of the array's type
    const void *null_value() const { return &null_value_bits; }
};

// One component of an array, its length (component -1), or the array itself where it has one. NaN mean no
// value: they become null, which is null_value where has_null, and otherwise a value that no node has.
scalar_array scalar_of(const typed_array &array, int component, bool has_null, double null_value);
// Rows of any length as they are. Those with a NaN become null, as do those whose first value is null_value where
// has_null.
scalar_array rows_with_null(const typed_array &array, bool has_null, double null_value);
