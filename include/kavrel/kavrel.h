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

/* GARCH and EGARCH */

/* Probit, logit and the actual-versus-fitted table */

/* Markov switching */

/* Seasonal statistics, Kronecker selection and long-run covariance */

#ifdef __cplusplus
}
#endif

#endif
