// Plots through gnuplot (Debian's gnuplot-nox), run as a subprocess on a script the tool writes:
// a panel of titled graphs over the sample, the horizontal axis labelled in the sample's periods,
// each graph with its legend. PNG (cairo) or SVG by the file's extension.
#ifndef KAVREL_TOOLS_PLOT_H
#define KAVREL_TOOLS_PLOT_H

#include <string>
#include <vector>

#include "host.h"

struct PlotSeries {
    std::string label;
    Vec y;               // one value per period; missing values leave gaps
    bool dashed = false; // bands and reference lines
};

struct PlotGraph {
    std::string title;
    std::vector<PlotSeries> series;
};

// Writes the panel to file. False with *error when gnuplot is missing or fails.
bool PlotPanel(const std::string &file, const std::string &title, const std::vector<std::string> &periods,
               const std::vector<PlotGraph> &graphs, std::string *error);

#endif
