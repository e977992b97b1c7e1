// The data a command estimates on: a file read with the library's reader, variables picked by
// name, and the observations where all of them are present.
#ifndef KAVREL_TOOLS_DATASET_H
#define KAVREL_TOOLS_DATASET_H

#include <string>
#include <vector>

#include "host.h"

struct Database;

// Null after one line naming the file (the reader's own message went to standard error).
Database *LoadData(const std::string &path, std::string *error);

// Variables of db by name; the observations where every one is present, in order, must form one
// stretch (a missing value inside it is an error naming the variable and the period).
struct Columns {
    std::vector<std::string> names;
    int first = 0, last = -1; // observations of db
    std::vector<Vec> data;    // one vector per name, last - first + 1 values
    int nobs() const { return last - first + 1; }
    // Row-major T x k block of the columns from..to (inclusive), with a leading column of ones
    // when constant is set.
    Vec block(size_t from, size_t to, bool constant) const;
};
bool SelectColumns(const Database *db, const std::vector<std::string> &names, Columns *out, std::string *error);

// A design (n x k, row-major) whose columns are linearly dependent, to the precision a regression
// can use: false with *error naming the first regressor that the ones before it explain. The
// test is the Cholesky factor of X'X scaled to unit diagonal, a pivot below 1e-10 failing.
bool CheckDesign(const Vec &X, int n, int k, const std::vector<std::string> &names, std::string *error);

// The regressor names of a design built by Columns::block(1, ..., constant): "Constant" first
// when there is one, then data.names[1..].
std::vector<std::string> RegressorNames(const Columns &data, bool constant);

// Row pointers over a row-major block (rows x cols), so that the library's routines take it as a
// MATRIX in place. Entry -1 holds the block's address, as in every MATRIX; the block must outlive
// the view and keep its size.
struct RowView {
    std::vector<double *> p;
    RowView(double *data, int rows, int cols) : p(static_cast<size_t>(rows > 0 ? rows : 0) + 1) {
        p[0] = data;
        for (int i = 0; i < rows; ++i) p[i + 1] = data + static_cast<size_t>(i) * (cols > 0 ? cols : 0);
    }
    RowView(const Vec &v, int rows, int cols) : RowView(const_cast<double *>(v.data()), rows, cols) {}
    operator double **() { return p.data() + 1; }
};

// "X1,X2,X3" -> its names (empty entries are an error of the caller's option).
std::vector<std::string> SplitNames(const std::string &list);

// The text of observation t in the database's period format ("1990(3)", "2020-02-29").
std::string PeriodText(const Database *db, int t);
// The texts of observations first..last, the labels of a plot's axis or of written series.
std::vector<std::string> PeriodTexts(const Database *db, int first, int last);

#endif
