/*
 * The exports of kavrel15_lumo. Every export has the host's signature (LumoExport): the return
 * record, the argument array and the argument count. Argument lists are in docs/exports.md.
 */
#ifndef KAVREL_KAVREL_H
#define KAVREL_KAVREL_H

#include "kavrel/lumo.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(_WIN32)
#  define KAVREL_API
#else
#  define KAVREL_API __attribute__((visibility("default")))
#endif

/* Exports never throw; C++ callers see that in the type. */
#ifdef __cplusplus
#  define KAVREL_NOEXCEPT noexcept
#else
#  define KAVREL_NOEXCEPT
#endif

/* Recursive least squares */
KAVREL_API void FnRlsEst(LumoValue *result, LumoValue *args, int count) KAVREL_NOEXCEPT;

/* GARCH and EGARCH */
KAVREL_API void FnGarchVar(LumoValue *result, LumoValue *args, int count) KAVREL_NOEXCEPT;
KAVREL_API void FnEgarchVar(LumoValue *result, LumoValue *args, int count) KAVREL_NOEXCEPT;

/* Probit, logit and the actual-versus-fitted table */
KAVREL_API void FnBinProbitRz(LumoValue *result, LumoValue *args, int count) KAVREL_NOEXCEPT;
KAVREL_API void FnLogitRz(LumoValue *result, LumoValue *args, int count) KAVREL_NOEXCEPT;
KAVREL_API void FnActFitTable(LumoValue *result, LumoValue *args, int count) KAVREL_NOEXCEPT;

/* Markov switching */
KAVREL_API void FnFilterMS(LumoValue *result, LumoValue *args, int count) KAVREL_NOEXCEPT;
KAVREL_API void FnSmoothMS(LumoValue *result, LumoValue *args, int count) KAVREL_NOEXCEPT;
KAVREL_API void FnSmoothMS2(LumoValue *result, LumoValue *args, int count) KAVREL_NOEXCEPT;
KAVREL_API void FnSmoothMS2sym(LumoValue *result, LumoValue *args, int count) KAVREL_NOEXCEPT;

/* Seasonal statistics, Kronecker selection and long-run covariance */
KAVREL_API void FnDeSeasonalize(LumoValue *result, LumoValue *args, int count) KAVREL_NOEXCEPT;
KAVREL_API void FnSeasonalRsq(LumoValue *result, LumoValue *args, int count) KAVREL_NOEXCEPT;
KAVREL_API void FnKroneckerSel(LumoValue *result, LumoValue *args, int count) KAVREL_NOEXCEPT;
KAVREL_API void FnGLScovariance(LumoValue *result, LumoValue *args, int count) KAVREL_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
