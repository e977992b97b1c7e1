// The database store and the data-file reader: resolving a lagged name among 10,000 variables,
// extending a 1,000-variable database, and reading a 100 MB numeric text file against a plain
// strtod loop over the same bytes (target: within 2 times that loop).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "database/database.h"
#include "database/datafile.h"
#include "database/messages.h"

namespace {

void quietSink(const char *, const char *) {}

Database *manyVariables(int n, int obs) {
    SetMessageSink(quietSink);
    Database *db = DbCreate("bench", n);
    DbSetSample(db, Sample{1, 1, obs, 1, 1});
    DbAddVariables(db, n);
    char name[32];
    for (int i = 0; i < n; ++i) {
        std::snprintf(name, sizeof name, "S%04d", i);
        DbSetVariableName(db, i, name);
    }
    return db;
}

// The base exists (the last variable): one scan finds it.
void BM_FindLaggedBaseExists(benchmark::State &state) {
    Database *db = manyVariables(10000, 10);
    int lag = 0;
    for (auto _ : state) benchmark::DoNotOptimize(DbFindVariable(db, "S9999_3", 1, &lag, 1));
    DbFree(db);
}
BENCHMARK(BM_FindLaggedBaseExists);

// No variable is the base: the second scan splits the suffixes of the lagged candidates.
void BM_FindLaggedNearest(benchmark::State &state) {
    Database *db = manyVariables(10000, 10);
    DbSetVariableName(db, 9998, "Q_2");
    DbSetVariableName(db, 9999, "Q_1");
    int lag = 0;
    for (auto _ : state) benchmark::DoNotOptimize(DbFindVariable(db, "Q_5", 1, &lag, 1));
    DbFree(db);
}
BENCHMARK(BM_FindLaggedNearest);

// Extending 1,000 variables of 1,000 observations by 10 at the end and back again.
void BM_Extend1000Variables(benchmark::State &state) {
    Database *db = manyVariables(1000, 1000);
    for (auto _ : state) {
        DbExtendSample(db, 0, 10);
        DbExtendSample(db, 0, -10);
    }
    state.SetItemsProcessed(state.iterations() * 2);
    DbFree(db);
}
BENCHMARK(BM_Extend1000Variables)->Unit(benchmark::kMillisecond);

// A file of about 100 MB: a header and rows of 10 numbers, written once.
const std::string &numericFile() {
    static std::string path;
    if (path.empty()) {
        path = "/tmp/kavrel_bench_numeric.txt";
        std::FILE *f = std::fopen(path.c_str(), "w");
        std::mt19937_64 rng(7);
        std::normal_distribution<double> normal(0.0, 1000.0);
        std::fputs("a b c d e f g h i j\n", f);
        long bytes = 0;
        while (bytes < 100L * 1000 * 1000) {
            for (int j = 0; j < 10; ++j) bytes += std::fprintf(f, j ? " %.6f" : "%.6f", normal(rng));
            bytes += std::fprintf(f, "\n");
        }
        std::fclose(f);
        std::atexit([] { std::remove("/tmp/kavrel_bench_numeric.txt"); });
    }
    return path;
}

void BM_ReadDataFile100MB(benchmark::State &state) {
    SetMessageSink(quietSink);
    const std::string &path = numericFile();
    for (auto _ : state) {
        Database *db = DbReadDataFile(path.c_str(), DATAFILE_TEXT);
        benchmark::DoNotOptimize(db->columns[0][0]);
        DbFree(db);
    }
}
BENCHMARK(BM_ReadDataFile100MB)->Unit(benchmark::kMillisecond)->Iterations(3);

// The minimal reference: strtod over the same bytes, already in memory.
void BM_StrtodLoop100MB(benchmark::State &state) {
    const std::string &path = numericFile();
    std::FILE *f = std::fopen(path.c_str(), "rb");
    std::fseek(f, 0, SEEK_END);
    const long size = std::ftell(f);
    std::fseek(f, 0, SEEK_SET);
    std::vector<char> text(static_cast<size_t>(size) + 1);
    size_t got = std::fread(text.data(), 1, static_cast<size_t>(size), f);
    text[got] = '\0';
    std::fclose(f);
    const char *start = text.data();
    while (*start != '\n') ++start; // past the header
    for (auto _ : state) {
        double sum = 0;
        const char *p = start;
        char *end;
        for (;;) {
            double x = std::strtod(p, &end);
            if (end == p) {
                if (!*p) break;
                ++p;
                continue;
            }
            sum += x;
            p = end;
        }
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(BM_StrtodLoop100MB)->Unit(benchmark::kMillisecond)->Iterations(3);

} // namespace

BENCHMARK_MAIN();
