#include "host.h"

#include <algorithm>
#include <cstring>

namespace {

Vec valuesOf(const LumoValue *v, int *rows, int *cols) {
    int r = 0, c = 0;
    MATRIX m = LumoValGetMatrix(v, &r, &c);
    if (rows) *rows = r;
    if (cols) *cols = c;
    return m && r > 0 && c > 0 ? Vec(m[0], m[0] + static_cast<size_t>(r) * c) : Vec();
}

} // namespace

ToolCall::ToolCall() {
    std::memset(static_cast<void *>(args_), 0, sizeof args_);
    std::memset(static_cast<void *>(targets_), 0, sizeof targets_);
    std::memset(static_cast<void *>(&result_), 0, sizeof result_);
}

ToolCall::~ToolCall() {
    for (int i = 0; i < kMax; ++i) LumoFreeByValue(&args_[i]), LumoFreeByValue(&targets_[i]);
    LumoFreeByValue(&result_);
}

LumoValue *ToolCall::at(int i) {
    count_ = std::max(count_, i + 1);
    return &args_[i];
}

ToolCall &ToolCall::mat(int i, int rows, int cols, const Vec &values) {
    Vec zeros;
    if (values.empty()) zeros.assign(static_cast<size_t>(rows > 0 && cols > 0 ? rows * cols : 0), 0.0);
    LumoValSetMatrix(at(i), rows, cols, values.empty() ? zeros.data() : values.data());
    return *this;
}
ToolCall &ToolCall::num(int i, int v) { return LumoValSetInt(at(i), v), *this; }
ToolCall &ToolCall::dbl(int i, double v) { return LumoValSetDouble(at(i), v), *this; }
ToolCall &ToolCall::str(int i, const std::string &text) { return LumoValSetString(at(i), text.c_str()), *this; }
ToolCall &ToolCall::strs(int i, const std::vector<std::string> &texts) {
    LumoLibValArrayCalloc(at(i), static_cast<int>(texts.size()));
    for (size_t k = 0; k < texts.size(); ++k)
        LumoValSetString(LumoValGetArrayVal(&args_[i], static_cast<int>(k)), texts[k].c_str());
    return *this;
}
ToolCall &ToolCall::ref(int i) { return LumoValSetRef(at(i), &targets_[i]), *this; }

bool ToolCall::invoke(LumoExport fn) {
    if (LumoHostInvoke(fn, &result_, args_, count_)) return true;
    error_ = LumoHostLastError();
    return false;
}

namespace {
double *dataOf(const LumoValue *v) {
    int r = 0, c = 0;
    MATRIX m = LumoValGetMatrix(v, &r, &c);
    return m && r > 0 && c > 0 ? m[0] : nullptr;
}
} // namespace

double *ToolCall::argData(int i) const { return dataOf(&args_[i]); }
const double *ToolCall::outData(int i) const { return dataOf(&targets_[i]); }

Vec ToolCall::out(int i, int *rows, int *cols) const { return valuesOf(&targets_[i], rows, cols); }
Vec ToolCall::values(int *rows, int *cols) const { return valuesOf(&result_, rows, cols); }
std::string ToolCall::resultText() const {
    const char *s = LumoValGetString(&result_);
    return s ? s : "";
}
