// The export table is the one list of exports: the index of docs/exports.md must show each row
// (name, family, argument count, state) and nothing else, so that a host programmer reading the
// documentation sees exactly what the library exports.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Row {
    std::string family, arity, state;
};

std::map<std::string, Row> tableRows() {
    std::map<std::string, Row> rows;
#define KAVREL_EXPORT_ROW(name, family, arity, state) rows[#name] = Row{#family, #arity, #state};
#include "kavrel/exports.inc"
#undef KAVREL_EXPORT_ROW
    return rows;
}

// Index lines: "| `FnName` | family | arity | built |" up to the first blank line after the header.
std::map<std::string, Row> indexRows() {
    std::ifstream in(KAVREL_SOURCE_DIR "/docs/exports.md");
    std::map<std::string, Row> rows;
    std::string line;
    bool inIndex = false;
    while (std::getline(in, line)) {
        if (line == "## Index")
            inIndex = true;
        else if (inIndex && line.rfind("## ", 0) == 0)
            break;
        if (!inIndex || line.rfind("| `Fn", 0) != 0) continue;
        std::vector<std::string> cell;
        std::istringstream cells(line.substr(1));
        for (std::string c; std::getline(cells, c, '|');) {
            const size_t from = c.find_first_not_of(' '), to = c.find_last_not_of(' ');
            cell.push_back(from == std::string::npos ? "" : c.substr(from, to - from + 1));
        }
        if (cell.size() < 4) continue;
        const std::string name = cell[0].substr(1, cell[0].size() - 2);
        rows[name] = Row{cell[1], cell[2], cell[3] == "built" ? "BUILT" : "PLANNED"};
    }
    return rows;
}

TEST(ExportTable, DocumentationIndexShowsEveryRow) {
    const auto table = tableRows();
    const auto index = indexRows();
    EXPECT_EQ(table.size(), 32u);
    EXPECT_EQ(index.size(), table.size());
    for (const auto &row : table) {
        SCOPED_TRACE(row.first);
        const auto it = index.find(row.first);
        ASSERT_NE(it, index.end());
        EXPECT_EQ(it->second.family, row.second.family);
        EXPECT_EQ(it->second.arity, row.second.arity);
        EXPECT_EQ(it->second.state, row.second.state);
    }
}

} // namespace
