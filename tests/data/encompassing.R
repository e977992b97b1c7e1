# Reference values for the encompassing tests (tests/estimators/test_encompassing.cpp), run once:
#   Rscript tests/data/encompassing.R > tests/data/encompassing_r.csv
# Data: macrodata.csv rows 2..81 (1959Q2 to 1979Q1, 80 observations).
#   y = log(realcons[t]); model 1: 1, log(realdpi[t]), log(realcons[t-1]);
#   model 2: 1, log(realdpi[t]), log(realdpi[t-1]).
# Cox test (lmtest::coxtest, both directions) and the F test of each model against the nesting
# model (lmtest::encomptest).
suppressMessages(library(lmtest))
d <- read.csv("tests/data/macrodata.csv")
t <- 2:81
u <- data.frame(y = log(d$realcons[t]), dpi = log(d$realdpi[t]), cons1 = log(d$realcons[t - 1]),
                dpi1 = log(d$realdpi[t - 1]))
m1 <- lm(y ~ dpi + cons1, data = u)
m2 <- lm(y ~ dpi + dpi1, data = u)
cx <- coxtest(m1, m2)
en <- encomptest(m1, m2)
options(digits = 17)
cat("quantity,value\n")
cat(sprintf("cox_1_by_2_z,%.17g\ncox_1_by_2_p,%.17g\n", cx[1, "z value"], cx[1, "Pr(>|z|)"]))
cat(sprintf("cox_2_by_1_z,%.17g\ncox_2_by_1_p,%.17g\n", cx[2, "z value"], cx[2, "Pr(>|z|)"]))
cat(sprintf("f_1_vs_nesting,%.17g\nf_1_vs_nesting_p,%.17g\n", en[1, "F"], en[1, "Pr(>F)"]))
cat(sprintf("f_2_vs_nesting,%.17g\nf_2_vs_nesting_p,%.17g\n", en[2, "F"], en[2, "Pr(>F)"]))
me <- lm(y ~ dpi + cons1 + dpi1, data = u)
cat(sprintf("f_df1,%d\nf_df2,%d\n", abs(en[1, "Df"]), df.residual(me)))
