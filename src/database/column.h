// Reference-counted column storage. Every variable of a Database holds its data through a
// DataColumn descriptor taken from one process-wide pool: a chain of blocks of 256 descriptors,
// each block zero-filled when it is made and kept for the life of the process. A descriptor is
// free when its kind is 0. Undo snapshots share columns with the database by taking references,
// so deleting or extending observations keeps the old data without copying it.
#ifndef KAVREL_DATABASE_COLUMN_H
#define KAVREL_DATABASE_COLUMN_H

#include <cstddef>
#include <cstdint>

enum { COLUMN_FREE = 0, COLUMN_VECTOR = 1, COLUMN_BYTES = 2 };
enum { COLUMN_BLOCK_SLOTS = 256 };

struct ColumnBlock;

// 48 bytes on 64-bit builds (40 on 32-bit).
struct DataColumn {
    int32_t kind;   // COLUMN_VECTOR, COLUMN_BYTES, or COLUMN_FREE
    int32_t refs;   // references held; the descriptor is freed when it reaches 0
    int64_t count;  // elements (doubles or bytes)
    void *data;     // count elements
    int32_t serial; // block base + slot index, for tracing
    int32_t reserved;
    ColumnBlock *block; // the block holding this descriptor
};

// count doubles, copied from source when given, else all MissingValue. Null (after the error
// "Out of memory") when storage cannot be had; the descriptor then goes back to the pool.
DataColumn *ColumnCreateVector(int64_t count, const double *source);
// count bytes, copied from source when given, else zero.
DataColumn *ColumnCreateBytes(int64_t count, const void *source);
// Takes one more reference; returns the column. Null is ignored.
DataColumn *ColumnRetain(DataColumn *column);
// Drops one reference; at zero the data and the descriptor are freed. Null is ignored.
void ColumnRelease(DataColumn *column);

inline double *ColumnDoubles(const DataColumn *column) {
    return column ? static_cast<double *>(column->data) : nullptr;
}

// Descriptors in use over all blocks, and the number of blocks in the chain (for tests and
// diagnostics).
long ColumnPoolInUse();
long ColumnPoolBlocks();

#endif
