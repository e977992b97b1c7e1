// A host program: recursive least-squares estimates of a consumption function on the shipped
// quarterly macro data, computed by FnRlsEst through the reference host exactly as the host
// language would call it.
//
//   realcons(t) = b0 + b1 realdpi(t) + u(t),  estimated over 1959(1) .. t for every t.
//
// Usage: rls_demo [path/to/macrodata.csv]   (default: tests/data/macrodata.csv of the source tree)
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kavrel/kavrel.h"
#include "kavrel/lumohost.h"

namespace {

// A plain comma-separated table: one header line of (optionally quoted) names, then numbers.
struct Table {
    std::vector<std::string> names;
    std::vector<std::vector<double>> rows;
    int column(const char *name) const {
        for (size_t i = 0; i < names.size(); ++i)
            if (names[i] == name) return static_cast<int>(i);
        return -1;
    }
};

std::vector<std::string> splitFields(const std::string &line) {
    std::vector<std::string> out;
    std::string cur;
    bool quoted = false;
    for (char ch : line) {
        if (ch == '"')
            quoted = !quoted;
        else if (ch == ',' && !quoted) {
            out.push_back(cur);
            cur.clear();
        } else if (ch != '\r' && ch != '\n') {
            cur += ch;
        }
    }
    out.push_back(cur);
    return out;
}

bool readCsv(const char *path, Table *t, std::string *error) {
    FILE *f = std::fopen(path, "r");
    if (!f) {
        *error = std::string("cannot open ") + path;
        return false;
    }
    char buf[4096];
    int lineNo = 0;
    bool ok = true;
    while (ok && std::fgets(buf, sizeof buf, f)) {
        ++lineNo;
        std::vector<std::string> fields = splitFields(buf);
        if (lineNo == 1) {
            t->names = fields;
            continue;
        }
        if (fields.size() == 1 && fields[0].empty()) continue; // blank line
        if (fields.size() != t->names.size()) {
            *error = "line " + std::to_string(lineNo) + ": " + std::to_string(fields.size()) + " fields, expected " +
                     std::to_string(t->names.size());
            ok = false;
            break;
        }
        std::vector<double> row;
        for (const std::string &s : fields) {
            char *end = nullptr;
            const double v = std::strtod(s.c_str(), &end);
            if (s.empty() || *end != '\0') {
                *error = "line " + std::to_string(lineNo) + ": not a number: '" + s + "'";
                ok = false;
                break;
            }
            row.push_back(v);
        }
        if (ok) t->rows.push_back(row);
    }
    std::fclose(f);
    if (ok && t->rows.empty()) {
        *error = std::string(path) + ": no observations";
        ok = false;
    }
    return ok;
}

std::string defaultPath() {
    // This file lives in examples/ of the source tree; the data in tests/data/.
    std::string here = __FILE__;
    const size_t slash = here.find_last_of('/');
    if (slash == std::string::npos) return "tests/data/macrodata.csv";
    return here.substr(0, slash) + "/../tests/data/macrodata.csv";
}

} // namespace

int main(int argc, char **argv) {
    const std::string path = argc > 1 ? argv[1] : defaultPath();
    Table data;
    std::string error;
    if (!readCsv(path.c_str(), &data, &error)) {
        std::fprintf(stderr, "rls_demo: %s\n", error.c_str());
        return 1;
    }
    const int cYear = data.column("year"), cQuarter = data.column("quarter");
    const int cCons = data.column("realcons"), cInc = data.column("realdpi");
    if (cYear < 0 || cQuarter < 0 || cCons < 0 || cInc < 0) {
        std::fprintf(stderr, "rls_demo: %s lacks one of year, quarter, realcons, realdpi\n", path.c_str());
        return 1;
    }

    const int T = static_cast<int>(data.rows.size()), k = 2;
    std::vector<double> y(T), x(static_cast<size_t>(T) * k);
    for (int t = 0; t < T; ++t) {
        y[t] = data.rows[t][cCons];
        x[2 * t] = 1.0;
        x[2 * t + 1] = data.rows[t][cInc];
    }

    // Arguments as the host passes them: Y, X, first, last, forced row, then references.
    LumoValue args[12], out[7], result;
    std::memset(args, 0, sizeof args);
    std::memset(out, 0, sizeof out);
    std::memset(&result, 0, sizeof result);
    int rc = 1;
    if (LumoValSetMatrix(&args[0], T, 1, y.data()) && LumoValSetMatrix(&args[1], T, k, x.data())) {
        LumoValSetInt(&args[2], 0);
        LumoValSetInt(&args[3], T - 1);
        LumoValSetInt(&args[4], -1);
        for (int i = 0; i < 7; ++i) LumoValSetRef(&args[5 + i], &out[i]);
        if (!LumoHostInvoke(FnRlsEst, &result, args, 12)) {
            std::fprintf(stderr, "rls_demo: FnRlsEst: %s\n", LumoHostLastError());
        } else if (LumoValGetInt(&result) != 1) {
            std::fprintf(stderr, "rls_demo: FnRlsEst returned status %d\n", LumoValGetInt(&result));
        } else {
            MATRIX coef = LumoValGetMatrix(&out[0], nullptr, nullptr);
            MATRIX pdiag = LumoValGetMatrix(&out[1], nullptr, nullptr);
            MATRIX stdInn = LumoValGetMatrix(&out[2], nullptr, nullptr);
            MATRIX inn = LumoValGetMatrix(&out[3], nullptr, nullptr);
            MATRIX rss = LumoValGetMatrix(&out[4], nullptr, nullptr);
            std::printf("Recursive least squares: realcons on a constant and realdpi, %d quarters from %.0f(%.0f)\n", T,
                        data.rows[0][cYear], data.rows[0][cQuarter]);
            std::printf("Standard errors: sqrt(RSS(t) / (t - k + 1) * P[j][j]); standardised innovations are the\n"
                        "recursive residuals v / sqrt(f).\n\n");
            std::printf("%-8s %11s %9s %9s %9s %10s %9s %12s\n", "period", "constant", "se", "realdpi", "se",
                        "innovation", "std.inn", "RSS");
            const int shown = T < 16 ? T : 16;
            for (int t = T - shown; t < T; ++t) {
                if (t < k) continue;
                const double s2 = rss[0][t] / (t + 1 - k);
                std::printf("%4.0f(%.0f)  %11.4f %9.4f %9.5f %9.5f %10.3f %9.4f %12.1f\n", data.rows[t][cYear],
                            data.rows[t][cQuarter], coef[0][t], std::sqrt(s2 * pdiag[0][t]), coef[1][t],
                            std::sqrt(s2 * pdiag[1][t]), inn[0][t], stdInn[0][t], rss[0][t]);
            }
            rc = 0;
        }
    } else {
        std::fprintf(stderr, "rls_demo: out of memory\n");
    }
    for (auto &v : args) LumoFreeByValue(&v);
    for (auto &v : out) LumoFreeByValue(&v);
    LumoFreeByValue(&result);
    return rc;
}
