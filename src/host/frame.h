// The export frame shared by every export: reading arguments, sizing optional outputs only where
// the caller passed a reference, writing the return value, and the guard that keeps every C++
// failure inside the library. Exports are thin: unpack here, call a plain routine, pack results.
#ifndef KAVREL_HOST_FRAME_H
#define KAVREL_HOST_FRAME_H

#include <new>

#include "base/types.h"
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
// The text of a string argument, null when it holds none.
inline const char *FrameString(const LumoValue *args, int i) { return LumoValGetString(&args[i]); }
// The text of element j of an array argument, null when there is no such element or it is not a
// string.
inline const char *FrameArrayString(LumoValue *args, int i, int j) {
    return LumoValGetString(LumoValGetArrayVal(&args[i], j));
}

// Elements of a matrix argument, 0 when it has none.
long long FrameElementCount(const LumoValue *args, int i);
// The elements of a matrix argument as one block (host matrices are contiguous), null when none.
const double *FrameElements(const LumoValue *args, int i);

// The one output protocol of every export. Each output (optional or mandatory) is made in a host
// value of the frame's own; the computation writes there; publish() moves every value into the
// caller's variable only after the computation has read all its inputs. So an output reference
// that names one of the inputs (a host program that filters in place, FnFilterMS(d, P, p0, &d))
// never pulls storage from under the computation, two references to one variable leave the later
// output there and leak nothing, and a failed host allocation leaves every variable as it was.
// Values never published are released with the frame.
class FrameOutputs {
public:
    enum Fill { FILL_MISSING, WRITTEN_WHOLE };
    FrameOutputs() = default;
    ~FrameOutputs();
    FrameOutputs(const FrameOutputs &) = delete;
    FrameOutputs &operator=(const FrameOutputs &) = delete;

    // A rows x cols matrix for argument i when it is a reference with a target, pre-filled with
    // the missing value unless the computation writes every element (WRITTEN_WHOLE); null when
    // the caller passed no reference there, and null with failed() set when the host cannot make
    // it or a shape does not fit the host's int.
    MATRIX matrix(const LumoValue *args, int i, long long rows, long long cols, Fill fill = FILL_MISSING);
    // out[j] = matrix(args, first + j, rows[j], cols, fill) for j = 0..count-1: the outputs of a
    // recursion that writes one column per observation; false when any could not be made.
    bool matrices(const LumoValue *args, int first, int count, const long long *rows, long long cols, MATRIX *out,
                  Fill fill);
    // A value for argument i that the export fills with a host setter (strings, arrays); null
    // when argument i is not a reference.
    LumoValue *value(const LumoValue *args, int i);
    bool failed() const { return failed_; }
    // Moves every value made into its caller's variable, in argument order.
    void publish();

private:
    enum { kMax = 12 };
    struct Slot {
        LumoValue *target;
        LumoValue v;
    };
    Slot slots_[kMax] = {};
    int count_ = 0;
    bool failed_ = false;
};

// Return values. Doubles are written straight into the record: the host offers no setter.
void FrameSetInt(LumoValue *result, int value);
void FrameSetDouble(LumoValue *result, double value);
// A copy of text; 0 when the host cannot make it (the record is then empty).
int FrameSetString(LumoValue *result, const char *text);

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
