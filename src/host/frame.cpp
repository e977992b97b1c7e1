// Shared export frame helpers.
#include "host/frame.h"

#include <cstring>

MATRIX FrameOptionalOutput(LumoValue *args, int i, int rows, int cols, bool *failed) {
    if (!FrameIsRef(args, i)) return nullptr;
    LumoValue *target = FrameTarget(args, i);
    if (!LumoLibValMatMalloc(target, rows, cols)) {
        if (failed) *failed = true;
        return nullptr;
    }
    return static_cast<MATRIX>(target->data);
}

void FrameSetInt(LumoValue *result, int value) { LumoValSetInt(result, value); }

void FrameSetDouble(LumoValue *result, double value) {
    LumoFreeByValue(result);
    result->type = LUMO_DOUBLE;
    result->v.dval = value;
}

long long FrameElementCount(const LumoValue *args, int i) {
    const int r = FrameRows(args, i), c = FrameCols(args, i);
    return r > 0 && c > 0 ? static_cast<long long>(r) * c : 0;
}

const double *FrameElements(const LumoValue *args, int i) {
    MATRIX m = FrameMatrix(args, i);
    return FrameElementCount(args, i) > 0 && m ? m[0] : nullptr;
}

FrameValue::FrameValue() { std::memset(&v_, 0, sizeof v_); }

FrameValue::~FrameValue() { LumoFreeByValue(&v_); }

bool FrameValue::alloc(int rows, int cols) { return LumoLibValMatMalloc(&v_, rows, cols) != 0; }

void FrameValue::moveInto(LumoValue *target) {
    LumoFreeByValue(target);
    std::memcpy(target, &v_, sizeof v_);
    std::memset(&v_, 0, sizeof v_);
}
