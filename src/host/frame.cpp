// Shared export frame helpers.
#include "host/frame.h"

#include <climits>
#include <cstring>

#include "matrix/matrix.h"

void FrameSetInt(LumoValue *result, int value) { LumoValSetInt(result, value); }

int FrameSetString(LumoValue *result, const char *text) { return LumoValSetString(result, text); }

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

FrameOutputs::~FrameOutputs() {
    for (int i = 0; i < count_; ++i) LumoFreeByValue(&slots_[i].v);
}

LumoValue *FrameOutputs::value(const LumoValue *args, int i) {
    if (!FrameIsRef(args, i)) return nullptr;
    if (count_ == kMax) {
        failed_ = true;
        return nullptr;
    }
    Slot &s = slots_[count_++];
    s.target = FrameTarget(args, i);
    std::memset(&s.v, 0, sizeof s.v);
    return &s.v;
}

bool FrameOutputs::matrices(const LumoValue *args, int first, int count, const long long *rows, long long cols,
                            MATRIX *out, Fill fill) {
    for (int j = 0; j < count; ++j) out[j] = matrix(args, first + j, rows[j], cols, fill);
    return !failed_;
}

MATRIX FrameOutputs::matrix(const LumoValue *args, int i, long long rows, long long cols, Fill fill) {
    if (!FrameIsRef(args, i)) return nullptr;
    if (rows < 0 || cols < 0 || rows > INT_MAX || cols > INT_MAX) {
        failed_ = true;
        return nullptr;
    }
    LumoValue *v = value(args, i);
    if (!v) return nullptr;
    if (!LumoLibValMatMalloc(v, static_cast<int>(rows), static_cast<int>(cols))) {
        failed_ = true;
        return nullptr;
    }
    MATRIX m = static_cast<MATRIX>(v->data);
    if (fill == FILL_MISSING) MatSetMissing(m, static_cast<int>(rows), static_cast<int>(cols));
    return m;
}

void FrameOutputs::publish() {
    for (int i = 0; i < count_; ++i) {
        LumoFreeByValue(slots_[i].target);
        std::memcpy(slots_[i].target, &slots_[i].v, sizeof slots_[i].v);
        std::memset(&slots_[i].v, 0, sizeof slots_[i].v);
    }
    count_ = 0;
}
