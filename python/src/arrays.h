// numpy arrays as the library's matrices. An input that is already a C-contiguous float64 array
// is used in place: only the row-pointer array of a MATRIX is built over its buffer. Anything
// else numeric (integers, booleans, float32, strided views, lists) is converted once into a new
// float64 array; non-numeric input is a TypeError. Outputs are numpy arrays made once and filled
// in place by the routine. Shape errors are ValueErrors naming the argument.
#ifndef KAVREL_PYTHON_ARRAYS_H
#define KAVREL_PYTHON_ARRAYS_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "base/types.h"

namespace py = pybind11;

// A failure of the library's routine (not of the caller's arguments): raised as kavrel.KavrelError.
struct KavrelFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

using DoubleArray = py::array_t<double, py::array::c_style>;

// A float64 view of rows x cols (a 1-D input of n values: n x 1), and the MATRIX over it.
struct ArrayIn {
    DoubleArray array;
    int rows = 0, cols = 0;
    std::vector<double *> ptr; // ptr[0] the block, then one per row
    MATRIX matrix() { return ptr.data() + 1; }
    const double *data() const { return ptr.empty() ? nullptr : ptr[0]; }
    long long size() const { return static_cast<long long>(rows) * cols; }
};

// The array of obj (ndim 1 or 2). With inPlace, a copy is refused: the caller's own float64
// C-contiguous writable buffer is required.
ArrayIn ArrayInput(py::handle obj, const char *name, bool inPlace = false);
// As ArrayInput, for a 1-D series (or an n x 1 or 1 x n matrix): rows = n, cols = 1; length n
// required when n >= 0.
ArrayIn VectorInput(py::handle obj, const char *name, long long n = -1);
// None or an array.
bool IsNone(py::handle obj);

// A new rows x cols float64 array (1-D when cols < 0), every element set to fill, and its MATRIX.
struct ArrayOut {
    DoubleArray array;
    std::vector<double *> ptr;
    MATRIX matrix() { return ptr.data() + 1; }
    double *data() { return ptr.empty() ? nullptr : ptr[0]; }
};
ArrayOut ArrayOutput(int rows, int cols, double fill);

// Runs f without the interpreter lock, so that other Python threads run meanwhile. f must not
// touch Python objects: the data() and matrix() of ArrayIn and ArrayOut are plain pointers made
// beforehand. The library's estimators and the fits keep no state of their own between calls
// (the allocation layer's counter is atomic), so calls may overlap; the language's database and
// message sink are process-wide, so Algebra runs keep the lock.
template <class F> auto WithoutGil(F &&f) {
    py::gil_scoped_release release;
    return f();
}

// Raises ValueError with "name: what".
[[noreturn]] void BadValue(const char *name, const std::string &what);
// An integer argument within [low, high].
int CheckedInt(long long v, const char *name, long long low, long long high);

#endif
