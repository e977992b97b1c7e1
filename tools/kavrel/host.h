// One export call as the tool makes it: argument records, the caller's variables that references
// point at, and the return record, all freed with the call. The tool is a host like any other:
// it reaches the library only through the exports and lumowin.
#ifndef KAVREL_TOOLS_HOST_H
#define KAVREL_TOOLS_HOST_H

#include <string>
#include <vector>

#include "kavrel/kavrel.h"
#include "kavrel/lumohost.h"

using Vec = std::vector<double>;

class ToolCall {
public:
    static constexpr int kMax = 20;
    ToolCall();
    ~ToolCall();
    ToolCall(const ToolCall &) = delete;
    ToolCall &operator=(const ToolCall &) = delete;

    // A rows x cols matrix from row-major values (zeros when values is empty).
    ToolCall &mat(int i, int rows, int cols, const Vec &values);
    ToolCall &col(int i, const Vec &values) { return mat(i, static_cast<int>(values.size()), 1, values); }
    ToolCall &num(int i, int v);
    ToolCall &dbl(int i, double v);
    ToolCall &str(int i, const std::string &text);
    ToolCall &strs(int i, const std::vector<std::string> &texts);
    // A reference to the call's variable i (what an output argument receives).
    ToolCall &ref(int i);

    // Calls fn; false (with error() set) when a host check abandoned the call.
    bool invoke(LumoExport fn);
    const std::string &error() const { return error_; }

    // Results: the variable of reference i, the return value.
    Vec out(int i, int *rows = nullptr, int *cols = nullptr) const;
    Vec values(int *rows = nullptr, int *cols = nullptr) const;
    bool resultIsInt() const { return result_.type == LUMO_INT; }
    int resultInt() const { return result_.v.w.ival; }
    double resultDouble() const { return result_.type == LUMO_DOUBLE ? result_.v.dval : -1.0; }
    // The text of a string result, "" when the result is not one.
    std::string resultText() const;
    LumoValue *target(int i) { return &targets_[i]; }
    // The elements of matrix argument i or of the variable of reference i, row-major, in place
    // (null when it holds no matrix): a host may rewrite its own arguments between calls.
    double *argData(int i) const;
    const double *outData(int i) const;

private:
    LumoValue *at(int i);
    LumoValue args_[kMax], targets_[kMax], result_;
    int count_ = 0;
    std::string error_;
};

#endif
