// The extension module kavrel._kavrel: the library's routines over numpy arrays. Argument errors
// raise TypeError or ValueError before the library is called; failures of a routine raise
// kavrel.KavrelError with the library's message.
#include "arrays.h"

void RegisterEstimators(py::module_ &m);
void RegisterFits(py::module_ &m);
void RegisterAlgebra(py::module_ &m);

PYBIND11_MODULE(_kavrel, m) {
    m.doc() = "Kavrel compute library: estimators, filters, estimations and the Algebra language";
    py::register_exception<KavrelFailure>(m, "KavrelError", PyExc_RuntimeError);
    RegisterEstimators(m);
    RegisterFits(m);
    RegisterAlgebra(m);
}
