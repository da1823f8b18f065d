// The analysis object as an automation object: IVEXOR (a dual interface:
// the vtable and IDispatch) and ISupportErrorInfo.
//
// The methods forward to the engine's VEXOR class, which does all the work:
// argument coercion, the analysis, results and the error information for an
// argument of an unusable type.  The engine is one per process, so every
// object drives the same analysis.
//
// IDispatch is served from the type library, through the standard
// automation dispatcher (DispGetIDsOfNames, DispInvoke): it maps names to
// DISPIDs, converts by-reference arguments of scripting hosts, and puts the
// [out, retval] result where the caller expects it.
#include "vexorcom.h"

#include <new>

#include "module.h"
#include "vexor/vexor.h"

namespace vexorcom {

namespace {

// The engine behind every object.  VEXOR has no state of its own: the
// analysis it drives is process-wide.
VEXOR engine;

class Analysis final : public IVEXOR, public ISupportErrorInfo {
 public:
  Analysis() { objectcreated(); }
  Analysis(const Analysis&) = delete;
  Analysis& operator=(const Analysis&) = delete;

  // IUnknown
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** out) override {
    if (!out) return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IDispatch) || IsEqualIID(riid, IID_IVEXOR)) {
      *out = static_cast<IVEXOR*>(this);
    } else if (IsEqualIID(riid, IID_ISupportErrorInfo)) {
      *out = static_cast<ISupportErrorInfo*>(this);
    } else {
      *out = nullptr;
      return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&refs_)); }
  ULONG STDMETHODCALLTYPE Release() override {
    LONG n = InterlockedDecrement(&refs_);
    if (n == 0) delete this;
    return static_cast<ULONG>(n);
  }

  // ISupportErrorInfo: IVEXOR reports bad arguments through error
  // information; no other interface does.
  HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID riid) override {
    return IsEqualIID(riid, IID_IVEXOR) ? S_OK : S_FALSE;
  }

  // IDispatch
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    if (!count) return E_POINTER;
    *count = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID /*lcid*/, ITypeInfo** info) override {
    if (!info) return E_POINTER;
    *info = nullptr;
    if (index != 0) return DISP_E_BADINDEX;
    return typeinfo(info, nullptr);
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID /*lcid*/,
                                          DISPID* ids) override {
    if (!IsEqualIID(riid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
    ITypeInfo* vt = nullptr;
    HRESULT hr = typeinfo(nullptr, &vt);
    if (FAILED(hr)) return hr;
    hr = DispGetIDsOfNames(vt, names, count, ids);
    vt->Release();
    return hr;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID /*lcid*/, WORD flags, DISPPARAMS* params,
                                   VARIANT* result, EXCEPINFO* excep, UINT* argerr) override {
    if (!IsEqualIID(riid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
    ITypeInfo* vt = nullptr;
    HRESULT hr = typeinfo(nullptr, &vt);
    if (FAILED(hr)) return hr;
    hr = DispInvoke(static_cast<IVEXOR*>(this), vt, id, flags, params, result, excep, argerr);
    vt->Release();
    return hr;
  }

  // IVEXOR, in DISPID order.
  HRESULT STDMETHODCALLTYPE Initialize(VARIANT* inv, VARIANT* outv) override { return engine.Initialize(inv, outv); }
  HRESULT STDMETHODCALLTYPE Compile(VARIANT* inSource, VARIANT* outResult) override {
    return engine.Compile(inSource, outResult);
  }
  HRESULT STDMETHODCALLTYPE CompileFile(VARIANT* inFile, VARIANT* outResult) override {
    return engine.CompileFile(inFile, outResult);
  }
  HRESULT STDMETHODCALLTYPE GetAnalysisReport(VARIANT* inDummy, VARIANT* outReport) override {
    return engine.GetAnalysisReport(inDummy, outReport);
  }
  HRESULT STDMETHODCALLTYPE Compute(VARIANT* outResult) override { return engine.Compute(outResult); }
  HRESULT STDMETHODCALLTYPE NumInputVariables(VARIANT* outNumvar) override {
    return engine.NumInputVariables(outNumvar);
  }
  HRESULT STDMETHODCALLTYPE InputVariableName(VARIANT* inIndex, VARIANT* outVarname) override {
    return engine.InputVariableName(inIndex, outVarname);
  }
  HRESULT STDMETHODCALLTYPE NumParameters(VARIANT* outNumparam) override { return engine.NumParameters(outNumparam); }
  HRESULT STDMETHODCALLTYPE ParameterName(VARIANT* inIndex, VARIANT* outName) override {
    return engine.ParameterName(inIndex, outName);
  }
  HRESULT STDMETHODCALLTYPE ParameterValue(VARIANT* inIndex, VARIANT* inValtype, VARIANT* outResult) override {
    return engine.ParameterValue(inIndex, inValtype, outResult);
  }
  HRESULT STDMETHODCALLTYPE GetStatistic(VARIANT* inValtype, VARIANT* outValue) override {
    return engine.GetStatistic(inValtype, outValue);
  }
  HRESULT STDMETHODCALLTYPE SetDataRows(VARIANT* inNumrows, VARIANT* outResult) override {
    return engine.SetDataRows(inNumrows, outResult);
  }
  HRESULT STDMETHODCALLTYPE SetDataValue(VARIANT* inRow, VARIANT* inCol, VARIANT* inValue,
                                         VARIANT* outResult) override {
    return engine.SetDataValue(inRow, inCol, inValue, outResult);
  }
  HRESULT STDMETHODCALLTYPE GetDataValue(VARIANT* inRow, VARIANT* inCol, VARIANT* outValue) override {
    return engine.GetDataValue(inRow, inCol, outValue);
  }
  HRESULT STDMETHODCALLTYPE GetCorrelationValue(VARIANT* inRow, VARIANT* inCol, VARIANT* outValue) override {
    return engine.GetCorrelationValue(inRow, inCol, outValue);
  }
  HRESULT STDMETHODCALLTYPE GetCovarianceValue(VARIANT* inRow, VARIANT* inCol, VARIANT* outValue) override {
    return engine.GetCovarianceValue(inRow, inCol, outValue);
  }
  HRESULT STDMETHODCALLTYPE EvaluateValue(VARIANT* inVariable, VARIANT* inValue) override {
    return engine.EvaluateValue(inVariable, inValue);
  }
  HRESULT STDMETHODCALLTYPE EvaluateFunction(VARIANT* inDummy, VARIANT* outValue) override {
    return engine.EvaluateFunction(inDummy, outValue);
  }
  HRESULT STDMETHODCALLTYPE NumDataRows(VARIANT* outNumrows) override { return engine.NumDataRows(outNumrows); }

 private:
  ~Analysis() { objectdestroyed(); }

  LONG refs_ = 1;
};

}  // namespace

HRESULT createobject(REFIID riid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  auto* obj = new (std::nothrow) Analysis;
  if (!obj) return E_OUTOFMEMORY;
  HRESULT hr = obj->QueryInterface(riid, out);
  obj->Release();
  return hr;
}

}  // namespace vexorcom
