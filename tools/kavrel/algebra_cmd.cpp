// kavrel algebra: loads a data file with the library's reader, compiles an Algebra program
// against it, runs it over every observation and writes every variable, new ones included, as
// CSV. Exit status 0 after a clean run, 1 after run-time faults (the data is still written), 2
// when nothing could be done: a bad option, a missing or unreadable file, a scan or parse error.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "algebra/algebra.h"
#include "commands.h"
#include "csv.h"
#include "database/calendar.h"
#include "database/database.h"
#include "database/datafile.h"
#include "options.h"

namespace {

const OptionRule kOptions[] = {
    {"--data", "FILE", "the data file (CSV or blank-separated; a first column of dates makes it dated)"},
    {"--out", "FILE", "where the CSV goes (standard output when absent)"},
    {"-e", "TEXT", "the program as text instead of a file"},
    {"--start", "YEAR(PERIOD)", "dates an undated database: its first observation"},
    {"--freq", "F", "dates an undated database: periods per year (with --start)"},
    {"--disassemble", nullptr, "print the compiled code instead of running it"},
    {"--help", nullptr, "this text"},
};
constexpr int kOptionCount = sizeof kOptions / sizeof kOptions[0];

int fail(const std::string &what) {
    std::fprintf(stderr, "kavrel algebra: %s\n", what.c_str());
    return EXIT_BAD_INPUT;
}

bool readFile(const std::string &path, std::string *text) {
    std::FILE *f = std::fopen(path.c_str(), "rb");
    if (!f) return false;
    char buf[65536];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;) text->append(buf, n);
    const bool ok = !std::ferror(f);
    std::fclose(f);
    return ok;
}

// "1990(3)" or "1990": year and period (1 when absent).
bool parseStart(const std::string &s, int *year, int *period) {
    char close = 0;
    *period = 1;
    const int n = std::sscanf(s.c_str(), "%d(%d%c", year, period, &close);
    return (n == 1 && s.find('(') == std::string::npos) || (n == 3 && close == ')' && *period >= 1);
}

} // namespace

int RunAlgebraCommand(int argc, char **argv) {
    const ParsedOptions opt = ParseOptions(argc, argv, 1, kOptions, kOptionCount);
    if (!opt.error.empty()) return fail(opt.error);
    if (opt.has("--help")) {
        std::printf("usage: kavrel algebra PROGRAM --data FILE [--out FILE] [--start YEAR(PERIOD) --freq F]\n"
                    "       kavrel algebra -e TEXT --data FILE ...\n\n%s",
                    OptionHelp(kOptions, kOptionCount).c_str());
        return EXIT_CLEAN;
    }
    std::string program;
    if (opt.has("-e")) {
        if (!opt.positional.empty()) return fail("give the program as a file or with -e, not both");
        program = opt.get("-e");
    } else if (opt.positional.size() != 1) {
        return fail("one program file expected (or -e TEXT)");
    } else if (!readFile(opt.positional[0], &program)) {
        return fail("cannot read program " + opt.positional[0]);
    }
    if (!opt.has("--data")) return fail("--data FILE is required");
    if (opt.has("--start") != opt.has("--freq")) return fail("--start and --freq go together");
    int year = 0, period = 1, freq = 0;
    if (opt.has("--start")) {
        if (!parseStart(opt.get("--start"), &year, &period)) return fail("bad --start " + opt.get("--start"));
        freq = std::atoi(opt.get("--freq").c_str());
        if (freq < 1 || period > freq) return fail("bad --freq " + opt.get("--freq"));
    }

    const std::string dataPath = opt.get("--data");
    Database *db = DbReadDataFile(dataPath.c_str(), 0);
    if (!db) return fail("cannot read data file " + dataPath);
    if (freq > 0) {
        Sample s{year, period, 0, 0, freq};
        SampleSetCount(&s, db->obsCount);
        if (!DbSetSample(db, s)) {
            DbFree(db);
            return fail("bad --start " + opt.get("--start"));
        }
    }
    AlgebraCompiler *c = AlgebraCreate(db, 0);
    int status = EXIT_BAD_INPUT;
    if (c && AlgebraLoad(c, program.c_str(), nullptr) && AlgebraCompile(c, db)) {
        if (opt.has("--disassemble")) {
            std::string code(AlgebraDisassemble(c, nullptr, 0) + 1, '\0');
            AlgebraDisassemble(c, &code[0], code.size());
            std::fputs(code.c_str(), stdout);
            status = EXIT_CLEAN;
        } else {
            const bool clean = AlgebraRun(c, 0, db->obsCount - 1, db->obsCount, 0) == 1;
            std::FILE *out = opt.has("--out") ? std::fopen(opt.get("--out").c_str(), "w") : stdout;
            if (!out) {
                status = fail("cannot write " + opt.get("--out"));
            } else {
                const bool written = WriteDatabaseCsv(db, out) == 1;
                if (out != stdout) std::fclose(out);
                status = !written ? fail("cannot write the output") : clean ? EXIT_CLEAN : EXIT_FAULTS;
            }
        }
    }
    AlgebraFree(c);
    DbFree(db);
    return status;
}
