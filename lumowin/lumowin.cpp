// The reference host runtime: the eleven services the library imports and the host-side helpers
// that tools and tests use to call exports as the host language does. Host matrices have the
// library's own layout (row pointers, hidden block entry at index -1), since exports write into
// them directly. Failed checks abandon the running export with longjmp back to LumoHostInvoke;
// exports call checks before they own anything, so no destructor is ever skipped.
#define LUMOWIN_BUILDING 1
#include "kavrel/lumohost.h"

#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Invocations nest (an export never calls another, but a test may invoke from a callback).
struct Invocation {
    std::jmp_buf env;
    Invocation *outer;
};

Invocation *g_current = nullptr;
char g_lastError[512];
long g_allocCount = 0;
long g_failAt = 0;
size_t g_limit = 0;

void *hostMalloc(size_t n) {
    ++g_allocCount;
    if (g_failAt > 0 && g_allocCount == g_failAt) return nullptr;
    if (g_limit > 0 && n > g_limit) return nullptr;
    return std::malloc(n == 0 ? 1 : n);
}

// n elements of size bytes, null when the product does not fit in size_t.
void *hostMallocArray(size_t n, size_t size) {
    if (size != 0 && n > static_cast<size_t>(-1) / size) return nullptr;
    return hostMalloc(n * size);
}

const char *typeName(int type) {
    switch (type) {
    case LUMO_EMPTY: return "empty";
    case LUMO_INT: return "int";
    case LUMO_DOUBLE: return "double";
    case LUMO_MATRIX: return "matrix";
    case LUMO_ARRAY: return "array";
    case LUMO_REF: return "reference";
    case LUMO_STRING: return "string";
    default: return "unknown";
    }
}

// Records the report and abandons the running export; outside an invocation it only records.
void hostError(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(g_lastError, sizeof g_lastError, fmt, ap);
    va_end(ap);
    if (g_current) std::longjmp(g_current->env, 1);
}

void clearValue(LumoValue *v) { std::memset(v, 0, sizeof *v); }

// A rows x cols host matrix; rows >= 1. With no columns the row pointers are null.
MATRIX hostMatAlloc(int rows, int cols) {
    auto **p = static_cast<double **>(hostMallocArray(static_cast<size_t>(rows) + 1, sizeof(double *)));
    if (!p) return nullptr;
    if (cols < 1) {
        std::memset(p, 0, sizeof(double *) * (static_cast<size_t>(rows) + 1));
        return p + 1;
    }
    // In the width of size_t: on a 32-bit host 65536 x 65536 doubles must fail, not wrap to 0.
    auto *block = static_cast<double *>(
        static_cast<size_t>(cols) > static_cast<size_t>(-1) / static_cast<size_t>(rows)
            ? nullptr
            : hostMallocArray(static_cast<size_t>(rows) * static_cast<size_t>(cols), sizeof(double)));
    if (!block) {
        std::free(p);
        return nullptr;
    }
    p[0] = block;
    for (int i = 0; i < rows; ++i) p[i + 1] = block + static_cast<size_t>(i) * cols;
    return p + 1;
}

void hostMatFree(MATRIX m) {
    if (!m) return;
    std::free(m[-1]);
    std::free(m - 1);
}

} // namespace

extern "C" {

void LumoFreeByValue(LumoValue *v) {
    if (!v) return;
    switch (v->type) {
    case LUMO_MATRIX: hostMatFree(static_cast<MATRIX>(v->data)); break;
    case LUMO_STRING: std::free(v->data); break;
    case LUMO_ARRAY: {
        auto *el = static_cast<LumoValue *>(v->data);
        for (int i = 0; el && i < v->v.w.ival; ++i) LumoFreeByValue(&el[i]);
        std::free(el);
        break;
    }
    default: break;
    }
    clearValue(v);
}

void LumoLibCheckType(int type, LumoValue *args, int first, int last) {
    for (int i = first; i <= last; ++i)
        if (args[i].type != type)
            hostError("argument %d: %s expected, %s found", i, typeName(type), typeName(args[i].type));
}

void LumoLibCheckMatrixSize(LumoValue *args, int first, int last, int rows, int cols) {
    for (int i = first; i <= last; ++i) {
        if (args[i].type != LUMO_MATRIX) hostError("argument %d: matrix expected, %s found", i, typeName(args[i].type));
        if (args[i].v.w.ival != rows || args[i].v.w.u.cols != cols)
            hostError("argument %d: %d x %d matrix expected, %d x %d found", i, rows, cols, args[i].v.w.ival,
                      args[i].v.w.u.cols);
    }
}

void LumoLibArgError(int index) { hostError("argument %d is invalid", index); }

int LumoLibValMatMalloc(LumoValue *target, int rows, int cols) {
    if (!target) return 0;
    LumoFreeByValue(target);
    if (rows < 0 || cols < 0) return 0;
    MATRIX m = nullptr;
    if (rows > 0) {
        m = hostMatAlloc(rows, cols);
        if (!m) return 0;
    }
    target->type = LUMO_MATRIX;
    target->v.w.ival = rows;
    target->v.w.u.cols = cols;
    target->data = m;
    return 1;
}

int LumoLibValMatDup(LumoValue *target, const LumoValue *source) {
    if (!target || !source || source->type != LUMO_MATRIX || target == source) return 0;
    int rows = source->v.w.ival, cols = source->v.w.u.cols;
    auto src = static_cast<MATRIX>(source->data);
    if (!LumoLibValMatMalloc(target, rows, cols)) return 0;
    auto dst = static_cast<MATRIX>(target->data);
    for (int i = 0; i < rows && cols > 0; ++i) std::memcpy(dst[i], src[i], sizeof(double) * cols);
    return 1;
}

int LumoLibValArrayCalloc(LumoValue *target, int count) {
    if (!target || count < 0) return 0;
    LumoFreeByValue(target);
    LumoValue *el = nullptr;
    if (count > 0) {
        el = static_cast<LumoValue *>(hostMallocArray(static_cast<size_t>(count), sizeof(LumoValue)));
        if (!el) return 0;
        std::memset(el, 0, sizeof(LumoValue) * static_cast<size_t>(count));
    }
    target->type = LUMO_ARRAY;
    target->v.w.ival = count;
    target->data = el;
    return 1;
}

LumoValue *LumoValGetArrayVal(LumoValue *array, int index) {
    if (!array || array->type != LUMO_ARRAY || index < 0 || index >= array->v.w.ival) return nullptr;
    return static_cast<LumoValue *>(array->data) + index;
}

const char *LumoValGetString(const LumoValue *v) {
    if (!v || v->type != LUMO_STRING) return nullptr;
    return static_cast<const char *>(v->data);
}

int LumoValSetString(LumoValue *v, const char *text) {
    if (!v) return 0;
    if (!text) text = "";
    size_t n = std::strlen(text);
    auto *copy = static_cast<char *>(hostMalloc(n + 1));
    LumoFreeByValue(v);
    if (!copy) return 0;
    std::memcpy(copy, text, n + 1);
    v->type = LUMO_STRING;
    v->v.w.ival = static_cast<int32_t>(n);
    v->data = copy;
    return 1;
}

void LumoValSetInt(LumoValue *v, int value) {
    if (!v) return;
    LumoFreeByValue(v);
    v->type = LUMO_INT;
    v->v.w.ival = value;
}

void LumoValSetDouble(LumoValue *v, double d) {
    if (!v) return;
    LumoFreeByValue(v);
    v->type = LUMO_DOUBLE;
    v->v.dval = d;
}

int LumoValSetMatrix(LumoValue *v, int rows, int cols, const double *row_major) {
    if (!LumoLibValMatMalloc(v, rows, cols)) return 0;
    auto m = static_cast<MATRIX>(v->data);
    if (row_major && rows > 0 && cols > 0)
        std::memcpy(m[0], row_major, sizeof(double) * static_cast<size_t>(rows) * cols);
    return 1;
}

void LumoValSetRef(LumoValue *v, LumoValue *target) {
    if (!v) return;
    LumoFreeByValue(v);
    v->type = LUMO_REF;
    v->v.w.u.target = target;
}

int LumoValGetType(const LumoValue *v) { return v ? v->type : LUMO_EMPTY; }

int LumoValGetInt(const LumoValue *v) {
    if (!v) return 0;
    if (v->type == LUMO_INT) return v->v.w.ival;
    if (v->type == LUMO_DOUBLE) return static_cast<int>(v->v.dval);
    return 0;
}

double LumoValGetDouble(const LumoValue *v) {
    if (!v) return 0.0;
    if (v->type == LUMO_DOUBLE) return v->v.dval;
    if (v->type == LUMO_INT) return v->v.w.ival;
    return 0.0;
}

MATRIX LumoValGetMatrix(const LumoValue *v, int *rows, int *cols) {
    if (!v || v->type != LUMO_MATRIX) {
        if (rows) *rows = 0;
        if (cols) *cols = 0;
        return nullptr;
    }
    if (rows) *rows = v->v.w.ival;
    if (cols) *cols = v->v.w.u.cols;
    return static_cast<MATRIX>(v->data);
}

int LumoValGetArrayCount(const LumoValue *v) { return v && v->type == LUMO_ARRAY ? v->v.w.ival : 0; }

int LumoHostInvoke(LumoExport fn, LumoValue *result, LumoValue *args, int count) {
    Invocation inv;
    inv.outer = g_current;
    g_lastError[0] = '\0';
    g_current = &inv;
    // volatile: read after longjmp.
    volatile int ok = 1;
    if (setjmp(inv.env) == 0) {
        fn(result, args, count);
    } else {
        ok = 0;
    }
    g_current = inv.outer;
    return ok;
}

const char *LumoHostLastError(void) { return g_lastError; }

size_t LumoHostSetAllocationLimit(size_t bytes) {
    const size_t old = g_limit;
    g_limit = bytes;
    return old;
}

long LumoHostFailAllocation(long n) {
    long made = g_allocCount;
    g_allocCount = 0;
    g_failAt = n;
    return made;
}

} // extern "C"
