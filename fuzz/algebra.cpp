// Arbitrary bytes as an Algebra program compiled (plainly or in model mode) and run over a small
// quarterly database of two series with missing values, over observations chosen by the input,
// with one library allocation failing at a point chosen by the input. Nothing may crash, read
// outside a column or leak, whatever the program.
#include <cstdint>
#include <string>

#include "algebra/algebra.h"
#include "base/alloc.h"
#include "base/types.h"
#include "database/database.h"
#include "database/messages.h"

namespace {

void quiet(const char *, const char *) {}

constexpr int kObs = 20;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 4) return 0;
    SetMessageSink(quiet);
    const int maxParams = data[0] & 1 ? 0 : 12;
    const int t1 = data[1] % kObs - 1, t2 = data[2] % (kObs + 2) - 1;
    const long failAt = data[3] < 224 ? 0 : data[3] - 223;
    const std::string program(reinterpret_cast<const char *>(data + 4), size - 4);
    Database *db = DbCreate("fuzz", 0);
    Sample s{1990, 1, 0, 0, 4};
    SampleSetCount(&s, kObs);
    if (!db || !DbSetSample(db, s) || DbAddVariables(db, 2) < 0 || !DbSetVariableName(db, 0, "x") ||
        !DbSetVariableName(db, 1, "y")) {
        DbFree(db);
        return 0;
    }
    for (int t = 0; t < kObs; ++t) {
        db->columns[0][t] = t % 7 == 3 ? MissingValueOf() : t * 0.5 - 3;
        db->columns[1][t] = t % 5 == 1 ? MissingValueOf() : 100.0 / (t + 1);
    }
    KvAllocSetLimit(size_t(64) << 20);
    KvAllocFailAt(failAt);
    AlgebraCompiler *c = AlgebraCreate(db, maxParams);
    if (c && AlgebraLoad(c, program.c_str(), nullptr) && AlgebraCompile(c, db))
        AlgebraRun(c, t1, t2, db->obsCount, data[1] & 1);
    AlgebraFree(c);
    KvAllocFailAt(0);
    DbFree(db);
    return 0;
}
