#!/usr/bin/python3
"""The vexor tool run as a user runs it: JSON and CSV results, predictions
with bands, data from CSV files and standard input, the warnings about a
program's traps, the manners of the command line, and the plots, rendered
with a real SVG renderer and checked pixel by pixel.

Environment: VEXOR (the tool), SRC (the source tree), WORK (a scratch
folder), ARTIFACTS (where the rendered plots of the examples are kept).
Run one class with: python3 tool_test.py Json
"""

import csv
import io
import json
import math
import os
import re
import shutil
import subprocess
import sys
import unittest
import xml.etree.ElementTree as ET

VEXOR = os.environ["VEXOR"]
SRC = os.environ["SRC"]
WORK = os.environ["WORK"]
ARTIFACTS = os.environ.get("ARTIFACTS", os.path.join(WORK, "artifacts"))
EXAMPLES = os.path.join(SRC, "examples")


def run(args, stdin=None, cwd=None):
    p = subprocess.run([VEXOR] + args, input=stdin, cwd=cwd or WORK, capture_output=True, text=True)
    return p.returncode, p.stdout, p.stderr


def write(name, text):
    path = os.path.join(WORK, name)
    with open(path, "w") as f:
        f.write(text)
    return path


def decay():
    """The decay example, and its model."""
    with open(os.path.join(EXAMPLES, "decay.vex")) as f:
        return f.read()


def decaymodel(b, t):
    a, k, bg = b
    return a * math.exp(-k * t) + bg


def decaygradient(b, t):
    a, k, _ = b
    e = math.exp(-k * t)
    return [e, -a * t * e, 1.0]


def tquantile(p, df):
    """Student's t quantile by mpmath (regularized incomplete beta)."""
    import mpmath
    mpmath.mp.dps = 30

    def cdf(t):
        x = df / (df + t * t)
        tail = mpmath.betainc(df / 2.0, 0.5, 0, x, regularized=True) / 2
        return 1 - tail if t >= 0 else tail

    return float(mpmath.findroot(lambda t: cdf(t) - p, 2.0))


class Json(unittest.TestCase):
    def setUp(self):
        os.makedirs(WORK, exist_ok=True)

    def test_document_of_a_fit(self):
        write("decaypar.vex", decay().replace("DATA;", 'POUTPUT "decaypar.par";\nDATA;'))
        rc, out, err = run(["run", "--format", "json", "--residuals", "decaypar.vex"])
        self.assertEqual(rc, 0, err)
        doc = json.loads(out)  # the whole of standard output is the document
        self.assertEqual(doc["vexor"], "5.4")
        self.assertEqual(doc["title"], "Decay of a counting sample")
        self.assertEqual(doc["result"]["code"], 4)
        self.assertTrue(doc["result"]["converged"])
        self.assertEqual(doc["result"]["stop_reason"], "Relative function convergence.")
        self.assertGreater(doc["result"]["evaluations"], doc["result"]["iterations"])
        self.assertEqual(doc["observations"], 12)
        self.assertEqual(doc["dependent_variable"], "counts")
        self.assertEqual([p["name"] for p in doc["parameters"]], ["a", "k", "bg"])
        # Full precision: the estimates read back to the parameter file's
        # 18 digits exactly.
        with open(os.path.join(WORK, "decaypar.par")) as f:
            par = [float(line) for line in f]
        self.assertEqual([p["estimate"] for p in doc["parameters"]], par)
        # The listing went to standard error; its parameter table and
        # intervals agree with the document to the digits it prints.
        self.assertIn("   ----  Final Results  ----", err)
        for p in doc["parameters"]:
            row = "%10s  %13.6G  %16.9G  %14.7G" % (p["name"], p["start"], p["estimate"], p["std_error"])
            self.assertIn(row, err)
            ci = "%10s  %16.9G  %16.9G  %16.9G" % (p["name"], p["lower"], p["estimate"], p["upper"])
            self.assertIn(ci, err)
        st = doc["statistics"]
        self.assertIn("Final sum of squared deviations = %14.7E" % st["sum_of_squares"], err)
        self.assertIn("Standard error of estimate = %G" % st["std_error_of_estimate"], err)
        self.assertIn("Durbin-Watson test for autocorrelation = %.3f" % st["durbin_watson"], err)
        self.assertAlmostEqual(st["std_error_of_estimate"] ** 2, st["sum_of_squares"] / 9, delta=1e-9)
        anova = doc["anova"]
        self.assertEqual((anova["regression"]["df"], anova["error"]["df"], anova["total"]["df"]), (2, 9, 11))
        self.assertIn("Regression     2  %14.7G  %14.7G  %9.2f" % (
            anova["regression"]["sum_of_squares"], anova["regression"]["mean_square"], anova["f"]), err)
        self.assertEqual([v["name"] for v in doc["variables"]], ["t", "counts"])
        cov = doc["covariance"]
        self.assertEqual(cov["names"], ["a", "k", "bg"])
        for i in range(3):
            self.assertAlmostEqual(cov["matrix"][i][i], doc["parameters"][i]["std_error"] ** 2,
                                   delta=1e-12 * cov["matrix"][i][i])
        self.assertIsNone(doc["correlation"])
        self.assertAlmostEqual(doc["confidence_level"], 0.95, places=12)
        res = doc["residuals"]
        self.assertEqual(len(res["observed"]), 12)
        for o, p, r in zip(res["observed"], res["predicted"], res["residual"]):
            self.assertEqual(r, o - p)
        b = [p["estimate"] for p in doc["parameters"]]
        self.assertAlmostEqual(res["predicted"][0], decaymodel(b, 0.0), delta=1e-9)

    def test_listing_to_a_file(self):
        write("decay.vex", decay())
        path = os.path.join(WORK, "decay.lst")
        rc, out, err = run(["run", "--format", "json", "--listing", path, "decay.vex"])
        self.assertEqual(rc, 0, err)
        json.loads(out)
        self.assertNotIn("Final Results", err)
        with open(path) as f:
            self.assertIn("   ----  Final Results  ----", f.read())

    def test_correlation_and_minimisation(self):
        shutil.copy(os.path.join(EXAMPLES, "cooling.dat"), WORK)
        shutil.copy(os.path.join(EXAMPLES, "cooling.vex"), WORK)
        rc, out, err = run(["run", "--format", "json", "cooling.vex"])
        self.assertEqual(rc, 0, err)
        corr = json.loads(out)["correlation"]
        self.assertEqual(corr["names"], ["minutes", "temp", "ambient"])
        self.assertEqual(corr["matrix"][0][0], 1.0)
        self.assertIn("   minutes:     1.000", err)
        rc, out, err = run(["run", "--format", "json", os.path.join(EXAMPLES, "minimize.vex")])
        self.assertEqual(rc, 0, err)
        doc = json.loads(out)
        self.assertTrue(doc["minimization"])
        self.assertIsNone(doc["dependent_variable"])
        self.assertAlmostEqual(doc["statistics"]["function_value"], 48.0, delta=1e-9)
        self.assertIn("Final function value = %14.7E" % doc["statistics"]["function_value"], err)
        self.assertIsNone(doc["anova"])
        self.assertIsNone(doc["parameters"][0]["std_error"])

    def test_not_converged_and_not_compiled(self):
        write("limit.vex", decay().replace("COVARIANCE;", "COVARIANCE;\nITERATIONS 2;"))
        rc, out, err = run(["run", "--format", "json", "limit.vex"])
        self.assertEqual(rc, 1, err)
        doc = json.loads(out)
        self.assertEqual(doc["result"]["code"], -1)
        self.assertFalse(doc["result"]["converged"])
        write("bad.vex", "VARIABLES x, y;\nFUNCTION y = q;\n")
        rc, out, err = run(["run", "--format", "json", "bad.vex"])
        self.assertEqual(rc, 2)
        self.assertEqual(out, "")
        self.assertIn("Error: Unrecognized word or variable: q", err)
        write("few.vex", "VARIABLES x, y;\nPARAMETERS a = 1, b = 2;\nFUNCTION y = a*x + b;\nDATA;\n1 2\n")
        rc, out, err = run(["run", "--format", "json", "few.vex"])
        self.assertEqual(rc, 1)
        doc = json.loads(out)
        self.assertEqual(doc["result"]["code"], -7)
        self.assertIsNone(doc["statistics"])
        self.assertEqual([p["start"] for p in doc["parameters"]], [1, 2])

    def test_csv_parameter_table(self):
        write("decay.vex", decay())
        rc, out, err = run(["run", "--format", "json", "decay.vex"])
        doc = json.loads(out)
        rc, out, err = run(["run", "--format", "csv", "decay.vex"])
        self.assertEqual(rc, 0, err)
        rows = list(csv.DictReader(io.StringIO(out)))
        self.assertEqual(list(rows[0].keys()),
                         ["name", "start", "estimate", "std_error", "t", "prob_t", "lower", "upper"])
        for row, p in zip(rows, doc["parameters"]):
            self.assertEqual(row["name"], p["name"])
            for k in ["start", "estimate", "std_error", "t", "prob_t", "lower", "upper"]:
                self.assertEqual(float(row[k]), p[k])
        # Without intervals the limits are empty fields.
        write("noci.vex", decay().replace("CONFIDENCE 95;", ""))
        rc, out, err = run(["run", "--format", "csv", "noci.vex"])
        self.assertEqual(list(csv.DictReader(io.StringIO(out)))[0]["lower"], "")


class Predict(unittest.TestCase):
    def setUp(self):
        os.makedirs(WORK, exist_ok=True)
        write("decay.vex", decay())
        rc, out, err = run(["run", "--format", "json", "decay.vex"])
        self.doc = json.loads(out)
        self.b = [p["estimate"] for p in self.doc["parameters"]]
        self.cov = self.doc["covariance"]["matrix"]

    def band(self, t, kind):
        """The delta method, computed here: the analytic gradient, the
        covariance of the estimates, mpmath's t quantile."""
        g = decaygradient(self.b, t)
        var = sum(g[i] * self.cov[i][j] * g[j] for i in range(3) for j in range(3))
        if kind == "prediction":
            var += self.doc["statistics"]["std_error_of_estimate"] ** 2
        q = tquantile(0.975, 12 - 3)
        y = decaymodel(self.b, t)
        return y, y - q * math.sqrt(var), y + q * math.sqrt(var)

    def check(self, out, ts, kind):
        rows = list(csv.reader(io.StringIO(out)))
        self.assertEqual(rows[0], ["t", "predicted", "lower", "upper"])
        self.assertEqual(len(rows) - 1, len(ts))
        for row, t in zip(rows[1:], ts):
            self.assertEqual(float(row[0]), t)
            y, lo, hi = self.band(t, kind)
            self.assertAlmostEqual(float(row[1]), y, delta=1e-10 * abs(y))
            half = (hi - lo) / 2
            self.assertAlmostEqual(float(row[2]), lo, delta=1e-7 * half)
            self.assertAlmostEqual(float(row[3]), hi, delta=1e-7 * half)

    def test_confidence_band_from_a_file(self):
        write("at.csv", "t\n0\n1.5\n6\n20\n")
        rc, out, err = run(["predict", "--at", "at.csv", "--band", "confidence", "decay.vex"])
        self.assertEqual(rc, 0, err)
        self.check(out, [0, 1.5, 6, 20], "confidence")

    def test_prediction_band_from_standard_input(self):
        rc, out, err = run(["predict", "--at", "-", "--band", "prediction", "decay.vex"], stdin="0.25\n3\n")
        self.assertEqual(rc, 0, err)
        self.check(out, [0.25, 3], "prediction")

    def test_the_observations_by_default(self):
        rc, out, err = run(["run", "--format", "json", "--residuals", "decay.vex"])
        predicted = json.loads(out)["residuals"]["predicted"]
        rc, out, err = run(["predict", "decay.vex"])
        self.assertEqual(rc, 0, err)
        rows = list(csv.reader(io.StringIO(out)))
        self.assertEqual(rows[0], ["t", "predicted"])
        self.assertEqual([float(r[1]) for r in rows[1:]], predicted)

    def test_refusals(self):
        rc, out, err = run(["predict", "--band", "confidence", os.path.join(EXAMPLES, "michaelis.vex")])
        self.assertEqual(rc, 3)
        self.assertIn("--band needs the covariance matrix of the estimates", err)
        rc, out, err = run(["predict", os.path.join(EXAMPLES, "minimize.vex")])
        self.assertEqual(rc, 3)
        self.assertIn("predict needs a program with VARIABLES", err)
        write("wrong.csv", "time\n1\n")
        rc, out, err = run(["predict", "--at", "wrong.csv", "decay.vex"])
        self.assertEqual(rc, 3)
        self.assertIn("wrong.csv: no column named t (the header has: time)", err)
        rc, out, err = run(["predict", "--band", "both", "decay.vex"])
        self.assertEqual(rc, 3)
        self.assertIn("--band takes confidence or prediction, not both", err)

    def test_a_point_where_the_model_fails(self):
        write("log.vex", "VARIABLES x, y;\nPARAMETERS a = 1, b = 1;\nFUNCTION y = a + b * ln(x);\n"
                         "DATA;\n1 1.1\n2 1.6\n3 2.2\n4 2.4\n")
        write("at.csv", "x\n2\n-1\n")
        rc, out, err = run(["predict", "--at", "at.csv", "log.vex"])
        self.assertEqual(rc, 0, err)
        rows = list(csv.reader(io.StringIO(out)))
        self.assertEqual(rows[2], ["-1", ""])
        self.assertIn("at.csv:3: warning: no value at this point: Error executing line 3", err)


class Data(unittest.TestCase):
    PROGRAM = "VARIABLES x, y;\nPARAMETERS a = 1, b = 0.5;\nFUNCTION y = a * exp(-b * x);\n"
    ROWS = [(1, 2.5), (2, 1.5), (3, 0.9), (4, 0.55), (5, 0.31)]

    def setUp(self):
        os.makedirs(WORK, exist_ok=True)
        write("nodata.vex", self.PROGRAM)
        inline = self.PROGRAM + "DATA;\n" + "".join("%g %g\n" % r for r in self.ROWS)
        write("inline.vex", inline)
        rc, out, err = run(["run", "--format", "csv", "inline.vex"])
        self.assertEqual(rc, 0, err)
        self.expected = out

    def test_header_in_any_order_with_an_extra_column(self):
        write("d.csv", "note,y,X\n" + "".join("a,%g,%g\n" % (y, x) for x, y in self.ROWS).replace("a,", "7,"))
        rc, out, err = run(["run", "--format", "csv", "--data", "d.csv", "nodata.vex"])
        self.assertEqual(rc, 0, err)
        self.assertEqual(out, self.expected)

    def test_no_header_tabs_and_standard_input(self):
        text = "".join("%g\t%g\n" % r for r in self.ROWS)
        rc, out, err = run(["run", "--format", "csv", "--data", "-", "nodata.vex"], stdin=text)
        self.assertEqual(rc, 0, err)
        self.assertEqual(out, self.expected)

    def test_program_from_standard_input(self):
        write("d.tsv", "x\ty\n" + "".join("%g\t%g\n" % r for r in self.ROWS))
        rc, out, err = run(["run", "--format", "csv", "--data", "d.tsv", "-"], stdin=self.PROGRAM)
        self.assertEqual(rc, 0, err)
        self.assertEqual(out, self.expected)
        rc, out, err = run(["check", "-"], stdin="VARIABLES x, y;\nFUNCTION y = q;\n")
        self.assertEqual(rc, 2)
        self.assertIn("Error: Unrecognized word or variable: q", out)

    def test_replaces_the_programs_data(self):
        write("other.vex", self.PROGRAM + "DATA;\n1 9\n2 9\n3 9\n")
        write("d.csv", "x,y\n" + "".join("%g,%g\n" % r for r in self.ROWS))
        rc, out, err = run(["run", "--format", "csv", "--data", "d.csv", "other.vex"])
        self.assertEqual(out, self.expected)

    def test_refusals(self):
        write("d.csv", "x,z\n1,2\n")
        rc, out, err = run(["run", "--data", "d.csv", "nodata.vex"])
        self.assertEqual(rc, 3)
        self.assertIn("vexor: d.csv: no column named y (the header has: x, z)", err)
        write("d.csv", "x;y\n1,5;2,5\n")
        rc, out, err = run(["run", "--data", "d.csv", "nodata.vex"])
        self.assertEqual(rc, 3)
        self.assertIn("d.csv:2: '1,5' is not a number: numbers take a decimal point, not a comma", err)
        write("d.csv", "x,y\n1,\n")
        rc, out, err = run(["run", "--data", "d.csv", "nodata.vex"])
        self.assertEqual(rc, 3)
        self.assertIn("d.csv:2: an empty value in column 2 is not a number", err)
        write("d.csv", "x,y\n1,2\n3\n")
        rc, out, err = run(["run", "--data", "d.csv", "nodata.vex"])
        self.assertEqual(rc, 3)
        self.assertIn("d.csv:3: 1 values where the header has 2", err)
        rc, out, err = run(["run", "--data", "-", "-"], stdin="")
        self.assertEqual(rc, 3)
        self.assertIn("only one of PROGRAM, --data and --at can be - (standard input)", err)
        rc, out, err = run(["run", "--data", "missing.csv", "nodata.vex"])
        self.assertEqual(rc, 3)
        self.assertIn("vexor: missing.csv: cannot open", err)


class Warnings(unittest.TestCase):
    HEAD = "VARIABLES x, y;\nPARAMETERS a = 1;\n"

    def setUp(self):
        os.makedirs(WORK, exist_ok=True)

    def warned(self, name, text, expected, rc=0):
        write(name, text)
        code, out, err = run(["check", name])
        self.assertEqual(code, rc, out + err)
        self.assertIn(expected, err)
        return err

    def test_more_values_than_variables(self):
        self.warned("extra.vex", self.HEAD + "FUNCTION y = a*x;\nDATA;\n1 2 3\n2 4\n3 6 9\n",
                    "extra.vex:5: warning: the data record has more values than the 2 VARIABLES; the extra "
                    "values are ignored: 1 2 3 (2 records in all)")

    def test_decimal_comma(self):
        self.warned("comma.vex", self.HEAD + "FUNCTION y = a*x;\nDATA;\n1 2,5\n2 4\n",
                    "comma.vex:5: warning: '2,5' reads as two values (a comma separates values; numbers "
                    "take a decimal point): 1 2,5")

    def test_last_line_without_a_line_feed(self):
        self.warned("nolf.vex", self.HEAD + "FUNCTION y = a*x;\nDATA;\n1 2\n2 4\n3 6",
                    "nolf.vex:7: warning: the last line has no line feed, so it is never read: 3 6")
        self.warned("nolf2.vex", "VARIABLES x, y;\nPARAMETERS a = 1;\nFUNCTION y = a*x",
                    "nolf2.vex:3: warning: the last line has no line feed, so it is never read: "
                    "FUNCTION y = a*x", rc=2)

    def test_semicolon_in_a_comment(self):
        self.warned("semi.vex", "VARIABLES x, y; // the data; and more\nPARAMETERS a = 1;\n"
                                "FUNCTION y = a*x;\nDATA;\n1 2\n",
                    "semi.vex:1: warning: a ';' inside a // comment ends the comment: the rest of the line "
                    "is read as program text: and more (listing line 3)", rc=2)

    def test_minus_and_power(self):
        err = self.warned("neg.vex", self.HEAD + "DOUBLE q;\nq = -a^2 + (-a)^2 + 2^-a - -(a)^2;\n"
                                     "FUNCTION y = a*x;\nDATA;\n1 2\n2 4\n",
                          "neg.vex:4: warning: a minus sign binds tighter than ^: -x^2 is (-x)^2 here")
        self.assertEqual(err.count("binds tighter"), 2, err)  # -a^2 and -(a)^2, not (-a)^2 or 2^-a

    def test_long_line(self):
        # The cut takes the ';' with it: the compilation fails, and the warning
        # says why.
        self.warned("long.vex", self.HEAD + "FUNCTION y = a*x" + " " * 20010 + "+ 0;\nDATA;\n1 2\n2 4\n",
                    "long.vex:3: warning: the line is longer than 20000 characters; the rest of it is not read",
                    rc=2)

    def test_header_line_in_a_data_file(self):
        write("hdr.dat", "x y\n1 2\n2 4\n")
        self.warned("hdr.vex", self.HEAD + 'FUNCTION y = a*x;\nDATA "hdr.dat";\n',
                    "hdr.dat:1: warning: the first data record looks like a header line: x y; name the "
                    "columns with --data FILE, or skip the line with DATASKIP 1", rc=2)

    def test_not_finite_data(self):
        self.warned("inf.vex", self.HEAD + "FUNCTION y = a*x;\nDATA;\n1 2\n1e400 4\n",
                    "inf.vex: warning: data record 2, variable x: the value is infinite")

    def test_convergence(self):
        write("sing.vex", "VARIABLES x, y;\nPARAMETERS a = 1, b = 2;\nFUNCTION y = a * b * x;\n"
                          "DATA;\n1 2.1\n2 3.9\n3 6.2\n4 7.8\n")
        rc, out, err = run(["run", "sing.vex"])
        self.assertIn("Stopped due to: Singular convergence.", out)
        self.assertIn("sing.vex: warning: singular convergence: the estimates may not be unique", err)

    def test_strict(self):
        write("extra.vex", self.HEAD + "FUNCTION y = a*x;\nDATA;\n1 2 3\n2 4\n")
        rc, out, err = run(["run", "--strict", "extra.vex"])
        self.assertEqual(rc, 3)
        self.assertIn("extra.vex:5: error: the data record has more values", err)
        self.assertIn("vexor: extra.vex: 1 warning under --strict; nothing was run", err)
        self.assertEqual(out, "")
        rc, out, err = run(["check", "--strict", "extra.vex"])
        self.assertEqual(rc, 3)

    def test_none_on_the_examples(self):
        for name in sorted(os.listdir(EXAMPLES)):
            if not name.endswith(".vex"):
                continue
            rc, out, err = run(["check", "--strict", name], cwd=EXAMPLES)
            self.assertEqual((rc, err), (0, ""), name)


class Manners(unittest.TestCase):
    def setUp(self):
        os.makedirs(WORK, exist_ok=True)
        write("decay.vex", decay())

    def test_the_wrong_word_and_one_line_of_usage(self):
        cases = [
            (["run", "--frobnicate", "decay.vex"], "vexor: run: unknown option --frobnicate"),
            (["predict", "--at"], "vexor: predict: --at needs a value"),
            (["check", "--dump=yes", "decay.vex"], "vexor: check: --dump takes no value"),
            (["run", "--time-limit", "soon", "decay.vex"],
             "vexor: run: --time-limit needs a number of seconds above 0, not soon"),
            (["run", "a.vex", "b.vex"], "vexor: run: one program file only (a.vex and b.vex)"),
            (["fit", "decay.vex"], "vexor: unknown command fit"),
            (["--frob"], "vexor: unknown option --frob"),
            (["run", "--residuals", "decay.vex"], "vexor: run: --residuals goes with --format json"),
            (["run", "--threads", "0", "decay.vex"],
             "vexor: run: --threads needs a whole number from 1 to 64, not 0"),
            (["predict", "--threads=2x", "decay.vex"],
             "vexor: predict: --threads needs a whole number from 1 to 64, not 2x"),
            (["run", "--vector-math=yes", "decay.vex"], "vexor: run: --vector-math takes no value"),
            (["run", "--derivatives", "central", "decay.vex"],
             "vexor: run: --derivatives takes exact or forward, not central"),
            (["predict", "--derivatives=", "decay.vex"], "vexor: predict: --derivatives needs a value"),
            (["run", "--bounded-errors=yes", "decay.vex"], "vexor: run: --bounded-errors takes no value"),
        ]
        for args, message in cases:
            rc, out, err = run(args)
            self.assertEqual(rc, 3, args)
            lines = err.splitlines()
            self.assertEqual(len(lines), 2, err)
            self.assertEqual(lines[0], message)
            self.assertTrue(lines[1].startswith("usage: vexor "), err)

    def test_help_and_version(self):
        rc, out, err = run(["--version"])
        self.assertEqual((rc, out), (0, "VEXOR version 5.4\n"))
        rc, out, err = run(["--help"])
        self.assertTrue(out.startswith("Usage: vexor run"))
        for status in ["0    success", "1    the fit did not converge", "2    the program did not compile",
                       "3    the command line or an input was refused", "4    the listing or an output"]:
            self.assertIn(status, out)
        for command in ["run", "predict", "check"]:
            rc, a, err = run([command, "--help"])
            rc2, b, err = run(["help", command])
            self.assertEqual((rc, rc2), (0, 0))
            self.assertEqual(a, b)
            self.assertTrue(a.startswith("Usage: vexor %s [options] PROGRAM" % command))

    def test_every_thread_count_gives_the_same_listing(self):
        rows = "".join("%.4f %.6f\n" % (i / 400.0, 3 * math.exp(-0.4 * i / 400.0) + 1.5 * math.sin(2.2 * i / 400.0)
                                         + 0.01 * math.sin(91.0 * i)) for i in range(6000))
        write("expsin.vex", "VARIABLES x, y;\nPARAMETERS a = 1, b = 1, c = 1, d = 2;\n"
                            "FUNCTION y = a * exp(-b * x) + c * sin(d * x);\nDATA;\n" + rows)
        listings = []
        for threads in ["1", "2", "7"]:
            rc, out, err = run(["run", "--threads", threads, "expsin.vex"])
            self.assertEqual(rc, 0, err)
            listings.append(re.sub(r"Analysis completed .*", "", out))
        self.assertEqual(listings[0], listings[1])
        self.assertEqual(listings[0], listings[2])
        rc, out, err = run(["run", "--vector-math", "expsin.vex"])
        self.assertEqual(rc, 0, err)
        self.assertIn("Final Results", out)

    def test_exact_derivatives(self):
        # Both spellings; the fit converges to the forward-difference fit's
        # minimum in fewer evaluations; the default run is unchanged.
        quiet = ["--listing", os.devnull]
        rc, fd, err = run(["run", "--format", "json"] + quiet + ["decay.vex"])
        self.assertEqual((rc, err), (0, ""))
        rc2, fd2, err = run(["run", "--format", "json", "--derivatives", "forward"] + quiet + ["decay.vex"])
        # The same document but for the clock.
        clock = re.compile(r'"runtime_seconds": [0-9.e+-]+')
        self.assertEqual((rc2, clock.sub("", fd2)), (0, clock.sub("", fd)))
        fd = json.loads(fd)
        for spelling in (["--derivatives", "exact"], ["--derivatives=exact"]):
            rc, out, err = run(["run", "--format", "json"] + quiet + spelling + ["decay.vex"])
            self.assertEqual((rc, err), (0, ""))
            ex = json.loads(out)
            self.assertLess(ex["result"]["evaluations"], fd["result"]["evaluations"])
            for a, b in zip(ex["parameters"], fd["parameters"]):
                self.assertAlmostEqual(a["estimate"], b["estimate"], delta=1e-4 * b["std_error"])
                self.assertAlmostEqual(a["std_error"], b["std_error"], delta=1e-4 * b["std_error"])
        # A column without a derivative rule is differenced, and a note says
        # which and why (a note is no warning: --strict lets it pass).
        write("ellip.vex", "VARIABLES x, y;\nPARAMETERS a = 0.5, b = 1;\nFUNCTION y = EI1(a, x) * b;\n"
                           "DATA;\n0.1 0.2\n0.5 0.6\n1 1.3\n1.2 1.7\n")
        rc, out, err = run(["run", "--strict", "--derivatives", "exact"] + quiet + ["ellip.vex"])
        self.assertEqual(rc, 0)
        self.assertEqual(err, "ellip.vex: note: exact derivatives: forward differences for the columns of "
                              "a: EI1 has no derivative rule for its argument 1\n")

    def test_bounded_errors(self):
        write("held.vex", decay().replace("DATA;", "CONSTRAIN k = 0, 0.3;\nDATA;", 1))
        rc, out, err = run(["run", "held.vex"])
        self.assertEqual(rc, 0, err)
        self.assertIn("Try removing constraints on parameters.\n", out)
        self.assertNotIn("held at a bound", out)
        rc, out, err = run(["run", "--bounded-errors", "held.vex"])
        self.assertEqual(rc, 0, err)
        self.assertIn("Standard errors are those of the parameters not held at a bound; held: k.\n", out)
        self.assertRegex(out, r"\n +k +0\.3 +0\.3  held at a bound: no standard error\n")
        self.assertRegex(out, r"\n +a +\S+ +\S+ +[0-9.]+ ")
        # JSON: no standard error (null) for the parameter held.
        rc, out, err = run(["run", "--format", "json", "--listing", os.devnull, "--bounded-errors", "held.vex"])
        self.assertEqual(rc, 0, err)
        params = {p["name"]: p for p in json.loads(out)["parameters"]}
        self.assertIsNone(params["k"]["std_error"])
        self.assertIsNone(params["k"]["t"])
        self.assertGreater(params["a"]["std_error"], 0)

    def test_listing_that_cannot_be_written(self):
        rc, out, err = run(["run", "--listing", os.path.join(WORK, "no", "such", "dir", "x.lst"), "decay.vex"])
        self.assertEqual(rc, 4)
        self.assertIn("cannot write the listing to", err)

    def test_listing_file_written_whole_or_not_at_all(self):
        path = os.path.join(WORK, "whole.lst")
        with open(path, "w") as f:
            f.write("before\n")
        os.chmod(WORK, 0o755)
        rc, out, err = run(["run", "--listing", path, "decay.vex"])
        self.assertEqual(rc, 0, err)
        with open(path) as f:
            self.assertIn("Final Results", f.read())
        self.assertEqual([n for n in os.listdir(WORK) if ".tmp" in n], [])

    def test_output_file_that_fails_is_removed(self):
        # A file size limit of 1 KiB: the output file cannot be written whole.
        rows = "".join("%d %g\n" % (i, 2.0 * i + 0.1 * (i % 3)) for i in range(1, 200))
        write("big.vex", 'VARIABLES x, y;\nPARAMETERS a = 1;\nOUTPUT "big.out" x, y, $PREDICTED;\n'
                         "FUNCTION y = a*x;\nDATA;\n" + rows)
        p = subprocess.run(["bash", "-c", "ulimit -f 1; trap '' XFSZ; exec \"$0\" run big.vex", VEXOR],
                           cwd=WORK, capture_output=True, text=True)
        self.assertEqual(p.returncode, 4, p.stderr)
        self.assertIn("big.out could not be written; the partial file was removed", p.stderr)
        self.assertFalse(os.path.exists(os.path.join(WORK, "big.out")))


class Plots(unittest.TestCase):
    BLUE = (0x1F, 0x77, 0xB4)
    RED = (0xD6, 0x27, 0x28)

    def setUp(self):
        os.makedirs(WORK, exist_ok=True)
        os.makedirs(ARTIFACTS, exist_ok=True)
        self.renderer = shutil.which("rsvg-convert")
        self.assertIsNotNone(self.renderer, "rsvg-convert (librsvg2-bin) renders the plots in this test")

    def render(self, svgpath):
        png = svgpath[:-4] + ".png"
        subprocess.run([self.renderer, svgpath, "-o", png], check=True)
        from PIL import Image
        return Image.open(png).convert("RGB"), png

    @staticmethod
    def mapping(svgpath):
        g = ET.parse(svgpath).getroot().find(".//{http://www.w3.org/2000/svg}g[@id='plot-area']")
        a = {k[5:]: float(v) for k, v in g.attrib.items() if k.startswith("data-")}

        def px(x, y):
            return (a["left"] + (x - a["xmin"]) / (a["xmax"] - a["xmin"]) * a["width"],
                    a["top"] + (a["ymax"] - y) / (a["ymax"] - a["ymin"]) * a["height"])
        return px

    def near(self, image, point, colour, radius=2):
        """Whether a pixel within radius of the point has the colour."""
        x0, y0 = int(round(point[0])), int(round(point[1]))
        for dx in range(-radius, radius + 1):
            for dy in range(-radius, radius + 1):
                c = image.getpixel((x0 + dx, y0 + dy))
                if all(abs(c[i] - colour[i]) <= 40 for i in range(3)):
                    return True
        return False

    def test_fit_and_residuals_of_an_example(self):
        write("decay.vex", decay())
        out = os.path.join(WORK, "plots")
        shutil.rmtree(out, ignore_errors=True)
        rc, doc, err = run(["run", "--format", "json", "--residuals", "--plots", out, "decay.vex"])
        self.assertEqual(rc, 0, err)
        doc = json.loads(doc)
        self.assertEqual(sorted(os.listdir(out)), ["decay-fit.svg", "decay-residuals.svg"])
        fit = os.path.join(out, "decay-fit.svg")
        image, png = self.render(fit)
        shutil.copy(png, ARTIFACTS)
        px = self.mapping(fit)
        b = [p["estimate"] for p in doc["parameters"]]
        t = [0, 0.5, 1, 1.5, 2, 3, 4, 5, 6, 8, 10, 12]
        for ti, yi in zip(t, doc["residuals"]["observed"]):
            self.assertTrue(self.near(image, px(ti, yi), self.BLUE), (ti, yi))
        # The curve passes through the model's values between the points.
        for ti in [0.25, 2.5, 7, 11]:
            self.assertTrue(self.near(image, px(ti, decaymodel(b, ti)), self.RED, 3), ti)
        # And nowhere near a point where the curve is not.
        self.assertFalse(self.near(image, px(11, decaymodel(b, 11) + 300), self.RED, 3))
        res = os.path.join(out, "decay-residuals.svg")
        image, png = self.render(res)
        shutil.copy(png, ARTIFACTS)
        px = self.mapping(res)
        for p, r in zip(doc["residuals"]["predicted"], doc["residuals"]["residual"]):
            self.assertTrue(self.near(image, px(p, r), self.BLUE), (p, r))

    def test_every_kind_of_request(self):
        program = ('TITLE "Kinds";\nVARIABLES x, y;\nPARAMETERS a = 1, b = 1;\nDOUBLE w;\nw = x * x;\n'
                   'PLOT DOMAIN = 0, 10, TITLE = "Line", XLABEL = "Abscissa";\nRPLOT;\nNPLOT;\n'
                   "SPLOT XVAR = w, YVAR = y, CONNECT, NOMARK;\nFUNCTION y = a + b * x;\nDATA;\n"
                   "1 3.1\n2 4.9\n3 7.2\n4 8.8\n5 11.1\n")
        write("kinds.vex", program)
        out = os.path.join(WORK, "kinds")
        shutil.rmtree(out, ignore_errors=True)
        rc, doc, err = run(["run", "--format", "json", "--residuals", "--plots", out, "kinds.vex"])
        self.assertEqual(rc, 0, err)
        doc = json.loads(doc)
        self.assertEqual(sorted(os.listdir(out)), ["kinds-1-plot.svg", "kinds-2-rplot.svg",
                                                   "kinds-3-nplot.svg", "kinds-4-splot.svg"])
        a, b = [p["estimate"] for p in doc["parameters"]]
        plot = os.path.join(out, "kinds-1-plot.svg")
        text = open(plot).read()
        self.assertIn(">Line</text>", text)
        self.assertIn(">Abscissa</text>", text)
        image, png = self.render(plot)
        px = self.mapping(plot)
        for x in [0.5, 7, 9.5]:  # the curve covers the DOMAIN, beyond the data
            self.assertTrue(self.near(image, px(x, a + b * x), self.RED, 3), x)
        self.assertIn(">Plot of Residuals</text>", open(os.path.join(out, "kinds-2-rplot.svg")).read())
        nplot = os.path.join(out, "kinds-3-nplot.svg")
        self.assertIn(">Normal probability plot of residuals</text>", open(nplot).read())
        self.assertNotIn('stroke="#dddddd"', open(nplot).read())  # NPLOT: no grid unless asked
        # NPLOT: the i-th smallest residual against s z_i (Blom).
        from statistics import NormalDist
        r = sorted(doc["residuals"]["residual"])
        s = doc["statistics"]["std_error_of_estimate"]
        image, png = self.render(nplot)
        px = self.mapping(nplot)
        for i, ri in enumerate(r):
            z = s * NormalDist().inv_cdf((i + 1 - 0.375) / (len(r) + 0.25))
            self.assertTrue(self.near(image, px(z, ri), self.BLUE), (z, ri))
        splot = os.path.join(out, "kinds-4-splot.svg")
        text = open(splot).read()
        self.assertNotIn("<circle", text)    # NOMARK
        self.assertIn('class="line"', text)  # CONNECT
        image, png = self.render(splot)
        px = self.mapping(splot)
        for x, y in [(1, 3.1), (9, 7.2), (25, 11.1)]:
            self.assertTrue(self.near(image, px(x, y), self.BLUE, 3), (x, y))


if __name__ == "__main__":
    unittest.main()
