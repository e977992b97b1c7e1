// A host program: recursive least-squares estimates of a consumption function on the shipped
// quarterly macro data, computed by FnRlsEst through the reference host exactly as the host
// language would call it.
//
//   realcons(t) = b0 + b1 realdpi(t) + u(t),  estimated over 1959(1) .. t for every t.
//
// Usage: rls_demo [path/to/macrodata.csv]   (default: tests/data/macrodata.csv of the source tree)
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "database/calendar.h"
#include "database/database.h"
#include "database/datafile.h"
#include "kavrel/kavrel.h"
#include "kavrel/lumohost.h"

namespace {

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
    // The library's own reader: its year and quarter columns become the database's sample, and
    // it reports what it cannot read through the message channel.
    Database *db = DbReadDataFile(path.c_str(), 0);
    if (!db) return 1;
    const int cCons = DbFindVariableExact(db, "realcons"), cInc = DbFindVariableExact(db, "realdpi");
    if (cCons < 0 || cInc < 0 || db->sample.frequency != 4) {
        std::fprintf(stderr, "rls_demo: %s is not quarterly with realcons and realdpi\n", path.c_str());
        DbFree(db);
        return 1;
    }

    const int T = db->obsCount, k = 2;
    std::vector<double> y(T), x(static_cast<size_t>(T) * k);
    for (int t = 0; t < T; ++t) {
        y[t] = db->columns[cCons][t];
        x[2 * t] = 1.0;
        x[2 * t + 1] = db->columns[cInc][t];
    }
    const Sample sample = db->sample;
    DbFree(db);

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
            std::printf("Recursive least squares: realcons on a constant and realdpi, %d quarters from %d(%d)\n", T,
                        sample.startYear, sample.startPeriod);
            std::printf("Standard errors: sqrt(RSS(t) / (t - k + 1) * P[j][j]); standardised innovations are the\n"
                        "recursive residuals v / sqrt(f).\n\n");
            std::printf("%-8s %11s %9s %9s %9s %10s %9s %12s\n", "period", "constant", "se", "realdpi", "se",
                        "innovation", "std.inn", "RSS");
            const int shown = T < 16 ? T : 16;
            for (int t = T - shown; t < T; ++t) {
                if (t < k) continue;
                const double s2 = rss[0][t] / (t + 1 - k);
                std::printf("%4d(%d)  %11.4f %9.4f %9.5f %9.5f %10.3f %9.4f %12.1f\n", SampleYearOfObs(t, sample),
                            SamplePeriodOfObs(t, sample), coef[0][t], std::sqrt(s2 * pdiag[0][t]), coef[1][t],
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
