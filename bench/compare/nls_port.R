# Times R's nls(algorithm = "port") on the exp+sin data written by
# expsin_data: the same model, data and starting values as the VEXOR
# benchmarks.  Usage: Rscript nls_port.R N FILE
args <- commandArgs(trailingOnly = TRUE)
n <- as.integer(args[1])
con <- file(args[2], "rb")
v <- readBin(con, "double", n = 2 * n)
close(con)
d <- data.frame(x = v[seq(1, 2 * n, 2)], y = v[seq(2, 2 * n, 2)])
reps <- if (n <= 100000) 5 else 3
times <- numeric(reps)
for (k in seq_len(reps)) {
  t0 <- proc.time()[["elapsed"]]
  m <- nls(y ~ a * exp(-b * x) + c * sin(d * x), data = d,
           start = list(a = 1, b = 1, c = 1, d = 2), algorithm = "port")
  times[k] <- proc.time()[["elapsed"]] - t0
}
cat(sprintf("nls port  n = %7d  median %.4f s of %d  a = %.8g  d = %.8g\n",
            n, median(times), reps, coef(m)[["a"]], coef(m)[["d"]]))
