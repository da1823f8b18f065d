// A fixture for the listing sections and the output files: it compiles a
// program (symbols, data and settings), stands in for the analysis driver by
// filling the result arrays, computes the results record from them, and
// reads back the Listing.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace vexor::test {

class ReportTest : public ::testing::Test {
 protected:
  void TearDown() override;

  // Compiles the program (it must compile) and empties the Listing, so that
  // the Listing holds only what the test writes next.
  void compile(const std::string& text);
  // Sets the parameters' final estimates, in declaration order.
  void estimates(std::initializer_list<double> values);
  // Allocates the driver's result arrays for nobs observations and fills the
  // predicted and observed values by running the program for each
  // observation, as the driver's final pass does.
  void finalpass();
  // Overwrites the predicted and observed values.
  void values(const std::vector<double>& observed, const std::vector<double>& predicted);
  // Fills the covariance matrix (row-major, nparm x nparm) and its status.
  void covariance(const std::vector<double>& c, int status);
  // Computes the results record for the result code, as the driver does
  // after its final pass (the result arrays are made first when there are
  // none yet).
  void collect(int code = 4);
  // The record for the code, then the whole "Final Results" section of it.
  void report(int code);
  // The covariance warning and hint for a covariance status.
  void covwarningfor(int status);
  // The analysis of variance table for these sums.
  void anovafor(double regss, double sse, double stot);

  // The Listing, CR LF shown as LF.
  static std::string text();
  // The Listing with the completion time and the runtime replaced by "XX".
  static std::string masked();
  // The whole content of a file ("<missing>" when it cannot be read).
  static std::string readfile(const std::string& name);
};

}  // namespace vexor::test
