// Kernels on plain arrays. They know no mesh; arrays of any shape come as contiguous blocks.
#include "core.hpp"

#include <skoklana/array.h>
#include <skoklana/measure.h>
#include <skoklana/scatter.h>

#include <algorithm>
#include <string>

namespace {

int code_of(const char *name, const py::array &values)
{
    const int code = type_code(values.dtype());
    if (code < 0) throw py::type_error(std::string(name) + ": the library has no such element type");
    if ((values.flags() & py::array::c_style) == 0)
        throw py::value_error(std::string(name) + ": is not contiguous");
    return code;
}

py::array same_shape(const py::array &values, const py::dtype &type)
{
    return py::array(type, std::vector<py::ssize_t>(values.shape(), values.shape() + values.ndim()));
}

std::vector<qx_long> reversed_shape(const py::sequence &shape)
{
    std::vector<qx_long> dims;
    for (const py::handle &n : shape)
        dims.push_back(n.cast<qx_long>());
    std::reverse(dims.begin(), dims.end());
    return dims;
}

// A null value given as an array of one element; NULL where there is none.
const void *null_of(const py::object &null, int code)
{
    if (null.is_none()) return nullptr;
    const auto one = null.cast<py::array>();
    if (one.size() != 1 || type_code(one.dtype()) != code)
        throw py::type_error("null: is no element of the type of values");
    return one.data();
}

double number_or(const py::object &value, double otherwise)
{
    return value.is_none() ? otherwise : value.cast<double>();
}

py::array clamp(const py::array &values, const py::object &low, const py::object &high,
                const py::object &null)
{
    const int code = code_of("values", values);
    py::array out = same_shape(values, values.dtype());
    const void *from = values.data(), *none = null_of(null, code);
    void *to = out.mutable_data();
    const qx_long count = values.size();
    const double min = number_or(low, 0), max = number_or(high, 0);
    const int has_min = low.is_none() ? 0 : 1, has_max = high.is_none() ? 0 : 1;
    run_call("clamp", nullptr, py::none(), [&] {
        return of_library(UTILclamp(count, from, 1, 0, code, none != nullptr ? 1 : 0, none, has_min, min,
                                    has_max, max, to) == 1);
    });
    return out;
}

// target: rows beside the values, flattened behind the first axis.
py::array replace_outside(const py::array &values, const py::array &target, const py::object &low,
                          const py::object &high, double fill, const py::object &null)
{
    const int code = code_of("values", values), target_code = code_of("target", target);
    const qx_long count = values.size();
    if (count > 0 && (target.size() % count != 0 || target.size() == 0))
        throw py::value_error("target: has no row for each value");
    const int veclen = count > 0 ? static_cast<int>(target.size() / count) : 1;
    py::array out = same_shape(target, target.dtype());
    const void *from = values.data(), *none = null_of(null, code), *rows = target.data();
    void *to = out.mutable_data();
    const double min = number_or(low, 0), max = number_or(high, 0);
    const int has_min = low.is_none() ? 0 : 1, has_max = high.is_none() ? 0 : 1;
    run_call("replace_outside", nullptr, py::none(), [&] {
        return of_library(UTILthreshold(count, from, 1, 0, code, none != nullptr ? 1 : 0, none, has_min, min,
                                        has_max, max, rows, veclen, target_code, fill, to) == 1);
    });
    return out;
}

py::array classify(const py::array &values, double level, bool inclusive, const py::object &null)
{
    const int code = code_of("values", values);
    py::array out = same_shape(values, py::dtype::of<unsigned char>());
    const void *from = values.data(), *none = null_of(null, code);
    auto *to = static_cast<unsigned char *>(out.mutable_data());
    const qx_long count = values.size();
    run_call("classify", nullptr, py::none(), [&] {
        return of_library(UTILthreshold_scalar(count, from, code, none != nullptr ? 1 : 0, none,
                                               inclusive ? 1 : 0, level, 0, 1, 2, to) == 1);
    });
    return out;
}

py::array take(const py::array &values, const py::array &rows)
{
    const int code = code_of("values", values);
    if (values.ndim() < 1) throw py::value_error("values: has no rows");
    const qx_long nrows = values.shape(0), count = rows.size();
    const qx_long veclen = nrows > 0 ? values.size() / nrows : 1;
    const qx_long *list = elements<qx_long>("rows", rows, count);
    std::vector<py::ssize_t> shape(values.shape(), values.shape() + values.ndim());
    shape[0] = count;
    py::array out(values.dtype(), shape);
    const void *from = values.data();
    void *to = out.mutable_data();
    run_call("take", nullptr, py::none(), [&] {
        for (qx_long i = 0; i < count; ++i)
            if (list[i] < 0 || list[i] >= nrows)
                throw std::out_of_range("rows: " + std::to_string(list[i]) + " is none of the " +
                                        std::to_string(nrows) + " rows of values");
        return of_library(UTILcopy_array_list(nrows, static_cast<int>(veclen), code, from, count, list, to) ==
                          1);
    });
    return out;
}

py::array component(const py::array &values, int number)
{
    const int code = code_of("values", values);
    if (values.ndim() < 2) throw py::value_error("values: has no components");
    const int veclen = static_cast<int>(values.shape(values.ndim() - 1));
    if (number < 0 || number >= veclen)
        throw py::index_error("component: " + std::to_string(number) + " is none of 0 to " +
                              std::to_string(veclen - 1));
    py::array out(values.dtype(),
                  std::vector<py::ssize_t>(values.shape(), values.shape() + values.ndim() - 1));
    const qx_long count = out.size();
    const void *from = values.data();
    void *to = out.mutable_data();
    run_call("component", nullptr, py::none(),
             [&] { return of_library(UTILextract_scalar(count, veclen, from, code, number, to) == 1); });
    return out;
}

py::array stack(const py::sequence &arrays)
{
    std::vector<py::array> keep;
    std::vector<void *> at;
    for (const py::handle &item : arrays) {
        keep.push_back(item.cast<py::array>());
        at.push_back(const_cast<void *>(keep.back().data()));
    }
    if (keep.empty()) throw py::value_error("arrays: there are none");
    const int code = code_of("arrays", keep[0]);
    for (const py::array &array : keep)
        if (code_of("arrays", array) != code || array.size() != keep[0].size())
            throw py::value_error("arrays: are not all of one type and shape");
    std::vector<py::ssize_t> shape(keep[0].shape(), keep[0].shape() + keep[0].ndim());
    shape.push_back(static_cast<py::ssize_t>(keep.size()));
    py::array out(keep[0].dtype(), shape);
    const qx_long count = keep[0].size();
    const std::vector<int> strides(keep.size(), 1), offsets(keep.size(), 0);
    void *to = out.mutable_data();
    run_call("stack", nullptr, py::none(), [&] {
        return of_library(UTILextract_vector(count, strides.data(), at.data(), code,
                                             static_cast<int>(at.size()), offsets.data(), to) == 1);
    });
    return out;
}

// steps by axis of the array; behind them components, each kept.
py::array downsize(const py::array &values, const py::sequence &steps_)
{
    const int code = code_of("values", values);
    std::vector<qx_long> dims, steps;
    for (const py::handle &n : steps_)
        steps.push_back(n.cast<qx_long>());
    if (static_cast<py::ssize_t>(steps.size()) > values.ndim() || values.ndim() > 16)
        throw py::value_error("steps: are more than values has axes");
    steps.resize(static_cast<size_t>(values.ndim()), 1);
    std::vector<py::ssize_t> shape;
    std::vector<int> reversed;
    for (py::ssize_t d = 0; d < values.ndim(); ++d) {
        const qx_long step = steps[static_cast<size_t>(d)];
        if (step < 1 || step > 1 << 30) throw py::value_error("steps: are 1 and up");
        shape.push_back(values.shape(d) > 0 ? (values.shape(d) - 1) / step + 1 : 0);
    }
    for (py::ssize_t d = values.ndim(); d-- > 0;) {
        dims.push_back(values.shape(d));
        reversed.push_back(static_cast<int>(steps[static_cast<size_t>(d)]));
    }
    py::array out(values.dtype(), shape);
    if (out.size() == 0) return out;
    const void *from = values.data();
    void *to = out.mutable_data();
    run_call("downsize", nullptr, py::none(), [&] {
        return of_library(
            UTILdownsize(static_cast<int>(dims.size()), dims.data(), reversed.data(), code, from, to) == 1);
    });
    return out;
}

// shape: of the grid that is wanted; what values has behind as many axes are components.
py::array resample(const py::array &values, const py::sequence &shape_)
{
    const int code = code_of("values", values);
    const std::vector<qx_long> to_dims = reversed_shape(shape_);
    const auto ndim = static_cast<py::ssize_t>(to_dims.size());
    if (ndim < 1 || ndim > 3 || values.ndim() < ndim)
        throw py::value_error("shape: has one to three axes of values");
    std::vector<py::ssize_t> shape;
    std::vector<qx_long> from_dims;
    qx_long veclen = 1;
    for (py::ssize_t d = 0; d < values.ndim(); ++d) {
        shape.push_back(d < ndim ? to_dims[static_cast<size_t>(ndim - 1 - d)] : values.shape(d));
        if (d >= ndim) veclen *= values.shape(d);
    }
    for (py::ssize_t d = ndim; d-- > 0;)
        from_dims.push_back(values.shape(d));
    const auto is_positive = [](qx_long n) { return n > 0; };
    if (!std::all_of(to_dims.begin(), to_dims.end(), is_positive) ||
        !std::all_of(from_dims.begin(), from_dims.end(), is_positive))
        throw py::value_error("shape: has an axis without samples");
    py::array out(values.dtype(), shape);
    const void *from = values.data();
    void *to = out.mutable_data();
    run_call("resample", nullptr, py::none(), [&] {
        return of_library(UTILresample(static_cast<int>(ndim), from_dims.data(), to_dims.data(),
                                       static_cast<int>(veclen), code, from, to) == 1);
    });
    return out;
}

py::array filter(const py::array &values, const py::array &weights)
{
    const int code = code_of("values", values);
    const int nweights = static_cast<int>(weights.size());
    const float *weight = elements<float>("weights", weights, nweights);
    if (nweights < 1) throw py::value_error("weights: there are none");
    if (std::all_of(weight, weight + nweights, [](float w) { return w == 0; }))
        throw py::value_error("weights: are all 0");
    py::array out = same_shape(values, values.dtype());
    if (values.size() == 0) return out;
    const qx_long count = values.ndim() > 0 ? values.shape(0) : 1, veclen = values.size() / count;
    const void *from = values.data();
    void *to = out.mutable_data();
    run_call("filter", nullptr, py::none(), [&] {
        if (UTILfilter_1d(nweights, weight, count, static_cast<int>(veclen), code, from, to) != 1)
            throw std::invalid_argument("weights: sum to 0");
        return static_cast<int>(HOST_DONE);
    });
    return out;
}

py::array blend(const py::array &a, const py::array &b, double t)
{
    const int code = code_of("a", a);
    if (code_of("b", b) != code || a.size() != b.size())
        throw py::value_error("b: is not of the type and shape of a");
    py::array out = same_shape(a, a.dtype());
    const void *from = a.data(), *other = b.data();
    void *to = out.mutable_data();
    const qx_long count = a.size();
    run_call("blend", nullptr, py::none(),
             [&] { return of_library(UTILinterpolate(count, t, code, from, other, to) == 1); });
    return out;
}

py::array project(const py::array &vectors, const py::array &direction, bool tangential)
{
    const int code = code_of("vectors", vectors);
    const float *along = elements<float>("direction", direction, 3);
    if (vectors.ndim() < 1 || vectors.shape(vectors.ndim() - 1) < 1 || vectors.shape(vectors.ndim() - 1) > 3)
        throw py::value_error("vectors: have one to three components");
    const int veclen = static_cast<int>(vectors.shape(vectors.ndim() - 1));
    py::array out = same_shape(vectors, py::dtype::of<float>());
    const qx_long count = vectors.size() / veclen;
    const void *from = vectors.data();
    auto *to = static_cast<float *>(out.mutable_data());
    run_call("project", nullptr, py::none(), [&] {
        return of_library(UTILproj_vec(count, veclen, code, from, tangential ? 1 : 0, along, to) == 1);
    });
    return out;
}

// ---- polynomials ---------------------------------------------------------------------------------------------------

// The solution of linear equations, by unknown; matrix: rows are equations.
py::object solve(const py::array &matrix, const py::array &right, double eps)
{
    const qx_long n = right.size();
    if (n > 1 << 15) throw py::value_error("matrix: is too large");
    const double *a = elements<double>("matrix", matrix, n * n), *b = elements<double>("right", right, n);
    std::vector<double> columns(static_cast<size_t>(n * n)), side(b, b + n), x(static_cast<size_t>(n));
    std::vector<qx_long> perm(static_cast<size_t>(n));
    for (qx_long i = 0; i < n; ++i)
        for (qx_long j = 0; j < n; ++j)
            columns[static_cast<size_t>(j * n + i)] = a[i * n + j];
    if (UTILgauss_solve(columns.data(), side.data(), perm.data(), x.data(), static_cast<int>(n), eps) != 1)
        return py::none();
    py::array_t<double> out(n);
    for (qx_long i = 0; i < n; ++i)
        out.mutable_at(perm[static_cast<size_t>(i)]) = x[static_cast<size_t>(i)];
    return std::move(out);
}

py::object least_squares(const py::array &x, const py::array &y, int ncoef)
{
    const int code = code_of("y", y);
    const float *at = elements<float>("x", x, y.size());
    if (ncoef < 1) throw py::value_error("degree: is 0 and up");
    py::array_t<double> out(ncoef);
    double *coefs = out.mutable_data();
    const void *from = y.data();
    const qx_long count = y.size();
    bool done = false;
    run_call("polyfit", nullptr, py::none(), [&] {
        done = UTILleast_squares(count, at, code, from, ncoef, coefs) == 1;
        return static_cast<int>(HOST_DONE);
    });
    if (!done) return py::none();
    return std::move(out);
}

py::array polynomial(const py::array &coefs, const py::array &x, const py::dtype &type)
{
    const double *c = elements<double>("coefficients", coefs, coefs.size());
    const float *at = elements<float>("x", x, x.size());
    const int code = type_code(type), ncoef = static_cast<int>(coefs.size());
    if (code < 0) throw py::type_error("dtype: the library has no such element type");
    py::array out = same_shape(x, type);
    void *to = out.mutable_data();
    const qx_long count = x.size();
    run_call("polyval", nullptr, py::none(),
             [&] { return of_library(UTILeval_polynom(ncoef, c, count, at, to, code) == 1); });
    return out;
}

// Values of a polynomial of second degree in one to three coordinates.
py::array quadratic(const py::array &points, const py::array &coefs, const py::dtype &type)
{
    if (points.ndim() != 2) throw py::value_error("points: has the wrong shape");
    const int ndim = static_cast<int>(points.shape(1)), code = type_code(type);
    constexpr int ncoefs[4] = {0, 3, 6, 10};
    if (ndim < 1 || ndim > 3) throw py::value_error("points: have one to three coordinates");
    if (code < 0) throw py::type_error("dtype: the library has no such element type");
    const float *at = elements<float>("points", points, points.size()),
                *c = elements<float>("coefficients", coefs, ncoefs[ndim]);
    const qx_long count = points.shape(0);
    py::array out(type, std::vector<py::ssize_t>{count});
    void *to = out.mutable_data();
    run_call("quadratic", nullptr, py::none(),
             [&] { return of_library(UTILgen_data(count, 1, 0, code, to, ndim, at, c, 0, 0) == 1); });
    return out;
}

} // namespace

void bind_arrays(py::module_ &m)
{
    m.def("clamp", &clamp);
    m.def("replace_outside", &replace_outside);
    m.def("classify", &classify);
    m.def("take", &take);
    m.def("component", &component);
    m.def("stack", &stack);
    m.def("downsize", &downsize);
    m.def("resample", &resample);
    m.def("filter", &filter);
    m.def("blend", &blend);
    m.def("project", &project);
    m.def("solve", &solve);
    m.def("least_squares", &least_squares);
    m.def("polynomial", &polynomial);
    m.def("quadratic", &quadratic);
}
