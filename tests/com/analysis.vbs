' A VBScript host of the VEXOR automation component (run by cscript after
' the component has been registered):
'
'   cscript //nologo analysis.vbs PROGRAM_FILE
'
' Runs whole analyses through VEXORCOM.VEXOR: a program with DATA, the same
' model with the observations supplied cell by cell, and the program file
' given on the command line (CompileFile).  Reads every kind of result,
' passing arguments as literals and as variables (VBScript passes variables
' by reference).  Prints one line per failed check and a summary; the exit
' status is 0 when every check passed.
Option Explicit

Dim checks, failures
checks = 0
failures = 0

Sub Check(ok, what)
  checks = checks + 1
  If Not ok Then
    failures = failures + 1
    WScript.Echo "FAIL: " & what
  End If
End Sub

' |a - b| <= rel * |b|
Function Near(a, b, rel)
  Near = Abs(a - b) <= rel * Abs(b)
End Function

Dim nl, model, data, src, xs, ys, i, k, r, o
nl = vbLf
model = "TITLE ""Growth"";" & nl & _
        "VARIABLES x, y;" & nl & _
        "PARAMETERS a = 1, b = 0.1;" & nl & _
        "CONFIDENCE 95;" & nl & _
        "COVARIANCE;" & nl & _
        "CORRELATE x, y;" & nl & _
        "FUNCTION y = a * exp(b * x);" & nl
' The observations: as text for DATA, as numbers for SetDataValue.
data = Array("0.5 4.21", "1.0 5.07", "1.5 6.12", "2.0 7.43", "2.5 9.11", _
             "3.0 10.79", "3.5 13.21", "4.0 16.02", "4.5 19.57", "5.0 23.85")
xs = Array(0.5, 1.0, 1.5, 2.0, 2.5, 3.0, 3.5, 4.0, 4.5, 5.0)
ys = Array(4.21, 5.07, 6.12, 7.43, 9.11, 10.79, 13.21, 16.02, 19.57, 23.85)

Set o = CreateObject("VEXORCOM.VEXOR")
Check TypeName(o) = "IVEXOR" Or TypeName(o) = "VEXOR" Or TypeName(o) = "Object", "CreateObject: " & TypeName(o)

' --- The program with DATA -------------------------------------------------
r = o.Initialize(0)
Check r = 0 And TypeName(r) = "Long", "Initialize returns 0"
src = model & "DATA;" & nl
For i = 0 To 9
  src = src & data(i) & nl
Next
r = o.Compile(src)
Check r = 1 And TypeName(r) = "Long", "Compile returns 1"
Dim code
code = o.Compute()
Check TypeName(code) = "Long" And code >= 1 And code <= 6, "Compute converges: " & code

Check o.NumInputVariables() = 2, "two input variables"
Check o.InputVariableName(0) = "x" And o.InputVariableName(1) = "y", "input variable names"
i = 1
Check o.InputVariableName(i) = "y" And TypeName(o.InputVariableName(i)) = "String", "input variable name by variable"
Check o.InputVariableName(2) = "" And o.InputVariableName(-1) = "", "input variable out of range: empty"
Check o.NumParameters() = 2 And TypeName(o.NumParameters()) = "Long", "two parameters"
Check o.ParameterName(0) = "a" And o.ParameterName(1) = "b", "parameter names"

' Estimates: the least-squares solution, computed independently
' (Gauss-Newton in double precision).
Dim a, b, pv(1, 7)
a = o.ParameterValue(0, 0)
b = o.ParameterValue(1, 0)
Check TypeName(a) = "Double", "ParameterValue gives a double"
Check Near(a, 3.4063373437, 1e-8) And Near(b, 0.38852501678, 1e-8), "estimates " & a & ", " & b
For i = 0 To 1
  For k = 0 To 7
    pv(i, k) = o.ParameterValue(i, k)
  Next
Next
' The same with literals.
Check o.ParameterValue(0, 1) = pv(0, 1) And o.ParameterValue(1, 5) = pv(1, 5), "variables and literals agree"
Check pv(0, 6) = 1 And pv(1, 6) = 0.1, "starting values"
Check pv(0, 7) = 0 And pv(1, 7) = 0, "ParameterValue(i, 7) is 0"
Check o.ParameterValue(2, 0) = 0 And o.ParameterValue(-1, 0) = 0, "parameter out of range: 0"
For i = 0 To 1
  Check pv(i, 1) > 0, "standard error > 0"
  Check Near(pv(i, 2), pv(i, 0) / pv(i, 1), 1e-12), "t = estimate / standard error"
  Check pv(i, 3) >= 0 And pv(i, 3) <= 1, "Prob(t) is a probability"
  Check pv(i, 4) < pv(i, 0) And pv(i, 0) < pv(i, 5), "confidence limits around the estimate"
Next
Check o.ParameterValue(0.9, "0") = a, "a double index and a string selector"

' Statistics.
Dim st(10)
For k = 0 To 10
  st(k) = o.GetStatistic(k)
  Check TypeName(st(k)) = "Double", "GetStatistic(" & k & ") gives a double"
Next
Check st(0) = 10, "10 observations"
Check st(1) >= 1, "iterations"
Check Near(st(2), 0.05924078851300831, 1e-9), "sum of squared deviations " & st(2)
Check st(6) > 0.999 And st(6) <= 1 And st(7) <= st(6), "R^2 and adjusted R^2"
Check Near(st(5) * st(5), st(2) / 8, 1e-12), "standard error of estimate"
Check st(10) = 5.4 And o.GetStatistic("10") = 5.4, "the version, 5.4"
Check o.GetStatistic(11) = 0 And o.GetStatistic(-1) = 0, "unknown statistics are 0"
Check o.GetStatistic(True) = 10, "a Boolean selector reads as 0"

' Matrices.
Dim c00, c01, c10
c00 = o.GetCovarianceValue(0, 0)
i = 0 : k = 1
c01 = o.GetCovarianceValue(i, k)
c10 = o.GetCovarianceValue(k, i)
Check Near(c00, pv(0, 1) * pv(0, 1), 1e-9), "variance of a = its standard error squared"
Check c01 = c10 And c01 <> 0, "covariance matrix is symmetric"
Check o.GetCovarianceValue(2, 0) = 0, "covariance out of range: 0"
Check Near(o.GetCorrelationValue(0, 0), 1, 1e-12) And Near(o.GetCorrelationValue(1, 1), 1, 1e-12), "correlation diagonal"
Check o.GetCorrelationValue(0, 1) = o.GetCorrelationValue(k, i) And o.GetCorrelationValue(0, 1) > 0.9, "correlation of x and y"
Check o.GetCorrelationValue(0, 2) = 0, "correlation out of range: 0"

' Data.
Check o.NumDataRows() = 10 And TypeName(o.NumDataRows()) = "Long", "10 data rows"
Check o.GetDataValue(3, 1) = 7.43 And o.GetDataValue(9, 0) = 5, "data values"
i = 3 : k = 0
Check o.GetDataValue(i, k) = 2, "data value by variables"
Check o.GetDataValue(10, 0) = 0 And o.GetDataValue(0, 2) = 0, "data out of range: 0"

' The fitted model at a new point.
o.EvaluateValue 0, 2.5
Check Near(o.EvaluateFunction(0), a * Exp(b * 2.5), 1e-12), "EvaluateFunction at 2.5"
Dim xv
xv = 6
o.EvaluateValue k, xv
Check Near(o.EvaluateFunction(0), a * Exp(b * 6), 1e-12), "EvaluateFunction at a variable's value"

' The listing.
Dim rep
rep = o.GetAnalysisReport(0)
Check TypeName(rep) = "String" And InStr(rep, "Final Results") > 0 And InStr(rep, "Growth") > 0, "the listing"
Check InStr(rep, vbCrLf) > 0, "the listing's lines end in CR LF"
Check rep = o.GetAnalysisReport(0), "the listing twice"

' --- The model without DATA, observations cell by cell ---------------------
r = o.Compile(model)
Check r = 1, "Compile of the model"
Check o.NumDataRows() = 0, "no observations yet"
Check o.SetDataRows(10) = 0, "SetDataRows returns 0"
For i = 0 To 9
  r = o.SetDataValue(i, 0, xs(i))
  Check r = 0 And TypeName(r) = "Long", "SetDataValue returns 0"
  k = 1
  r = o.SetDataValue(i, k, ys(i))
  Check r = 0, "SetDataValue returns 0"
Next
r = o.SetDataValue(0, 0, 0.5)
Check r = 0, "SetDataValue with literals"
Check o.GetDataValue(3, 1) = 7.43, "the value stored"
' A bad column or row: the method returns its own success code and no result.
r = o.SetDataValue(0, 2, 1.5)
Check IsEmpty(r), "SetDataValue with a bad column gives no result"
r = o.SetDataValue(-1, 0, 1.5)
Check IsEmpty(r), "SetDataValue with a bad row gives no result"
Check o.NumDataRows() = 10, "10 observations"
code = o.Compute()
Check code >= 1 And code <= 6, "Compute converges"
Check o.ParameterValue(0, 0) = a And o.ParameterValue(1, 0) = b, "the same estimates as with DATA"
For k = 0 To 10
  If k <> 9 Then Check o.GetStatistic(k) = st(k), "the same statistic " & k & " as with DATA"
Next
Check o.GetCovarianceValue(0, 1) = c01, "the same covariance as with DATA"

' Growing the data with SetDataValue alone.
r = o.Compile(model)
r = o.SetDataValue(10, 0, 1)
Check r = 0 And o.NumDataRows() = 11 And o.GetDataValue(5, 0) = 0, "SetDataValue grows the data"

' A second object drives the same engine.
Dim o2
Set o2 = CreateObject("VEXORCOM.VEXOR.1")
Check o2.NumDataRows() = 11, "a second object sees the same engine"
Set o2 = Nothing

' --- The program file ------------------------------------------------------
If WScript.Arguments.Count > 0 Then
  Dim file
  file = WScript.Arguments(0)
  r = o.CompileFile(file)
  Check r = 1, "CompileFile " & file
  code = o.Compute()
  Check code >= 1 And code <= 6, "Compute of the file's program"
  Check o.NumParameters() > 0 And o.NumDataRows() > 0, "the file's program has parameters and data"
  Check InStr(o.GetAnalysisReport(0), "Final Results") > 0, "the file's listing"
End If
r = o.CompileFile("no such file.vex")
Check r = 0, "CompileFile of a missing file returns 0"
Check InStr(o.GetAnalysisReport(0), "Unable to open VEXOR source file: no such file.vex") > 0, "the missing file's message"

Set o = Nothing
WScript.Echo "VBScript: " & checks & " checks, " & failures & " failed"
If failures > 0 Then WScript.Quit 1
WScript.Quit 0
