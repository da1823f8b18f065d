// vexor._vexor: the C interface (vexor/vexor_c.h) as a Python extension.
// One Engine wraps one handle.  Everything a fit gives is read in one call
// (results) into plain Python and NumPy objects, so the package's Result
// holds a copy that outlives the engine's next program.  The GIL is let go
// while the engine computes, so other Python threads run meanwhile.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "vexor/vexor_c.h"

namespace py = pybind11;

namespace {

using Array = py::array_t<double, py::array::c_style | py::array::forcecast>;

// The C interface's failures as Python exceptions: wrong arguments and
// shapes as ValueError, calls out of order as RuntimeError.
[[noreturn]] void raise(vx_engine* e, int status) {
  const std::string message = vx_error(e);
  if (status == VX_ERROR_ARGUMENT) throw py::value_error(message);
  if (status == VX_ERROR_MEMORY) throw std::bad_alloc();
  throw std::runtime_error(message);
}

void check(vx_engine* e, int status) {
  if (status != VX_OK) raise(e, status);
}

// The statistics results() reads, in the order of vexor._result.STATISTICS.
constexpr int STATISTICS[] = {
    VX_STAT_OBSERVATIONS, VX_STAT_ITERATIONS, VX_STAT_EVALUATIONS, VX_STAT_FUNCTION, VX_STAT_STDERR,
    VX_STAT_R2,           VX_STAT_ADJ_R2,     VX_STAT_DURBIN_WATSON, VX_STAT_SUM_DEVIATIONS,
    VX_STAT_AVG_DEVIATION, VX_STAT_MAX_DEVIATION, VX_STAT_DF, VX_STAT_F, VX_STAT_PROB_F, VX_STAT_RUNTIME,
};

class Engine {
 public:
  Engine() : e_(vx_create()) {
    if (!e_) throw std::bad_alloc();
  }
  ~Engine() { vx_destroy(e_); }
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // Compiles; returns None on success, else the list of (line, message).
  py::object compile(const std::string& text, bool file) {
    int status;
    {
      py::gil_scoped_release free;
      status = file ? vx_compile_file(e_, text.c_str()) : vx_compile(e_, text.c_str());
    }
    if (status == VX_OK) return py::none();
    if (status != VX_ERROR_COMPILE && status != VX_ERROR_FILE) raise(e_, status);
    const std::string first = vx_error(e_);
    py::list messages;
    int32_t n = 0;
    check(e_, vx_message_count(e_, &n));
    for (int32_t i = 0; i < n; ++i) {
      const char* t = nullptr;
      int32_t line = 0;
      check(e_, vx_message(e_, i, &t, &line));
      messages.append(py::make_tuple(line, t));
    }
    return py::make_tuple(first, messages);
  }

  // (variables, index of the dependent or -1, parameters)
  py::tuple program() {
    int32_t nv = 0, np = 0, dep = -1;
    check(e_, vx_variable_count(e_, &nv));
    check(e_, vx_parameter_count(e_, &np));
    check(e_, vx_dependent(e_, &dep));
    py::list vars, parms;
    const char* name = nullptr;
    for (int32_t i = 0; i < nv; ++i) {
      check(e_, vx_variable_name(e_, i, &name));
      vars.append(name);
    }
    for (int32_t i = 0; i < np; ++i) {
      check(e_, vx_parameter_name(e_, i, &name));
      parms.append(name);
    }
    return py::make_tuple(vars, dep, parms);
  }

  // rows x columns, C order: handed over in one copy.
  void set_data(const Array& data) {
    if (data.ndim() != 2) throw py::value_error("data must be a 2-D array (rows of VARIABLES values)");
    const int64_t rows = data.shape(0);
    const int64_t cols = data.shape(1);
    if (cols > INT32_MAX) throw py::value_error("too many columns");
    int status;
    {
      py::gil_scoped_release free;
      status = vx_set_data(e_, data.data(), rows, static_cast<int32_t>(cols));
    }
    check(e_, status);
  }

  int compute(double timelimit, int threads, bool vectormath, bool exact, bool boundederrors) {
    check(e_, vx_set_time_limit(e_, timelimit));
    check(e_, vx_set_threads(e_, threads));
    check(e_, vx_set_vector_math(e_, vectormath ? 1 : 0));
    check(e_, vx_set_derivatives(e_, exact ? 1 : 0));
    check(e_, vx_set_bounded_errors(e_, boundederrors ? 1 : 0));
    int code = 0, status;
    {
      py::gil_scoped_release free;
      status = vx_compute(e_, &code);
    }
    check(e_, status);
    return code;
  }

  // Everything of the last fit, compact (few objects, so that results
  // travel between processes cheaply):
  //   table       7 x p: estimate, start, standard error, t, Prob(t), lower
  //               and upper limit (NaN where the fit computed none)
  //   statistics  the STATISTICS codes' values, in that order
  //   fitted, message, report, covariance, correlation, correlation_names,
  //   observed, predicted (None where the fit computed nothing).
  py::dict results(bool report) {
    py::dict r;
    int32_t np = 0;
    check(e_, vx_parameter_count(e_, &np));
    Array table({7, static_cast<int>(np)});
    double* t = table.mutable_data();
    for (int32_t i = 0; i < 7 * np; ++i) t[i] = NAN;
    check(e_, vx_parameter_values(e_, VX_ESTIMATE, t, np));
    check(e_, vx_parameter_values(e_, VX_START, t + np, np));
    r["table"] = table;
    const char* text = nullptr;
    if (report) {
      check(e_, vx_report(e_, &text));
      r["report"] = py::str(text);
    }
    int flags = 0;
    const int status = vx_available(e_, &flags);
    if (status == VX_ERROR_STATE) {
      // No fit ran (fewer observations than parameters, ...).
      r["fitted"] = false;
      return r;
    }
    check(e_, status);
    r["fitted"] = true;
    check(e_, vx_stop_reason(e_, &text));
    r["message"] = py::str(text);
    check(e_, vx_differenced_columns(e_, &text));
    r["differenced"] = py::str(text);
    if (flags & VX_HAS_STATISTICS) {
      check(e_, vx_parameter_values(e_, VX_STDERR, t + 2 * np, np));
      check(e_, vx_parameter_values(e_, VX_TVALUE, t + 3 * np, np));
      check(e_, vx_parameter_values(e_, VX_PVALUE, t + 4 * np, np));
    }
    if (flags & VX_HAS_INTERVALS) {
      check(e_, vx_parameter_values(e_, VX_LOWER, t + 5 * np, np));
      check(e_, vx_parameter_values(e_, VX_UPPER, t + 6 * np, np));
    }
    if (flags & VX_HAS_COVARIANCE) {
      Array c({np, np});
      check(e_, vx_covariance(e_, c.mutable_data(), static_cast<int64_t>(np) * np));
      r["covariance"] = c;
    }
    int32_t m = 0;
    check(e_, vx_correlation_size(e_, &m));
    if (m > 0) {
      Array c({m, m});
      check(e_, vx_correlation(e_, c.mutable_data(), static_cast<int64_t>(m) * m));
      py::list names;
      for (int32_t i = 0; i < m; ++i) {
        check(e_, vx_correlation_name(e_, i, &text));
        names.append(text);
      }
      r["correlation"] = c;
      r["correlation_names"] = names;
    }
    Array stats(static_cast<py::ssize_t>(sizeof STATISTICS / sizeof STATISTICS[0]));
    for (std::size_t i = 0; i < sizeof STATISTICS / sizeof STATISTICS[0]; ++i)
      check(e_, vx_statistic(e_, STATISTICS[i], stats.mutable_data() + i));
    r["statistics"] = stats;
    if (flags & VX_HAS_RESIDUALS) {
      int64_t n = 0;
      check(e_, vx_observation_count(e_, &n));
      Array obs(n), pred(n);
      check(e_, vx_observed(e_, obs.mutable_data(), n));
      check(e_, vx_predicted(e_, pred.mutable_data(), n));
      r["observed"] = obs;
      r["predicted"] = pred;
    }
    return r;
  }

  // The model at each row of points (rows x VARIABLES), NaN where the
  // program fails.
  Array evaluate(const Array& points) {
    if (points.ndim() != 2) throw py::value_error("points must be a 2-D array");
    const int64_t rows = points.shape(0);
    const auto cols = static_cast<int32_t>(points.shape(1));
    Array out(rows);
    int status;
    {
      py::gil_scoped_release free;
      status = vx_evaluate(e_, points.data(), rows, cols, out.mutable_data());
    }
    check(e_, status);
    return out;
  }

  void set_parameters(const Array& values) {
    check(e_, vx_set_parameters(e_, values.data(), static_cast<int32_t>(values.size())));
  }

  std::string report() {
    const char* text = nullptr;
    check(e_, vx_report(e_, &text));
    return text;
  }

 private:
  vx_engine* e_;
};

}  // namespace

PYBIND11_MODULE(_vexor, m) {
  m.doc() = "The VEXOR engine through its C interface (use the vexor package, not this module).";
  m.attr("version") = vx_version();
  py::class_<Engine>(m, "Engine")
      .def(py::init<>())
      .def("compile", &Engine::compile, py::arg("text"), py::arg("file") = false)
      .def("program", &Engine::program)
      .def("set_data", &Engine::set_data)
      .def("compute", &Engine::compute, py::arg("time_limit") = 0.0, py::arg("threads") = 0,
           py::arg("vector_math") = false, py::arg("exact") = false, py::arg("bounded_errors") = false)
      .def("results", &Engine::results, py::arg("report") = true)
      .def("evaluate", &Engine::evaluate)
      .def("set_parameters", &Engine::set_parameters)
      .def("report", &Engine::report);
  m.def("cancel", &vx_cancel, "Stops the fit in progress (from another thread).");
}
