// Arbitrary bytes as a data file, read by the library's reader as CSV, as blank-separated text
// and by its own rules (dated files, year and period columns, missing spellings), with one
// library allocation failing at a point chosen from the input. A read either fails cleanly (null
// and a message) or gives a database that is freed again; LeakSanitizer sees the rest.
#include <cstddef>
#include <cstdint>

#include "base/alloc.h"
#include "database/database.h"
#include "database/datafile.h"
#include "database/messages.h"

namespace {

void quiet(const char *, const char *) {}

// A database that came back must be whole: every column as long as the observation count.
void touchEverything(const Database *db) {
    volatile double sink = 0;
    for (int i = 0; i < db->varCount; ++i)
        for (int t = 0; t < db->obsCount; ++t) sink = sink + db->columns[i][t];
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) return 0;
    SetMessageSink(quiet);
    static const int kFlags[] = {0, DATAFILE_CSV, DATAFILE_TEXT, DATAFILE_KEEP_9999};
    const int flags = kFlags[data[0] & 3];
    const long failAt = data[1] < 200 ? 0 : data[1] - 199;
    KvAllocSetLimit(size_t(256) << 20);
    KvAllocFailAt(failAt);
    Database *db = DbReadDataText("fuzz", reinterpret_cast<const char *>(data + 2), size - 2, flags);
    KvAllocFailAt(0);
    if (db) {
        touchEverything(db);
        DbFree(db);
    }
    return 0;
}
