// A JScript host of the VEXOR automation component (run by cscript after
// the component has been registered):
//
//   cscript //nologo analysis.js PROGRAM_FILE
//
// Runs whole analyses through VEXORCOM.VEXOR: a program with DATA, the same
// model with the observations supplied cell by cell, and the program file
// given on the command line (CompileFile).  Reads every kind of result,
// passing arguments as literals and as variables (JScript passes whole
// numbers as 32-bit integers, others as doubles, text as strings).  Prints
// one line per failed check and a summary; the exit status is 0 when every
// check passed.
var checks = 0, failures = 0;

function check(ok, what) {
  checks++;
  if (!ok) {
    failures++;
    WScript.Echo("FAIL: " + what);
  }
}

function near(a, b, rel) {
  return Math.abs(a - b) <= rel * Math.abs(b);
}

var model = 'TITLE "Growth";\n' +
            "VARIABLES x, y;\n" +
            "PARAMETERS a = 1, b = 0.1;\n" +
            "CONFIDENCE 95;\n" +
            "COVARIANCE;\n" +
            "CORRELATE x, y;\n" +
            "FUNCTION y = a * exp(b * x);\n";
var xs = [0.5, 1.0, 1.5, 2.0, 2.5, 3.0, 3.5, 4.0, 4.5, 5.0];
var ys = [4.21, 5.07, 6.12, 7.43, 9.11, 10.79, 13.21, 16.02, 19.57, 23.85];
var data = ["0.5 4.21", "1.0 5.07", "1.5 6.12", "2.0 7.43", "2.5 9.11",
            "3.0 10.79", "3.5 13.21", "4.0 16.02", "4.5 19.57", "5.0 23.85"];
var i, k, r;

var o = new ActiveXObject("VEXORCOM.VEXOR");

// --- The program with DATA ---------------------------------------------------
check(o.Initialize(0) === 0, "Initialize returns 0");
r = o.Compile(model + "DATA;\n" + data.join("\n") + "\n");
check(r === 1, "Compile returns 1");
var code = o.Compute();
check(typeof code === "number" && code >= 1 && code <= 6, "Compute converges: " + code);

check(o.NumInputVariables() === 2, "two input variables");
check(o.InputVariableName(0) === "x" && o.InputVariableName(1) === "y", "input variable names");
k = 1;
check(o.InputVariableName(k) === "y", "input variable name by variable");
check(o.NumParameters() === 2, "two parameters");
check(o.ParameterName(0) === "a" && o.ParameterName(1) === "b", "parameter names");
check(o.ParameterName(5) === "", "parameter name out of range: empty");

// The least-squares solution, computed independently (Gauss-Newton in double
// precision).
var a = o.ParameterValue(0, 0), b = o.ParameterValue(1, 0);
check(typeof a === "number" && near(a, 3.4063373437, 1e-8) && near(b, 0.38852501678, 1e-8),
      "estimates " + a + ", " + b);
var pv = [[], []];
for (i = 0; i < 2; i++)
  for (k = 0; k <= 7; k++) pv[i][k] = o.ParameterValue(i, k);
check(pv[0][6] === 1 && pv[1][6] === 0.1, "starting values");
check(pv[0][7] === 0, "ParameterValue(0, 7) is 0");
for (i = 0; i < 2; i++) {
  check(pv[i][1] > 0 && near(pv[i][2], pv[i][0] / pv[i][1], 1e-12), "standard error and t");
  check(pv[i][4] < pv[i][0] && pv[i][0] < pv[i][5], "confidence limits around the estimate");
}
check(o.ParameterValue(1.5, "5") === pv[1][5], "a double index and a string selector");

var st = [];
for (k = 0; k <= 10; k++) st[k] = o.GetStatistic(k);
check(st[0] === 10 && st[10] === 5.4, "observations and version");
check(near(st[2], 0.05924078851300831, 1e-9), "sum of squared deviations " + st[2]);
check(st[6] > 0.999 && st[6] <= 1, "R^2");
check(o.GetStatistic(11) === 0 && o.GetStatistic(-1) === 0, "unknown statistics are 0");
check(o.GetStatistic(true) === 10, "a Boolean selector reads as 0");

check(near(o.GetCovarianceValue(0, 0), pv[0][1] * pv[0][1], 1e-9), "variance of a");
check(o.GetCovarianceValue(0, 1) === o.GetCovarianceValue(1, 0), "symmetric covariance");
check(near(o.GetCorrelationValue(1, 1), 1, 1e-12) && o.GetCorrelationValue(0, 1) > 0.9, "correlations");

check(o.NumDataRows() === 10 && o.GetDataValue(3, 1) === 7.43, "data");
i = 9; k = 0;
check(o.GetDataValue(i, k) === 5, "data by variables");

var x = 2.5;
o.EvaluateValue(0, x);
check(near(o.EvaluateFunction(0), a * Math.exp(b * x), 1e-12), "EvaluateFunction at 2.5");

var rep = o.GetAnalysisReport(0);
check(typeof rep === "string" && rep.indexOf("Final Results") >= 0 && rep.indexOf("\r\n") >= 0, "the listing");

// --- The model without DATA, observations cell by cell ------------------------
check(o.Compile(model) === 1, "Compile of the model");
check(o.SetDataRows(10) === 0, "SetDataRows returns 0");
for (i = 0; i < 10; i++) {
  check(o.SetDataValue(i, 0, xs[i]) === 0, "SetDataValue returns 0");
  check(o.SetDataValue(i, 1, ys[i]) === 0, "SetDataValue returns 0");
}
check(o.SetDataValue(0, 2, 1.5) === undefined, "SetDataValue with a bad column gives no result");
check(o.Compute() >= 1, "Compute converges");
check(o.ParameterValue(0, 0) === a && o.ParameterValue(1, 0) === b, "the same estimates as with DATA");
for (k = 0; k <= 10; k++)
  if (k !== 9) check(o.GetStatistic(k) === st[k], "the same statistic " + k + " as with DATA");

// --- The program file ---------------------------------------------------------
if (WScript.Arguments.length > 0) {
  var file = WScript.Arguments(0);
  check(o.CompileFile(file) === 1, "CompileFile " + file);
  r = o.Compute();
  check(r >= 1 && r <= 6, "Compute of the file's program");
  check(o.GetAnalysisReport(0).indexOf("Final Results") >= 0, "the file's listing");
}

WScript.Echo("JScript: " + checks + " checks, " + failures + " failed");
WScript.Quit(failures > 0 ? 1 : 0);
