#include "plot.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

std::string quoted(const std::string &text) {
    std::string s = "\"";
    for (char c : text) s += c == '"' ? '\'' : c;
    return s + "\"";
}

bool endsWith(const std::string &s, const char *tail) {
    const std::string t = tail;
    return s.size() >= t.size() && s.compare(s.size() - t.size(), t.size(), t) == 0;
}

} // namespace

bool PlotPanel(const std::string &file, const std::string &title, const std::vector<std::string> &periods,
               const std::vector<PlotGraph> &graphs, std::string *error) {
    if (std::system("command -v gnuplot >/dev/null 2>&1") != 0) {
        *error = "gnuplot not found (Debian package gnuplot-nox): cannot write " + file;
        return false;
    }
    const std::string script = file + ".gp";
    std::FILE *out = std::fopen(script.c_str(), "w");
    if (!out) {
        *error = "cannot write " + script;
        return false;
    }
    const int cols = graphs.size() > 1 ? 2 : 1, rows = static_cast<int>((graphs.size() + cols - 1) / cols);
    if (endsWith(file, ".svg"))
        std::fprintf(out, "set terminal svg size %d,%d dynamic font 'sans,10'\n", 560 * cols, 380 * rows + 40);
    else
        std::fprintf(out, "set terminal pngcairo size %d,%d font 'sans,10'\n", 560 * cols, 380 * rows + 40);
    std::fprintf(out, "set output %s\nset datafile missing 'NaN'\nset grid\nset key top left font ',8'\n",
                 quoted(file).c_str());
    // About eight period labels along the axis.
    const size_t n = periods.size(), every = n > 8 ? (n + 7) / 8 : 1;
    std::fprintf(out, "set xtics (");
    for (size_t t = 0; t < n; t += every) std::fprintf(out, "%s%s %zu", t ? ", " : "", quoted(periods[t]).c_str(), t);
    std::fprintf(out, ") rotate by -30 font ',8'\nset xrange [0:%zu]\n", n ? n - 1 : 0);
    std::fprintf(out, "set multiplot layout %d,%d title %s font ',12'\n", rows, cols, quoted(title).c_str());
    for (size_t g = 0; g < graphs.size(); ++g) {
        const PlotGraph &graph = graphs[g];
        std::fprintf(out, "$G%zu << EOD\n", g);
        for (size_t t = 0; t < n; ++t) {
            std::fprintf(out, "%zu", t);
            for (const PlotSeries &s : graph.series) {
                const double v = t < s.y.size() ? s.y[t] : NAN;
                if (std::isfinite(v))
                    std::fprintf(out, " %.10g", v);
                else
                    std::fprintf(out, " NaN");
            }
            std::fprintf(out, "\n");
        }
        std::fprintf(out, "EOD\nset title %s\nplot ", quoted(graph.title).c_str());
        for (size_t k = 0; k < graph.series.size(); ++k) {
            const PlotSeries &s = graph.series[k];
            std::fprintf(out, "%s$G%zu using 1:%zu with lines %s title %s", k ? ", " : "", g, k + 2,
                         s.dashed ? "dashtype 2 linecolor rgb 'gray40'" : "linewidth 1.5", quoted(s.label).c_str());
        }
        std::fprintf(out, "\n");
    }
    std::fprintf(out, "unset multiplot\n");
    const bool written = std::fclose(out) == 0;
    const std::string command = "gnuplot " + quoted(script) + " 2>" + quoted(script + ".log");
    if (!written || std::system(command.c_str()) != 0) {
        *error = "gnuplot failed on " + script + " (its messages: " + script + ".log)";
        return false;
    }
    std::remove((script + ".log").c_str());
    std::remove(script.c_str());
    return true;
}
