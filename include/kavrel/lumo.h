/*
 * The host value record and the eleven services of the Lumo runtime (lumowin) that the
 * library imports. The record layout is the host's: on a 32-bit build it is 40 bytes with
 * the offsets asserted below; on 64-bit builds (our tests and tools) the same fields keep
 * their order and natural alignment.
 */
#ifndef KAVREL_LUMO_H
#define KAVREL_LUMO_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(_WIN32)
#  if defined(LUMOWIN_BUILDING)
#    define LUMOWIN_API __declspec(dllexport)
#  else
#    define LUMOWIN_API __declspec(dllimport)
#  endif
#else
#  define LUMOWIN_API __attribute__((visibility("default")))
#endif

/* Type codes. 1-5 are the ones the exports check; strings have a code of their own. */
enum {
    LUMO_EMPTY = 0,  /* a zero-filled record: holds nothing */
    LUMO_INT = 1,    /* 32-bit integer in the value word */
    LUMO_DOUBLE = 2, /* 64-bit double over the value and column words */
    LUMO_MATRIX = 3, /* rows, columns, row-pointer array (MATRIX) */
    LUMO_ARRAY = 4,  /* element count in the value word, elements (LumoValue[]) in data */
    LUMO_REF = 5,    /* target: the caller's variable that receives a result */
    LUMO_STRING = 6  /* length in the value word, NUL-terminated characters in data */
};

/* Rows of doubles behind an array of row pointers; entry -1 holds the data block. */
typedef double **MATRIX;

typedef struct LumoValue LumoValue;

struct LumoValue {
    int32_t type;
    int32_t align; /* not used by the library */
    union {
        double dval; /* LUMO_DOUBLE */
        struct {
            int32_t ival; /* LUMO_INT value; LUMO_MATRIX rows; LUMO_ARRAY count; LUMO_STRING length */
            union {
                int32_t cols;      /* LUMO_MATRIX columns */
                LumoValue *target; /* LUMO_REF */
            } u;
        } w;
    } v;
    void *data; /* LUMO_MATRIX: MATRIX; LUMO_ARRAY: LumoValue *; LUMO_STRING: char * */
    intptr_t host_private[5];
};

#if UINTPTR_MAX == 0xFFFFFFFFu
#  ifdef __cplusplus
#    define LUMO_STATIC_ASSERT static_assert
#  else
#    define LUMO_STATIC_ASSERT _Static_assert
#  endif
LUMO_STATIC_ASSERT(sizeof(LumoValue) == 40, "LumoValue must be 40 bytes on 32-bit hosts");
LUMO_STATIC_ASSERT(offsetof(LumoValue, v) == 8, "value word at offset 8");
LUMO_STATIC_ASSERT(offsetof(LumoValue, v.w.u) == 12, "columns/target word at offset 12");
LUMO_STATIC_ASSERT(offsetof(LumoValue, data) == 16, "data pointer at offset 16");
#endif

/* The signature of every export. */
typedef void (*LumoExport)(LumoValue *result, LumoValue *args, int count);

/*
 * Host services. The three checks may not return: when a check fails the host reports it and
 * abandons the export, so an export calls them before it owns anything.
 */
LUMOWIN_API void LumoLibCheckType(int type, LumoValue *args, int first, int last);
LUMOWIN_API void LumoLibCheckMatrixSize(LumoValue *args, int first, int last, int rows, int cols);
LUMOWIN_API void LumoLibArgError(int index);
/* Allocators return 1 on success, 0 when the host could not allocate (target left empty). */
LUMOWIN_API int LumoLibValMatMalloc(LumoValue *target, int rows, int cols);
LUMOWIN_API int LumoLibValMatDup(LumoValue *target, const LumoValue *source);
LUMOWIN_API int LumoLibValArrayCalloc(LumoValue *target, int count);
LUMOWIN_API LumoValue *LumoValGetArrayVal(LumoValue *array, int index);
LUMOWIN_API const char *LumoValGetString(const LumoValue *v);
LUMOWIN_API int LumoValSetString(LumoValue *v, const char *text);
LUMOWIN_API void LumoValSetInt(LumoValue *v, int value);
LUMOWIN_API void LumoFreeByValue(LumoValue *v);

#ifdef __cplusplus
}
#endif

#endif
