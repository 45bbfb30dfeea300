#include "arrays.hpp"

#include "failure.hpp"

#include <skoklana/array.h>
#include <skoklana/host/tool.h>

#include <vtkDataArray.h>
#include <vtkDataSetAttributes.h>
#include <vtkFloatArray.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

// VTK's type that a code is kept in.
static const int vtk_types[] = {VTK_SIGNED_CHAR, VTK_UNSIGNED_CHAR, VTK_SHORT,    VTK_INT,
                                VTK_FLOAT,       VTK_DOUBLE,        VTK_LONG_LONG};

const char *name_of_type(int type)
{
    static const char *const names[] = {"char", "byte", "short", "int", "float", "double", "long"};
    return names[type];
}

// The code that holds every value of a VTK type, and whether the bits are the same.
static int code_of(int vtk_type, bool *same)
{
    *same = true;
    switch (vtk_type) {
    case VTK_CHAR: *same = std::numeric_limits<char>::is_signed; return *same ? DTYPE_CHAR : DTYPE_BYTE;
    case VTK_SIGNED_CHAR: return DTYPE_CHAR;
    case VTK_UNSIGNED_CHAR: return DTYPE_BYTE;
    case VTK_SHORT: return DTYPE_SHORT;
    case VTK_INT: return DTYPE_INT;
    case VTK_FLOAT: return DTYPE_FLOAT;
    case VTK_DOUBLE: return DTYPE_DOUBLE;
    case VTK_LONG:
    case VTK_LONG_LONG:
    case VTK_ID_TYPE: return DTYPE_QX_LONG;
    default: *same = false;
    }
    switch (vtk_type) {
    case VTK_BIT: return DTYPE_BYTE;
    case VTK_UNSIGNED_SHORT: return DTYPE_INT;
    default: return DTYPE_QX_LONG; // unsigned int, long, long long
    }
}

vtkSmartPointer<vtkDataArray> new_vtk_array(int type, int veclen, qx_long count, const std::string &name)
{
    auto array = vtkSmartPointer<vtkDataArray>::Take(vtkDataArray::CreateDataArray(vtk_types[type]));
    array->SetName(name.c_str());
    array->SetNumberOfComponents(veclen);
    array->SetNumberOfTuples(count);
    return array;
}

void *values_of(vtkDataArray *array)
{
    return array->GetVoidPointer(0);
}

typed_array like(const typed_array &array, qx_long count)
{
    typed_array out = array;
    out.count = count;
    out.kept = new_vtk_array(array.type, array.veclen, count, array.name);
    out.values = values_of(out.kept);
    return out;
}

static typed_array typed(vtkDataArray *from, const std::string &name)
{
    typed_array out;
    bool same;
    out.name = name;
    out.type = code_of(from->GetDataType(), &same);
    out.veclen = from->GetNumberOfComponents();
    out.count = from->GetNumberOfTuples();
    if (same && from->HasStandardMemoryLayout()) {
        out.kept = from;
    } else {
        // an unsigned 64-bit value may be above all signed ones
        if (!same && from->GetDataTypeSize() == 8 && from->GetRange(-1)[1] >= 9.2e18) out.type = DTYPE_DOUBLE;
        if (!same) out.widened = from->GetDataTypeAsString();
        out.kept = new_vtk_array(out.type, out.veclen, out.count, name);
        for (int c = 0; c < out.veclen; ++c)
            out.kept->CopyComponent(c, from, c);
        if (out.type == DTYPE_QX_LONG && !same) // exactly; CopyComponent goes through double
            for (qx_long i = 0; i < out.count * out.veclen; ++i)
                static_cast<qx_long *>(values_of(out.kept))[i] =
                    static_cast<qx_long>(from->GetVariantValue(i).ToUnsignedLongLong());
    }
    out.values = values_of(out.kept);
    return out;
}

std::vector<typed_array> arrays_of(vtkDataSetAttributes *attributes, qx_long count,
                                   std::vector<std::string> *notes)
{
    std::vector<typed_array> arrays;
    for (int i = 0; i < attributes->GetNumberOfArrays(); ++i) {
        vtkDataArray *array = attributes->GetArray(i); // null for texts
        if (array == nullptr || array->GetNumberOfComponents() < 1) continue;
        const std::string name = array->GetName() != nullptr && *array->GetName() != '\0'
                                     ? array->GetName()
                                     : "array" + std::to_string(i);
        if (name == vtkDataSetAttributes::GhostArrayName()) continue;
        if (array->GetNumberOfTuples() != count) {
            notes->push_back("array " + name + " is left out: it has " +
                             std::to_string(array->GetNumberOfTuples()) + " rows, not " +
                             std::to_string(count));
            continue;
        }
        arrays.push_back(typed(array, name));
    }
    return arrays;
}

// ---- values -------------------------------------------------------------------------------------------------

value_range range_of(const typed_array &array)
{
    value_range range;
    with_values(array, [&](auto *values) {
        const int veclen = array.veclen;
        for (qx_long i = 0; i < array.count; ++i) {
            double value = static_cast<double>(values[i * veclen]);
            if (veclen > 1) {
                double square = 0;
                for (int c = 0; c < veclen; ++c)
                    square += static_cast<double>(values[i * veclen + c]) *
                              static_cast<double>(values[i * veclen + c]);
                value = std::sqrt(square);
            }
            if (std::isnan(value)) {
                ++range.nans;
                continue;
            }
            range.lo = range.any ? std::min(range.lo, value) : value;
            range.hi = range.any ? std::max(range.hi, value) : value;
            range.any = true;
        }
    });
    return range;
}

// A value that is not among the values of a floating array, to stand for NaN. The lowest of the type is
// never met in practice, but a field may hold it as its own mark.
template <typename T> static T unused_value(const T *values, qx_long count)
{
    for (T candidate = std::numeric_limits<T>::lowest();; candidate /= 2)
        if (std::find(values, values + count, candidate) == values + count) return candidate;
}

// Rows with a NaN become null, by their first value.
template <typename T> static void nan_to_null(scalar_array *scalar)
{
    typed_array &array = scalar->array;
    const int veclen = array.veclen;
    T *values = static_cast<T *>(array.values), *end = values + array.count * veclen;
    if (std::none_of(values, end, [](T value) { return std::isnan(value); })) return;
    if (scalar->null_flag == 0) {
        const T null = unused_value(values, array.count * veclen);
        memcpy(&scalar->null_value_bits, &null, sizeof null);
        scalar->null_flag = 1;
    }
    T null;
    memcpy(&null, &scalar->null_value_bits, sizeof null);
    const typed_array copy = like(array, array.count);
    T *to = std::copy(values, end, static_cast<T *>(copy.values)) - array.count * veclen;
    for (qx_long i = 0; i < array.count; ++i, to += veclen)
        if (std::any_of(to, to + veclen, [](T value) { return std::isnan(value); }))
            std::fill_n(to, veclen, null);
    array = copy;
}

bool value_in_type(int type, double value, void *out)
{
    double back = value;
    if (limit_to_type(type, &back) && type != DTYPE_FLOAT) return false;
    UTILdouble_to_type(type, back, out);
    UTILtype_to_double(type, out, &back);
    return back == value || type == DTYPE_FLOAT;
}

bool limit_to_type(int type, double *bound)
{
    typed_array of_type;
    of_type.type = type;
    bool beyond = false;
    with_values(of_type, [&](auto *none) {
        using T = std::remove_reference_t<decltype(*none)>;
        const double lo = static_cast<double>(std::numeric_limits<T>::lowest());
        double hi = static_cast<double>(std::numeric_limits<T>::max());
        if constexpr (sizeof(T) == 8 && std::is_integral_v<T>) hi = std::nextafter(hi, 0); // it rounded up
        beyond = *bound < lo || *bound > hi;
        *bound = std::clamp(*bound, lo, hi);
    });
    return beyond;
}

// A null value that the type cannot hold is held by no row.
static void set_null(scalar_array *scalar, bool has_null, double null_value)
{
    if (has_null)
        scalar->null_flag = value_in_type(scalar->array.type, null_value, &scalar->null_value_bits) ? 1 : 0;
    if (scalar->array.type == DTYPE_FLOAT) nan_to_null<float>(scalar);
    if (scalar->array.type == DTYPE_DOUBLE) nan_to_null<double>(scalar);
}

scalar_array rows_with_null(const typed_array &array, bool has_null, double null_value)
{
    scalar_array rows;
    rows.array = array;
    set_null(&rows, has_null, null_value);
    return rows;
}

scalar_array scalar_of(const typed_array &array, int component, bool has_null, double null_value)
{
    scalar_array scalar;
    scalar.array = array;
    if (array.veclen > 1 && component < 0) {
        scalar.array.type =
            array.type == DTYPE_DOUBLE || array.type == DTYPE_QX_LONG ? DTYPE_DOUBLE : DTYPE_FLOAT;
        scalar.array.veclen = 1;
        scalar.array = like(scalar.array, array.count);
        with_values(array, [&](auto *from) {
            with_values(scalar.array, [&](auto *to) {
                for (qx_long i = 0; i < array.count; ++i) {
                    double square = 0;
                    for (int c = 0; c < array.veclen; ++c) {
                        const double value = static_cast<double>(from[i * array.veclen + c]);
                        square += value * value;
                    }
                    to[i] = static_cast<std::remove_reference_t<decltype(*to)>>(std::sqrt(square));
                }
            });
        });
    } else if (array.veclen > 1) {
        scalar.array.veclen = 1;
        scalar.array = like(scalar.array, array.count);
        if (UTILextract_scalar(array.count, array.veclen, array.values, array.type, component,
                               scalar.array.values) != 1)
            throw failure("component " + std::to_string(component) + " of " + array.name +
                          " could not be taken");
    }
    set_null(&scalar, has_null, null_value);
    return scalar;
}
