// Algebra programs: every tests/algebra/*.alg file is a program whose comments set up a
// database and state what must follow (clox's test runner, as directives):
//   // data: x 1 2 . 4        a variable and its values ('.' missing); the sample has that many
//   // sample: 2000 1 4       start year, start period, frequency (default 1996 1 1)
//   // dated: yes             the first variable holds the observations' dates
//   // digits: 13             significant digits compared (default 15)
//   // model: 500             compile in model mode with a parameter table of that size
//   // run: 1 3 [nobs]        observations of the run (default all); // quiet: a quiet run
//   // expect: y 1 2 . inf    a variable's values after the run ("a b" for a name with blanks)
//   // expect+: 5 6           more values of the variable above
//   // message: Error: ...    the messages, in order (\r and \n written so); none other allowed;
//   // message+: ...          continues the message above
//   // status: 0              the run's result (0 as well when tokenizing or compiling fails)
//   // code: 0001 CONST 1 ; 1 the disassembly, line by line (blanks collapsed)
//   // variables: x y         the database's variables afterwards
//   // param: 0 1.5           parameter 0's constant-pool value after compiling
// Below them, what a program cannot reach (or only at great length): reports of every fault bit, the disassembler's
// measuring, growth of the code and constant buffers at their limits, the bridge's parameter writes, columns moved
// between runs, and allocation failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "algebra/algebra.h"
#include "base/types.h"
#include "common/fault.h"
#include "database/database.h"
#include "database/messages.h"
#include "database/output.h"

namespace {

using Strings = std::vector<std::string>;

Strings &messages() {
    static Strings m;
    return m;
}

std::string escaped(const char *text) {
    std::string s;
    for (; *text; ++text) s += *text == '\r' ? "\\r" : *text == '\n' ? "\\n" : std::string(1, *text);
    return s;
}

void capture(const char *title, const char *text) { messages().push_back(std::string(title) + ": " + escaped(text)); }

int gDigits = 15; // significant digits compared, the program's "digits:" (a computed fit: fewer)

std::string format(double v) {
    if (v != v) return ".";
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.*g", gDigits, v);
    return buf;
}

Strings words(const std::string &s) {
    std::istringstream in(s);
    Strings w;
    for (std::string x; in >> x;) w.push_back(x);
    return w;
}

std::string joined(const Strings &w) {
    std::string s;
    for (const auto &x : w) s += (s.empty() ? "" : " ") + x;
    return s;
}

// Expected values as the run's are shown: "." stays, numbers in %.15g.
std::string normalised(const Strings &w) {
    Strings out;
    for (const auto &x : w) out.push_back(x == "." ? x : format(std::strtod(x.c_str(), nullptr)));
    return joined(out);
}

struct Program {
    std::string text;
    Strings data, expect, expectMessages, code, params;
    std::string variables;
    int sample[3] = {1996, 1, 1};
    int model = 0, t1 = 0, t2 = -1, nobs = -1, quiet = 0, status = -1;
    bool hasVariables = false, dated = false;
    int digits = 15;
};

Program parse(const std::string &text) {
    Program p;
    p.text = text;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const size_t at = line.find("// ");
        const size_t colon = line.find(':', at);
        if (at == std::string::npos || colon == std::string::npos) continue;
        const std::string key = line.substr(at + 3, colon - at - 3);
        const std::string rest = colon + 2 <= line.size() ? line.substr(colon + 2) : "";
        const Strings w = words(rest);
        if (key == "data") p.data.push_back(rest);
        if (key == "sample")
            p.sample[0] = std::stoi(w[0]), p.sample[1] = std::stoi(w[1]), p.sample[2] = std::stoi(w[2]);
        if (key == "model") p.model = std::stoi(w[0]);
        if (key == "run") p.t1 = std::stoi(w[0]), p.t2 = std::stoi(w[1]), p.nobs = w.size() > 2 ? std::stoi(w[2]) : -1;
        if (key == "quiet") p.quiet = 1;
        if (key == "dated") p.dated = true;
        if (key == "digits") p.digits = std::stoi(w[0]);
        if (key == "expect") p.expect.push_back(rest);
        if (key == "message") p.expectMessages.push_back(rest);
        if (key == "message+" && !p.expectMessages.empty()) p.expectMessages.back() += rest;
        if (key == "expect+" && !p.expect.empty()) p.expect.back() += " " + rest;
        if (key == "status") p.status = std::stoi(w[0]);
        if (key == "code") p.code.push_back(joined(w));
        if (key == "variables") p.variables = joined(w), p.hasVariables = true;
        if (key == "param") p.params.push_back(rest);
    }
    return p;
}

// A database of the program's data: every variable as long as the longest, the sample that long.
Database *makeDatabase(const Program &p) {
    Database *db = DbCreate("test", 0);
    if (!db) return nullptr;
    std::vector<Strings> vars;
    size_t n = 0;
    for (const auto &d : p.data) vars.push_back(words(d)), n = std::max(n, vars.back().size() - 1);
    if (!vars.empty()) {
        Sample s{p.sample[0], p.sample[1], p.sample[0], p.sample[1], p.sample[2]};
        SampleSetCount(&s, static_cast<int>(n));
        DbSetSample(db, s);
    }
    for (const auto &v : vars) {
        const int i = DbAddVariables(db, 1);
        DbSetVariableName(db, i, v[0].c_str());
        for (size_t t = 1; t < v.size(); ++t)
            db->columns[i][t - 1] = v[t] == "." ? MissingValueOf() : std::strtod(v[t].c_str(), nullptr);
    }
    const DbVarInfo dates{{1, 0, 0, 0}};
    if (p.dated) DbSetVariableInfo(db, 0, &dates);
    return db;
}

std::string valuesOf(const Database *db, const std::string &name) {
    const int i = DbFindVariableExact(db, name.c_str());
    if (i < 0) return "(no variable " + name + ")";
    Strings w;
    for (int t = 0; t < db->obsCount; ++t) w.push_back(format(db->columns[i][t]));
    return joined(w);
}

Strings disassembly(const AlgebraCompiler *c) {
    std::string text(AlgebraDisassemble(c, nullptr, 0) + 1, '\0');
    AlgebraDisassemble(c, &text[0], text.size());
    Strings lines;
    std::istringstream in(text.c_str());
    for (std::string line; std::getline(in, line);) lines.push_back(joined(words(line)));
    return lines;
}

class AlgebraProgram : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        messages().clear();
        SetMessageSink(capture);
    }
    void TearDown() override { SetMessageSink(nullptr); }
};

TEST_P(AlgebraProgram, Runs) {
    std::ifstream file(GetParam(), std::ios::binary);
    std::stringstream buf;
    buf << file.rdbuf();
    const Program p = parse(buf.str());
    gDigits = p.digits;
    Database *db = makeDatabase(p);
    ASSERT_NE(db, nullptr);
    AlgebraCompiler *c = AlgebraCreate(db, p.model);
    ASSERT_NE(c, nullptr);
    int status = AlgebraLoad(c, p.text.c_str(), nullptr) && AlgebraCompile(c, db);
    if (!status && !messages().empty()) { // the bridge returns a failed compile's text from the buffer
        EXPECT_EQ("Error: " + escaped(AlgebraMessage(c)), messages().back());
    }
    if (!p.code.empty()) {
        EXPECT_EQ(disassembly(c), p.code);
    }
    for (const auto &par : p.params) {
        const Strings w = words(par);
        int count = 0;
        const double *pool = AlgebraConstants(c, &count);
        const int slot = AlgebraParamSlot(c, std::stoi(w[0]));
        ASSERT_GE(slot, 0) << "parameter " << w[0];
        EXPECT_EQ(format(pool[slot]), normalised({w[1]})) << "parameter " << w[0];
    }
    if (status)
        status = AlgebraRun(c, p.t1, p.t2 < 0 ? db->obsCount - 1 : p.t2, p.nobs < 0 ? db->obsCount : p.nobs, p.quiet);
    for (const auto &e : p.expect) {
        // A quoted name may hold blanks.
        const size_t end = e[0] == '"' ? e.find('"', 1) + 1 : e.find(' ');
        const std::string name = e[0] == '"' ? e.substr(1, end - 2) : e.substr(0, end);
        EXPECT_EQ(valuesOf(db, name), normalised(words(e.substr(end)))) << "variable " << name;
    }
    if (p.status >= 0) {
        EXPECT_EQ(status, p.status);
    }
    EXPECT_EQ(messages(), p.expectMessages);
    if (p.hasVariables) {
        Strings names;
        for (int i = 0; i < db->varCount; ++i) names.push_back(db->names[i]);
        EXPECT_EQ(joined(names), p.variables);
    }
    AlgebraFree(c);
    DbFree(db);
}

Strings programFiles() {
    Strings files;
    for (const auto &e : std::filesystem::directory_iterator(KAVREL_SOURCE_DIR "/tests/algebra"))
        if (e.path().extension() == ".alg") files.push_back(e.path().string());
    std::sort(files.begin(), files.end());
    return files;
}

INSTANTIATE_TEST_SUITE_P(Files, AlgebraProgram, ::testing::ValuesIn(programFiles()),
                         [](const ::testing::TestParamInfo<std::string> &info) {
                             return std::filesystem::path(info.param).stem().string();
                         });

// ---- What programs cannot reach ----

class Algebra : public ::testing::Test {
protected:
    void SetUp() override {
        messages().clear();
        SetMessageSink(capture);
        db_ = DbCreate("test", 0);
        const int i = DbAddVariables(db_, 1);
        DbSetVariableName(db_, i, "x");
        for (int t = 0; t < db_->obsCount; ++t) db_->columns[i][t] = t + 1.0;
    }
    void TearDown() override {
        DbFree(db_);
        SetMessageSink(nullptr);
    }
    // Compiles text into a new state (model mode when maxParams > 0); null after an error.
    AlgebraCompiler *compile(const std::string &text, int maxParams = 0) {
        AlgebraCompiler *c = AlgebraCreate(db_, maxParams);
        if (AlgebraLoad(c, text.c_str(), nullptr) && AlgebraCompile(c, db_)) return c;
        AlgebraFree(c);
        return nullptr;
    }
    Database *db_ = nullptr;
};

TEST_F(Algebra, ReportListsEachFaultOnceFromTheLowestBit) {
    AlgebraCompiler *c = AlgebraCreate(db_, 0);
    EXPECT_STREQ(AlgebraErrorReport(c), "No errors.");
    for (int bit = 256; bit >= 1; bit /= 2) AlgebraSetError(c, bit);
    AlgebraSetError(c, ALGEBRA_DIVIDE_BY_ZERO);
    EXPECT_EQ(escaped(AlgebraErrorReport(c)),
              "There were Algebra run-time errors:\\r\\n    Stack full\\r\\n    Overflow in exponent\\r\\n"
              "    Logarithm of non-positive number\\r\\n    Divide by zero\\r\\n"
              "    Non-positive degrees of freedom\\r\\n    Square root of negative number\\r\\n"
              "    Arguments must be different (smooth, sortby)\\r\\n    Stack error\\r\\n    Logarithm of zero\\r\\n");
    EXPECT_STREQ(AlgebraMessage(c), AlgebraErrorReport(c));
    AlgebraFree(c);
}

// A run is one change to the host however many variables it writes, and a faulty run is one
// even when it writes nothing.
TEST_F(Algebra, RunAnnouncesItsChangesOnce) {
    static int notified;
    SetOutputChannels(
        nullptr, [] { ++notified; }, nullptr);
    DbAddVariables(db_, 2); // Var2 and Var3: the program writes x and Var3, apart
    AlgebraCompiler *writes = compile("Var3 = x; x = Var3 + 1; z = 2;");
    ASSERT_NE(writes, nullptr);
    AlgebraCompiler *faults = compile("log(-x);");
    ASSERT_NE(faults, nullptr);
    notified = 0;
    EXPECT_EQ(AlgebraRun(writes, 0, db_->obsCount - 1, db_->obsCount, 1), 1);
    EXPECT_EQ(notified, 1);
    EXPECT_EQ(AlgebraRun(faults, 0, db_->obsCount - 1, db_->obsCount, 1), 0);
    EXPECT_EQ(notified, 2);
    SetOutputChannels(nullptr, nullptr, nullptr);
    AlgebraFree(writes);
    AlgebraFree(faults);
}

TEST_F(Algebra, DisassemblyIsMeasuredAndCutToTheBuffer) {
    AlgebraCompiler *c = compile("y = x;");
    ASSERT_NE(c, nullptr);
    const size_t n = AlgebraDisassemble(c, nullptr, 0);
    std::string whole(n + 1, '\0');
    EXPECT_EQ(AlgebraDisassemble(c, &whole[0], whole.size()), n);
    char small[8];
    EXPECT_EQ(AlgebraDisassemble(c, small, sizeof small), n);
    EXPECT_EQ(std::string(small), whole.substr(0, 7));
    AlgebraFree(c);
}

// A statement of ones (one pool slot) needs 2k + 1 instructions with its statement mark; the
// code starts at 200 and grows only between statements.
TEST_F(Algebra, CodeBufferOverrunsWithinAStatementOnly) {
    auto ones = [](int k) {
        std::string s = "y = 1";
        for (int i = 1; i < k; ++i) s += "+1";
        return s + ";";
    };
    AlgebraCompiler *c = compile(ones(99) + "\n" + ones(99) + "\n" + ones(99));
    EXPECT_NE(c, nullptr);
    AlgebraFree(c);
    EXPECT_EQ(compile(ones(100)), nullptr);
    EXPECT_EQ(messages().back(), "Error: Parse error: Code buffer full on line 1");
    messages().clear();
}

// Starting values take pool slots without code. After 340 of them 50 slots are free and the pool
// does not grow; a statement of 51 new constants then overruns it. One more starting value
// leaves 49 free, the pool grows by 400, and the same statement fits.
TEST_F(Algebra, ConstantPoolGrowsBetweenStatementsWhenFewerThanFiftyAreFree) {
    auto program = [](int starts) {
        std::string s;
        for (int i = 0; i < starts; ++i) s += "&" + std::to_string(i) + " = 1;\n";
        s += "y = 10";
        for (int i = 11; i <= 60; ++i) s += "+" + std::to_string(i);
        return s + ";";
    };
    EXPECT_EQ(compile(program(340), 500), nullptr);
    EXPECT_EQ(messages().back(), "Error: Parse error: Constant buffer full on line 341");
    messages().clear();
    AlgebraCompiler *c = compile(program(341), 500);
    ASSERT_NE(c, nullptr);
    int count = 0;
    AlgebraConstants(c, &count);
    EXPECT_EQ(count, 10 + 341 + 51);
    AlgebraFree(c);
}

TEST_F(Algebra, BridgeWritesParametersInIncreasingNumber) {
    AlgebraCompiler *c = compile("&3 = 2; &0 = 1; y = &0 + &3 * x;", 500);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(AlgebraParamHighest(c), 3);
    EXPECT_EQ(AlgebraParamCount(c), 2);
    EXPECT_EQ(AlgebraParamSlot(c, 1), -1);
    const double wrong[] = {1, 2, 3};
    EXPECT_EQ(AlgebraSetParams(c, wrong, 3), 0);
    const double values[] = {10, 100};
    ASSERT_EQ(AlgebraSetParams(c, values, 2), 1);
    ASSERT_EQ(AlgebraRun(c, 0, 9, 10, 1), 1);
    EXPECT_EQ(valuesOf(db_, "y"), "110 210 310 410 510 610 710 810 910 1010");
    AlgebraFree(c);
}

// Sorting gives every variable a new column and frees the old ones: the next run must write
// into the new ones (under the sanitizers a stale pointer is a use after free).
TEST_F(Algebra, RunsFollowColumnsThatMoved) {
    AlgebraCompiler *c = compile("y = x * 2;");
    ASSERT_NE(c, nullptr);
    ASSERT_EQ(AlgebraRun(c, 0, 9, 10, 0), 1);
    ASSERT_EQ(DbSortObservations(db_, DbFindVariableExact(db_, "y")), 1);
    db_->columns[0][0] = 100;
    ASSERT_EQ(AlgebraRun(c, 0, 0, 10, 0), 1);
    EXPECT_EQ(valuesOf(db_, "y"), "200 4 6 8 10 12 14 16 18 20");
    AlgebraFree(c);
}

// A deleted variable is gone after the run and made again by the next run that needs it.
TEST_F(Algebra, DeletedVariablesReturnForTheNextRun) {
    AlgebraCompiler *c = compile("tmp = x + 1; y = tmp * 2; delete(tmp);");
    ASSERT_NE(c, nullptr);
    for (int run = 0; run < 2; ++run) {
        ASSERT_EQ(AlgebraRun(c, 0, 9, 10, 0), 1);
        EXPECT_EQ(DbFindVariableExact(db_, "tmp"), -1);
        EXPECT_EQ(valuesOf(db_, "y"), "4 6 8 10 12 14 16 18 20 22");
    }
    AlgebraFree(c);
}

// Every allocation of tokenizing, compiling and running a real program fails once in turn: each
// failure is a clear one (a message, no partial success) and frees what it made.
TEST_F(Algebra, AllocationFailuresFailCleanly) {
    // The whole-sample functions make their scratch at the first observation; when it cannot be
    // had their destinations stay missing.
    const char *program = "a = log(x) + lag(x, 1); b[1] = a > 1 ? sqrt(a) : -a; c = 2020-1-15; delete(a);\n"
                          "h = smooth_sp(x, 0, hs) + acf(x, ac, lg) + periodogram(x, pe, fr); sort(x); _sortby(c, x);";
    std::set<std::string> said;
    long failures = ForEachLibraryAllocationFailure([&](long n) {
        messages().clear();
        Database *db = DbCreate("fault", 0);
        AlgebraCompiler *c = db ? AlgebraCreate(db, 5) : nullptr;
        if (db && DbAddVariables(db, 1) == 0 && DbSetVariableName(db, 0, "x")) {
            for (int t = 0; t < db->obsCount; ++t) db->columns[0][t] = t + 1.0;
            const int ok = c && AlgebraLoad(c, program, nullptr) && AlgebraCompile(c, db) &&
                           AlgebraRun(c, 0, db->obsCount - 1, db->obsCount, 0);
            if (ok) {
                EXPECT_EQ(valuesOf(db, "c"), "2458864 2458864 2458864 2458864 2458864 2458864 2458864 2458864 "
                                             "2458864 2458864")
                    << n;
                EXPECT_EQ(DbFindVariableExact(db, "a"), -1) << n;
            } else {
                EXPECT_FALSE(messages().empty()) << "allocation " << n << " failed without a message";
            }
        }
        said.insert(messages().begin(), messages().end());
        AlgebraFree(c);
        DbFree(db);
    });
    EXPECT_GT(failures, 10);
    EXPECT_EQ(said.count("Error: Out of memory"), 1u);
    EXPECT_EQ(said.count("Error: Parse error: Out of memory on line 1"), 1u);
    EXPECT_EQ(said.count("Error: Parse error: a Could not create variable on line 1"), 1u);
    messages().clear();
}

} // namespace
