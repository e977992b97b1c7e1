// The descriptor pool and the reference-counted columns built on it.
#include "database/column.h"

#include <cstring>

#include "base/alloc.h"
#include "database/messages.h"
#include "matrix/matrix.h"

struct ColumnBlock {
    DataColumn slots[COLUMN_BLOCK_SLOTS];
    int32_t used;
    ColumnBlock *next;
};

namespace {

ColumnBlock *g_head = nullptr;
long g_blocks = 0;

// A free descriptor (kind still COLUMN_FREE, so a failed creation needs only to leave it so),
// or null when no block has room and a new block cannot be made.
DataColumn *takeDescriptor() {
    ColumnBlock **link = &g_head;
    for (ColumnBlock *b = g_head; b; b = b->next) {
        if (b->used < COLUMN_BLOCK_SLOTS) {
            for (int i = 0; i < COLUMN_BLOCK_SLOTS; ++i)
                if (b->slots[i].kind == COLUMN_FREE) return &b->slots[i];
        }
        link = &b->next;
    }
    auto *b = static_cast<ColumnBlock *>(KvCalloc(1, sizeof(ColumnBlock)));
    if (!b) return nullptr;
    for (int i = 0; i < COLUMN_BLOCK_SLOTS; ++i) {
        b->slots[i].serial = static_cast<int32_t>(g_blocks * COLUMN_BLOCK_SLOTS + i);
        b->slots[i].block = b;
    }
    *link = b;
    ++g_blocks;
    return &b->slots[0];
}

DataColumn *createColumn(int32_t kind, int64_t count, size_t elementSize) {
    if (count < 0) count = 0;
    DataColumn *c = takeDescriptor();
    void *data = nullptr;
    if (c && static_cast<uint64_t>(count) <= SIZE_MAX / elementSize)
        data = KvMalloc(static_cast<size_t>(count) * elementSize);
    if (!data) {
        // The descriptor was never marked in use, so it is already back in the pool.
        ReportError("Out of memory");
        return nullptr;
    }
    c->kind = kind;
    c->refs = 1;
    c->count = count;
    c->data = data;
    ++c->block->used;
    return c;
}

} // namespace

DataColumn *ColumnCreateVector(int64_t count, const double *source) {
    DataColumn *c = createColumn(COLUMN_VECTOR, count, sizeof(double));
    if (!c) return nullptr;
    auto *d = static_cast<double *>(c->data);
    if (source) {
        std::memcpy(d, source, static_cast<size_t>(c->count) * sizeof(double));
    } else {
        const double missing = MissingValueOf();
        for (int64_t i = 0; i < c->count; ++i) d[i] = missing;
    }
    return c;
}

DataColumn *ColumnCreateBytes(int64_t count, const void *source) {
    DataColumn *c = createColumn(COLUMN_BYTES, count, 1);
    if (!c) return nullptr;
    if (source)
        std::memcpy(c->data, source, static_cast<size_t>(c->count));
    else
        std::memset(c->data, 0, static_cast<size_t>(c->count));
    return c;
}

DataColumn *ColumnRetain(DataColumn *column) {
    if (column) ++column->refs;
    return column;
}

void ColumnRelease(DataColumn *column) {
    if (!column || column->kind == COLUMN_FREE) return;
    if (--column->refs > 0) return;
    KvFree(column->data);
    column->data = nullptr;
    column->count = 0;
    column->refs = 0;
    column->kind = COLUMN_FREE;
    --column->block->used;
}

long ColumnPoolInUse() {
    long n = 0;
    for (ColumnBlock *b = g_head; b; b = b->next) n += b->used;
    return n;
}

long ColumnPoolBlocks() { return g_blocks; }
