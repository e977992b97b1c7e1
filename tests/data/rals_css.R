# Reference values for tests/estimators/test_rals.cpp: conditional-sum-of-squares fit of
# y = b0 + b1 x2 + b2 x3 + u, u AR(2), on rals_ar2.csv (R's stats::arima, method "CSS",
# conditioning on the first two observations). Run once: Rscript rals_css.R > rals_css_reference.txt
d <- read.csv("rals_ar2.csv")
fit <- arima(d$y, order = c(2, 0, 0), xreg = cbind(x2 = d$x2, x3 = d$x3), method = "CSS",
             optim.control = list(reltol = 1e-14, maxit = 10000))
cat(sprintf("# %s\n", R.version.string))
cat(sprintf("%s %.17g\n", c("ar1", "ar2", "intercept", "x2", "x3"), coef(fit)), sep = "")
# sigma2 is the innovations' sum of squares over observations 3..120 divided by 118.
cat(sprintf("sigma2 %.17g\n", fit$sigma2))
