#include "dataset.h"

#include <cmath>

#include "database/calendar.h"
#include "database/database.h"
#include "database/datafile.h"

Database *LoadData(const std::string &path, std::string *error) {
    Database *db = DbReadDataFile(path.c_str(), 0);
    if (!db) *error = "cannot read data file " + path;
    return db;
}

bool CheckDesign(const Vec &X, int n, int k, const std::vector<std::string> &names, std::string *error) {
    std::vector<long double> A(static_cast<size_t>(k) * k, 0.0L);
    for (int t = 0; t < n; ++t)
        for (int a = 0; a < k; ++a)
            for (int b = 0; b <= a; ++b)
                A[static_cast<size_t>(a) * k + b] +=
                    static_cast<long double>(X[static_cast<size_t>(t) * k + a]) * X[static_cast<size_t>(t) * k + b];
    std::vector<long double> scale(k);
    for (int a = 0; a < k; ++a)
        scale[a] = A[static_cast<size_t>(a) * k + a] > 0 ? 1.0L / std::sqrt(A[static_cast<size_t>(a) * k + a]) : 0.0L;
    for (int a = 0; a < k; ++a) {
        for (int b = 0; b <= a; ++b) {
            long double v = A[static_cast<size_t>(a) * k + b] * scale[a] * scale[b];
            for (int c = 0; c < b; ++c) v -= A[static_cast<size_t>(a) * k + c] * A[static_cast<size_t>(b) * k + c];
            if (b < a) {
                A[static_cast<size_t>(a) * k + b] = v / A[static_cast<size_t>(b) * k + b];
            } else if (!(v > 1e-10L)) {
                *error = "the regressors are collinear: " + (static_cast<size_t>(a) < names.size() ? names[a] : "?") +
                         " is explained by the ones before it";
                return false;
            } else {
                A[static_cast<size_t>(a) * k + a] = std::sqrt(v);
            }
        }
    }
    return true;
}

std::vector<std::string> RegressorNames(const Columns &data, bool constant) {
    std::vector<std::string> names;
    if (constant) names.push_back("Constant");
    for (size_t j = 1; j < data.names.size(); ++j) names.push_back(data.names[j]);
    return names;
}

std::vector<std::string> SplitNames(const std::string &list) {
    std::vector<std::string> out;
    size_t start = 0;
    for (;;) {
        const size_t comma = list.find(',', start);
        out.push_back(list.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return out;
}

bool SelectColumns(const Database *db, const std::vector<std::string> &names, Columns *out, std::string *error) {
    std::vector<const double *> cols;
    for (const std::string &name : names) {
        const int v = DbFindVariableExact(db, name.c_str());
        if (name.empty() || v < 0) {
            *error = "no variable " + (name.empty() ? std::string("(empty name)") : name) + " in the data";
            return false;
        }
        cols.push_back(db->columns[v]);
    }
    auto present = [&](int t) {
        for (const double *c : cols)
            if (c[t] != c[t]) return false;
        return true;
    };
    int first = 0, last = db->obsCount - 1;
    while (first <= last && !present(first)) ++first;
    while (last >= first && !present(last)) --last;
    if (first > last) {
        *error = "no observation where all of the variables are present";
        return false;
    }
    for (int t = first; t <= last; ++t)
        for (size_t j = 0; j < cols.size(); ++j)
            if (cols[j][t] != cols[j][t]) {
                *error = "missing value of " + names[j] + " at " + PeriodText(db, t) + " inside the sample";
                return false;
            }
    out->names = names, out->first = first, out->last = last;
    out->data.clear();
    for (const double *c : cols) out->data.emplace_back(c + first, c + last + 1);
    return true;
}

Vec Columns::block(size_t from, size_t to, bool constant) const {
    Vec out;
    for (int t = 0; t < nobs(); ++t) {
        if (constant) out.push_back(1.0);
        for (size_t j = from; j <= to; ++j) out.push_back(data[j][static_cast<size_t>(t)]);
    }
    return out;
}

std::vector<std::string> PeriodTexts(const Database *db, int first, int last) {
    std::vector<std::string> texts;
    for (int t = first; t <= last; ++t) texts.push_back(PeriodText(db, t));
    return texts;
}

std::string PeriodText(const Database *db, int t) {
    char buf[64];
    if (DbIsDated(db)) return FormatDateValue(buf, sizeof buf, DbDateAt(db, t), 0, 0, 1, -1);
    // The period format pads years to four places for tables; a label needs no padding.
    const char *text =
        FormatPeriod(buf, sizeof buf, SampleYearOfObs(t, db->sample), SamplePeriodOfObs(t, db->sample), db->sample);
    while (*text == ' ') ++text;
    return text;
}
