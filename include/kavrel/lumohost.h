/*
 * Host-side helpers of the reference runtime lumowin: what a host program (our tools, tests
 * and benchmarks) uses to build argument records, call an export and read its results. The
 * library itself never calls these.
 */
#ifndef KAVREL_LUMOHOST_H
#define KAVREL_LUMOHOST_H

#include "kavrel/lumo.h"

#ifdef __cplusplus
extern "C" {
#endif

LUMOWIN_API void LumoValSetDouble(LumoValue *v, double d);
/* Copies a row-major block; returns 0 (value left empty) on allocation failure. */
LUMOWIN_API int LumoValSetMatrix(LumoValue *v, int rows, int cols, const double *row_major);
LUMOWIN_API void LumoValSetRef(LumoValue *v, LumoValue *target);
LUMOWIN_API int LumoValGetType(const LumoValue *v);
LUMOWIN_API int LumoValGetInt(const LumoValue *v);
LUMOWIN_API double LumoValGetDouble(const LumoValue *v);
LUMOWIN_API MATRIX LumoValGetMatrix(const LumoValue *v, int *rows, int *cols);
LUMOWIN_API int LumoValGetArrayCount(const LumoValue *v);

/* Calls an export; 0 when a host check abandoned it (see LumoHostLastError), else 1. */
LUMOWIN_API int LumoHostInvoke(LumoExport fn, LumoValue *result, LumoValue *args, int count);
LUMOWIN_API const char *LumoHostLastError(void);

/*
 * Fault injection for tests: make the n-th host allocation from now fail (n >= 1), or none
 * (n <= 0). Returns the number of host allocations made since the last call.
 */
LUMOWIN_API long LumoHostFailAllocation(long n);
/* Host allocations above bytes fail, as in a host without that much memory (0: no limit).
 * Returns the previous limit. */
LUMOWIN_API size_t LumoHostSetAllocationLimit(size_t bytes);

#ifdef __cplusplus
}
#endif

#endif
