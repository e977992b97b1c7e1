// Shared export frame helpers.
#include "host/frame.h"

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
