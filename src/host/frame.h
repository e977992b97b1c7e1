// The export frame shared by every export: reading arguments, sizing optional outputs only where
// the caller passed a reference, writing the return value, and the guard that keeps every C++
// failure inside the library. Exports are thin: unpack here, call a plain routine, pack results.
#ifndef KAVREL_HOST_FRAME_H
#define KAVREL_HOST_FRAME_H

#include <new>

#include "kavrel/lumo.h"

#if defined(_WIN32)
#  define KAVREL_EXPORT extern "C"
#else
#  define KAVREL_EXPORT extern "C" __attribute__((visibility("default")))
#endif

// Argument readers; they do not check types (the host checks did that first).
inline int FrameInt(const LumoValue *args, int i) { return args[i].v.w.ival; }
inline double FrameDouble(const LumoValue *args, int i) { return args[i].v.dval; }
inline MATRIX FrameMatrix(const LumoValue *args, int i) { return static_cast<MATRIX>(args[i].data); }
inline int FrameRows(const LumoValue *args, int i) { return args[i].v.w.ival; }
inline int FrameCols(const LumoValue *args, int i) { return args[i].v.w.u.cols; }
inline bool FrameIsRef(const LumoValue *args, int i) { return args[i].type == LUMO_REF && args[i].v.w.u.target; }
inline LumoValue *FrameTarget(const LumoValue *args, int i) { return args[i].v.w.u.target; }

// Elements of a matrix argument, 0 when it has none.
long long FrameElementCount(const LumoValue *args, int i);
// The elements of a matrix argument as one block (host matrices are contiguous), null when none.
const double *FrameElements(const LumoValue *args, int i);

// An optional output: when argument i is a reference, its target becomes a rows x cols host
// matrix and its data pointer is returned; otherwise null. *failed is set when the host could
// not allocate (the export then reports its failure).
MATRIX FrameOptionalOutput(LumoValue *args, int i, int rows, int cols, bool *failed);

// A host value that the export fills before it is moved into the caller's variable. Results made
// this way leave every variable as it was when the host cannot allocate, and a reference that
// names one of the inputs is overwritten only after the input has been read.
class FrameValue {
public:
    FrameValue();
    ~FrameValue();
    FrameValue(const FrameValue &) = delete;
    FrameValue &operator=(const FrameValue &) = delete;
    // A rows x cols host matrix; false when the host cannot make it.
    bool alloc(int rows, int cols);
    MATRIX matrix() const { return static_cast<MATRIX>(v_.data); }
    // Releases the target's old content and hands it this value.
    void moveInto(LumoValue *target);

private:
    LumoValue v_;
};

// Return values. Doubles are written straight into the record: the host offers no setter.
void FrameSetInt(LumoValue *result, int value);
void FrameSetDouble(LumoValue *result, double value);

// Runs an export body so that nothing escapes: an allocation failure from the standard library
// (std::bad_alloc) or any other exception runs onFailure, which applies the failure the
// export's frame defines.
template <class Body, class OnFailure> void FrameGuard(Body &&body, OnFailure &&onFailure) noexcept {
    try {
        body();
    } catch (...) {
        onFailure();
    }
}

#endif
