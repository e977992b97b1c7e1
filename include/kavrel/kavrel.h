/*
 * The exports of kavrel15_lumo. Every export has the host's signature (LumoExport): the return
 * record, the argument array and the argument count. The exports are the rows of
 * kavrel/exports.inc; their argument lists are in docs/exports.md.
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

/* One declaration per built row of the export table. */
#define KAVREL_EXPORT_ROW(name, family, arity, state) KAVREL_DECLARE_##state(name)
#define KAVREL_DECLARE_BUILT(name) KAVREL_API void name(LumoValue *result, LumoValue *args, int count) KAVREL_NOEXCEPT;
#define KAVREL_DECLARE_PLANNED(name)
#include "kavrel/exports.inc"
#undef KAVREL_EXPORT_ROW
#undef KAVREL_DECLARE_BUILT
#undef KAVREL_DECLARE_PLANNED

#ifdef __cplusplus
}
#endif

#endif
