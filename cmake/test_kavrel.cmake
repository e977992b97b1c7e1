# End-to-end test of `kavrel algebra` as users run it: exit statuses 0 (clean), 1 (run-time
# faults, data still written), 2 (scan or parse error, missing file, bad option: nothing written)
# and the CSV it writes. cmake -DKAVREL=<binary> -DWORK=<scratch dir> -P test_kavrel.cmake
cmake_policy(VERSION 3.18)
file(MAKE_DIRECTORY ${WORK})
file(WRITE ${WORK}/data.txt "x y\n1 2\n3 .\n")
# Programs go through files: a CMake argument list would split at their semicolons.
file(WRITE ${WORK}/clean.alg "z = x + y; w = x[-1];\n")
file(WRITE ${WORK}/fault.alg "q = 1 / (x - x);\n")
file(WRITE ${WORK}/scan.alg "z = 1e5;\n")
file(WRITE ${WORK}/parse.alg "z = q;\n")
file(WRITE ${WORK}/freq.alg "z = FREQUENCY;\n")

function(run_case name expect_status)
  execute_process(COMMAND ${KAVREL} ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT status EQUAL expect_status)
    message(FATAL_ERROR "${name}: exit ${status}, expected ${expect_status}\n${out}\n${err}")
  endif()
  set(out "${out}" PARENT_SCOPE)
  set(err "${err}" PARENT_SCOPE)
endfunction()

function(expect_text name haystack needle)
  string(FIND "${haystack}" "${needle}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "${name}: '${needle}' not in:\n${haystack}")
  endif()
endfunction()

run_case("clean run" 0 algebra ${WORK}/clean.alg --data ${WORK}/data.txt)
expect_text("clean run" "${out}" "x,y,z,w\n1,2,3,.\n3,.,.,1\n")

file(REMOVE ${WORK}/faults.csv)
run_case("run-time fault" 1 algebra ${WORK}/fault.alg --data ${WORK}/data.txt --out ${WORK}/faults.csv)
expect_text("run-time fault" "${err}" "Divide by zero")
file(READ ${WORK}/faults.csv written)
expect_text("run-time fault" "${written}" "x,y,q\n1,2,inf\n")

file(REMOVE ${WORK}/never.csv)
run_case("scan error" 2 algebra ${WORK}/scan.alg --data ${WORK}/data.txt --out ${WORK}/never.csv)
expect_text("scan error" "${err}" "Scan error: 1e5 Unrecognized on line 1")
if(EXISTS ${WORK}/never.csv)
  message(FATAL_ERROR "scan error: an output file was written")
endif()

run_case("parse error" 2 algebra ${WORK}/parse.alg --data ${WORK}/data.txt)
expect_text("parse error" "${err}" "Parse error: q Undeclared identifier on line 1")
run_case("missing data file" 2 algebra -e "z = 1" --data ${WORK}/none.txt)
expect_text("missing data file" "${err}" "none.txt")
run_case("bad option" 2 algebra ${WORK}/freq.alg --data ${WORK}/data.txt --colour)
expect_text("bad option" "${err}" "unknown option --colour")
run_case("dated by options" 0 algebra ${WORK}/freq.alg --data ${WORK}/data.txt --start "1990(2)" --freq 4)
expect_text("dated by options" "${out}" "year,quarter,x,y,z\n1990,2,1,2,4\n1990,3,3,.,4\n")
run_case("help" 0 algebra --help)
expect_text("help" "${out}" "usage: kavrel algebra")
run_case("version" 0 --version)
expect_text("version" "${out}" "kavrel ")

# kavrel rls: the report, its JSON form, and one line naming what is wrong.
file(WRITE ${WORK}/reg.txt "y x\n3.1 1\n4.9 2\n7.2 3\n8.8 4\n11.1 5\n13.0 6\n14.9 7\n")
run_case("rls report" 0 rls --data ${WORK}/reg.txt --y y --x x)
expect_text("rls report" "${out}" "Recursive least squares of y")
expect_text("rls report" "${out}" "The estimation sample is 1 - 7 (7 observations)")
run_case("rls json" 0 rls --data ${WORK}/reg.txt --y y --x x --json)
expect_text("rls json" "${out}" "\"coefficients\": {\"Constant\": ")
expect_text("rls json" "${out}" "\"nobs\": 7")
run_case("rls unknown variable" 2 rls --data ${WORK}/reg.txt --y y --x z)
expect_text("rls unknown variable" "${err}" "kavrel rls: no variable z in the data")

# kavrel nls: a model with a known solution (y = 2 exp(0.5 x) exactly); models go through files.
file(WRITE ${WORK}/exp.txt "x y\n0 2\n1 3.2974425414\n2 5.4365636569\n3 8.9633781407\n4 14.7781121979\n")
file(WRITE ${WORK}/exp.alg "&0 = 1; &1 = 0.1; fitted = &0 * exp(&1 * x);\n")
file(WRITE ${WORK}/bad.alg "&0 = 1; fitted = &0 * q;\n")
run_case("nls" 0 nls ${WORK}/exp.alg --data ${WORK}/exp.txt --y y --json)
expect_text("nls" "${out}" "\"&0\": 1.99999")
expect_text("nls" "${out}" "\"&1\": 0.50000")
run_case("nls parse error" 2 nls ${WORK}/bad.alg --data ${WORK}/exp.txt --y y)
expect_text("nls parse error" "${err}" "q Undeclared identifier")

# kavrel probit and logit: a report with the fitted table; an outcome that is not a code.
file(WRITE ${WORK}/choice.txt
     "y x\n0 -1.2\n0 -0.8\n1 -0.9\n0 -0.1\n1 0.2\n0 0.4\n1 0.3\n1 1.1\n1 0.9\n0 1.4\n1 1.6\n1 2.0\n")
run_case("probit" 0 probit --data ${WORK}/choice.txt --y y --x x)
expect_text("probit" "${out}" "Probit of y")
expect_text("probit" "${out}" "Actual (rows) against predicted (columns)")
run_case("logit json" 0 logit --data ${WORK}/choice.txt --y y --x x --json)
expect_text("logit json" "${out}" "\"fitted_table\": [[")
run_case("probit bad outcome" 2 probit --data ${WORK}/choice.txt --y x --x y)
expect_text("probit bad outcome" "${err}" "must hold the codes 0, 1, ...")

# kavrel ms and garch: reports, and one line for what cannot be estimated.
run_case("ms too short" 2 ms --data ${WORK}/reg.txt --y y)
expect_text("ms too short" "${err}" "kavrel ms: bad --regimes or --ar, or too few observations (7)")
run_case("garch missing option" 2 garch --data ${WORK}/reg.txt)
expect_text("garch missing option" "${err}" "kavrel garch: --y is required")

# kavrel demo: the tour runs and names its folder.
run_case("demo" 0 demo --out ${WORK}/demo --examples ${SOURCE}/examples)
expect_text("demo" "${out}" "The reports and plots are in ${WORK}/demo")
if(NOT EXISTS ${WORK}/demo/garch-dem2gbp.txt)
  message(FATAL_ERROR "demo: no GARCH report written")
endif()

# kavrel var: the report with its forecasts.
run_case("var" 0 var --data ${SOURCE}/examples/macrodata.csv --y infl,tbilrate --lags 1 --horizon 3)
expect_text("var" "${out}" "VAR(1) of 2 variables by least squares")
expect_text("var" "${out}" "h=3  infl")

# kavrel count: Poisson on the stored sample; a count that is not one.
run_case("count" 0 count --data ${SOURCE}/tests/data/exports_sample.csv --y count --x x1,x2 --json)
expect_text("count" "${out}" "\"coefficients\": {\"Constant\": 0.0852")
run_case("count bad counts" 2 count --data ${SOURCE}/tests/data/exports_sample.csv --y x1 --x x2)
expect_text("count bad counts" "${err}" "must be whole numbers")

# A singular design and a GARCH fit end to end.
run_case("rls collinear" 2 rls --data ${WORK}/reg.txt --y y --x x,x)
expect_text("rls collinear" "${err}" "kavrel rls: the regressors are collinear: x is explained by the ones before it")
run_case("garch" 0 garch --data ${SOURCE}/examples/dem2gbp.csv --y dem2gbp --json)
expect_text("garch" "${out}" "\"alpha1\": 0.15313")
file(REMOVE ${WORK}/garch.csv)
run_case("garch out" 0 garch --data ${SOURCE}/examples/dem2gbp.csv --y dem2gbp --out ${WORK}/garch.csv)
file(READ ${WORK}/garch.csv written)
expect_text("garch out" "${written}" "period,variance,residual\n1,0.22284180")

# kavrel ms end to end: two regimes of the DEM/GBP returns' mean and variance.
run_case("ms" 0 ms --data ${SOURCE}/examples/dem2gbp.csv --y dem2gbp --json)
expect_text("ms" "${out}" "\"transition\": [[")
expect_text("ms" "${out}" "\"durations\": [")
