# Reference values for the count-data, instability and jackknife tests. Run once with
#   Rscript tests/data/exports_reference.R   (from the tree's root)
# R 4 with MASS, sandwich and strucchange as Debian packages them. Writes
# tests/data/exports_sample.csv (the data, rounded so that its decimal text is exact input) and
# tests/data/exports_reference.txt (one "name index value" line per number, 17 digits).
suppressMessages({ library(MASS); library(sandwich); library(strucchange) })
set.seed(20240607)
n <- 120
x1 <- round(rnorm(n), 4)
x2 <- round(runif(n), 4)
# Counts: negative binomial with mean exp(0.4 + 0.5 x1 - 0.6 x2) and size 1.5 (alpha = 2/3).
count <- rnbinom(n, mu = exp(0.4 + 0.5 * x1 - 0.6 * x2), size = 1.5)
# A linear response with heteroscedastic errors and a shift in the intercept after observation 80.
z <- round(1 + 0.5 * x1 - x2 + 0.6 * (seq_len(n) > 80) + rnorm(n) * (0.5 + abs(x1)), 4)
d <- data.frame(count = count, x1 = x1, x2 = x2, z = z)
write.csv(d, "tests/data/exports_sample.csv", row.names = FALSE, quote = FALSE)

out <- character()
put <- function(name, v) {
  v <- as.vector(v)
  out <<- c(out, sprintf("%s %d %.17g", name, seq_along(v) - 1L, v))
}

# Poisson and NB2 maximum likelihood: coefficients and the log-likelihood at them.
pois <- glm(count ~ x1 + x2, family = poisson, data = d, control = glm.control(epsilon = 1e-14, maxit = 100))
put("poisson_beta", coef(pois))
put("poisson_llf", as.numeric(logLik(pois)))
nb <- glm.nb(count ~ x1 + x2, data = d, control = glm.control(epsilon = 1e-14, maxit = 100))
put("nb2_beta", coef(nb))
put("nb2_theta", nb$theta) # alpha = 1 / theta
put("nb2_llf", as.numeric(logLik(nb)))

# Least squares of z on a constant, x1 and x2.
ols <- lm(z ~ x1 + x2, data = d)
X <- model.matrix(ols)
e <- residuals(ols)

# Jackknife covariance from n leave-one-out refits, and HC3 from sandwich.
loo <- t(sapply(seq_len(n), function(t) coef(lm(z ~ x1 + x2, data = d[-t, ]))))
dev <- sweep(loo, 2, colMeans(loo))
put("jackknife", (n - 1) / n * crossprod(dev))
put("hc3", vcovHC(ols, type = "HC3"))

# Parameter constancy: the score-CUSUM process of x_t e_t and e_t^2 - sigma^2 with its mean
# squared norm over t = 1..n, which is the joint statistic (1/n) sum_t S_t' V^-1 S_t.
put("nyblom_hansen_meanL2", sctest(z ~ x1 + x2, data = d, type = "Nyblom-Hansen")$statistic)
f <- cbind(X * e, e^2 - mean(e^2))
S <- apply(f, 2, cumsum)
put("hansen_individual", colSums(S^2) / (n * colSums(f^2)))

writeLines(c("# Written by tests/data/exports_reference.R (R with MASS, sandwich, strucchange).", out),
           "tests/data/exports_reference.txt")
