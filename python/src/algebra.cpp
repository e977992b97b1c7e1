// Algebra programs over the columns of a frame: a database is made from the columns (dated by
// the frame's annual, quarterly or monthly index, or over observations 1..T), the program is
// scanned, compiled and run over every observation, and every variable comes back. Scan, compile
// and run errors raise kavrel.KavrelError with the compiler's message.
#include <string>
#include <vector>

#include "algebra/algebra.h"
#include <pybind11/stl.h>

#include "arrays.h"
#include "database/database.h"
#include "database/messages.h"

using namespace py::literals;

namespace {

// The library reports through one process-wide sink; the module keeps the last error for the
// exception instead of printing it.
std::string g_lastMessage;
void keepMessage(const char *title, const char *text) { g_lastMessage = std::string(title) + ": " + text; }

struct DbHolder {
    Database *db = nullptr;
    AlgebraCompiler *c = nullptr;
    ~DbHolder() {
        AlgebraFree(c);
        DbFree(db);
    }
};

// The compiler's message with plain line ends and no trailing blank.
std::string trimmed(std::string s) {
    for (size_t i; (i = s.find('\r')) != std::string::npos;) s.erase(i, 1);
    while (!s.empty() && (s.back() == '\n' || s.back() == '\r' || s.back() == ' ')) s.pop_back();
    return s;
}

py::tuple algebra(const std::string &program, const std::vector<std::string> &names, const py::list &columns,
                  int startYear, int startPeriod, int frequency, const std::string &errors) {
    if (errors != "raise" && errors != "warn" && errors != "ignore")
        BadValue("errors", "'" + errors + "' is not one of raise, warn, ignore");
    if (names.size() != columns.size()) BadValue("names", "one name per column");
    std::vector<ArrayIn> data;
    long long T = -1;
    for (size_t j = 0; j < columns.size(); ++j) {
        data.push_back(VectorInput(columns[j], names[j].c_str(), T));
        T = data.back().rows;
    }
    if (T < 1) BadValue("frame", "at least one observation is needed");
    if (T > DB_MAX_OBS) BadValue("frame", "too many observations");
    if (frequency < 1 || startPeriod < 1 || startPeriod > frequency)
        BadValue("frequency", "bad start period or frequency");
    DbHolder h;
    h.db = DbCreate("python", 0);
    if (!h.db) throw KavrelFailure("cannot create the database: " + g_lastMessage);
    Sample s{startYear, startPeriod, startYear, startPeriod, frequency};
    SampleSetCount(&s, static_cast<int>(T));
    if (!DbSetSample(h.db, s) || h.db->obsCount != T) throw KavrelFailure("cannot set the sample: " + g_lastMessage);
    for (size_t j = 0; j < names.size(); ++j) {
        const int i = DbAddVariables(h.db, 1);
        if (i < 0 || !DbSetVariableName(h.db, i, names[j].c_str()))
            throw KavrelFailure("cannot add variable " + names[j]);
        const double *v = data[j].data();
        for (long long t = 0; t < T; ++t) h.db->columns[i][t] = v[t] == v[t] ? v[t] : MissingValueOf();
    }
    g_lastMessage.clear();
    h.c = AlgebraCreate(h.db, 0);
    if (!h.c) throw KavrelFailure("Out of memory");
    if (!AlgebraLoad(h.c, program.c_str(), nullptr) || !AlgebraCompile(h.c, h.db))
        throw KavrelFailure(trimmed(AlgebraMessage(h.c)));
    std::string runErrors;
    if (!AlgebraRun(h.c, 0, h.db->obsCount - 1, h.db->obsCount, 1)) runErrors = trimmed(AlgebraMessage(h.c));
    if (!runErrors.empty() && errors == "raise") throw KavrelFailure(runErrors);
    std::vector<std::string> outNames;
    py::list outColumns;
    for (int i = 0; i < h.db->varCount; ++i) {
        outNames.push_back(h.db->names[i]);
        ArrayOut col = ArrayOutput(h.db->obsCount, -1, 0.0);
        std::copy(h.db->columns[i], h.db->columns[i] + h.db->obsCount, col.data());
        outColumns.append(col.array);
    }
    return py::make_tuple(outNames, outColumns, errors == "warn" ? runErrors : std::string());
}

} // namespace

void RegisterAlgebra(py::module_ &m) {
    SetMessageSink(keepMessage);
    m.def("_algebra", &algebra, "program"_a, "names"_a, "columns"_a, "start_year"_a, "start_period"_a, "frequency"_a,
          "errors"_a);
}
