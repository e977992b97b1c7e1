#include "arrays.h"

#include <climits>
#include <cmath>

namespace {

void setRows(std::vector<double *> &ptr, double *data, int rows, int cols) {
    ptr.assign(static_cast<size_t>(rows) + 1, data);
    for (int i = 0; i < rows; ++i) ptr[static_cast<size_t>(i) + 1] = data + static_cast<size_t>(i) * cols;
}

} // namespace

void BadValue(const char *name, const std::string &what) { throw py::value_error(std::string(name) + ": " + what); }

int CheckedInt(long long v, const char *name, long long low, long long high) {
    if (v < low || v > high)
        BadValue(name, std::to_string(v) + " is outside " + std::to_string(low) + ".." + std::to_string(high));
    return static_cast<int>(v);
}

bool IsNone(py::handle obj) { return obj.is_none(); }

namespace {

// The view of a float64 C-contiguous array of 1 or 2 dimensions.
ArrayIn viewOf(DoubleArray array, const char *name) {
    ArrayIn in;
    in.array = std::move(array);
    const py::ssize_t r = in.array.shape(0), c = in.array.ndim() == 2 ? in.array.shape(1) : 1;
    if (r > INT_MAX || c > INT_MAX || (c > 0 && r > INT_MAX / c)) BadValue(name, "too large");
    in.rows = static_cast<int>(r), in.cols = static_cast<int>(c);
    setRows(in.ptr, const_cast<double *>(in.array.data()), in.rows, in.cols);
    return in;
}

} // namespace

ArrayIn ArrayInput(py::handle obj, const char *name, bool inPlace) {
    if (obj.is_none()) throw py::type_error(std::string(name) + ": an array is required, not None");
    // The common case first, with no look at the dtype's parts: a C-contiguous float64 array.
    if (DoubleArray::check_(obj)) {
        auto exact = py::reinterpret_borrow<DoubleArray>(obj);
        if ((exact.ndim() == 1 || exact.ndim() == 2) && (!inPlace || exact.writeable()))
            return viewOf(std::move(exact), name);
    }
    py::array raw;
    try {
        raw = py::array::ensure(obj);
    } catch (const py::error_already_set &) {
        raw = py::array();
    }
    if (!raw) throw py::type_error(std::string(name) + ": cannot be read as an array");
    const char kind = raw.dtype().kind();
    if (kind != 'f' && kind != 'i' && kind != 'u' && kind != 'b')
        throw py::type_error(std::string(name) + ": a numeric array is required, not dtype " +
                             std::string(py::str(raw.dtype())));
    if (raw.ndim() < 1 || raw.ndim() > 2)
        BadValue(name, "1 or 2 dimensions expected, got " + std::to_string(raw.ndim()));
    if (inPlace) throw py::type_error(std::string(name) + ": in place needs a writable C-contiguous float64 array");
    DoubleArray converted = DoubleArray::ensure(raw);
    if (!converted) throw py::type_error(std::string(name) + ": cannot be converted to float64");
    return viewOf(std::move(converted), name);
}

ArrayIn VectorInput(py::handle obj, const char *name, long long n) {
    ArrayIn in = ArrayInput(obj, name);
    if (in.array.ndim() == 2 && in.rows != 1 && in.cols != 1)
        BadValue(name,
                 "a vector is required, got shape (" + std::to_string(in.rows) + ", " + std::to_string(in.cols) + ")");
    in.rows = static_cast<int>(in.size()), in.cols = 1;
    setRows(in.ptr, const_cast<double *>(in.array.data()), in.rows, 1);
    if (n >= 0 && in.rows != n) BadValue(name, std::to_string(n) + " values expected, got " + std::to_string(in.rows));
    return in;
}

ArrayOut ArrayOutput(int rows, int cols, double fill) {
    ArrayOut out;
    if (cols < 0)
        out.array = DoubleArray(static_cast<py::ssize_t>(rows));
    else
        out.array = DoubleArray({static_cast<py::ssize_t>(rows), static_cast<py::ssize_t>(cols)});
    double *d = out.array.mutable_data();
    const size_t n = static_cast<size_t>(rows) * (cols < 0 ? 1 : cols);
    for (size_t i = 0; i < n; ++i) d[i] = fill;
    setRows(out.ptr, d, rows, cols < 0 ? 1 : cols);
    return out;
}
