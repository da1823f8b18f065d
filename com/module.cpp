// The VEXOR component's module: DllMain, the object and lock counts, the
// type information cache, the class factory and the four exports
// (DllGetClassObject, DllCanUnloadNow, DllRegisterServer,
// DllUnregisterServer).
#include <windows.h>
#include <olectl.h>
#include <oleauto.h>

#include <string>

#include "module.h"
#include "registrar.h"
#include "vexorcom.h"

namespace vexorcom {

HINSTANCE module = nullptr;

namespace {

LONG objects = 0;
LONG locks = 0;

// The type information cache, guarded for objects living in different
// single-threaded apartments of one process.
SRWLOCK infolock = SRWLOCK_INIT;
ITypeInfo* dispinfo = nullptr;
ITypeInfo* vtblinfo = nullptr;

// The resource numbers of the type library and of the registration script.
constexpr int TYPELIB_RESOURCE = 1;
constexpr int REGISTRY_RESOURCE = 102;

HRESULT loadtypelib(ITypeLib** lib) {
  std::wstring path = modulepath();
  if (path.empty()) return HRESULT_FROM_WIN32(GetLastError());
  // The module's first TYPELIB resource; without registering anything.
  return LoadTypeLibEx(path.c_str(), REGKIND_NONE, lib);
}

// The class object of VEXOR.  It lives as long as the module; references
// held outside the DLL lock the module.
class Factory final : public IClassFactory {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** out) override {
    if (!out) return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IClassFactory)) {
      *out = static_cast<IClassFactory*>(this);
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override {
    lockmodule();
    return 2;
  }
  ULONG STDMETHODCALLTYPE Release() override {
    unlockmodule();
    return 1;
  }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    return createobject(riid, out);
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
    if (lock)
      lockmodule();
    else
      unlockmodule();
    return S_OK;
  }
};

Factory factory;

// The registration script carried in the module (resource REGISTRY 102).
bool registryscript(std::string* text) {
  HRSRC res = FindResourceW(module, MAKEINTRESOURCEW(REGISTRY_RESOURCE), L"REGISTRY");
  if (!res) return false;
  HGLOBAL mem = LoadResource(module, res);
  DWORD size = SizeofResource(module, res);
  const void* data = mem ? LockResource(mem) : nullptr;
  if (!data) return false;
  text->assign(static_cast<const char*>(data), size);
  return true;
}

HRESULT applyscript(bool reg) {
  std::string script;
  if (!registryscript(&script)) return SELFREG_E_CLASS;
  std::wstring path = modulepath();
  if (path.empty()) return SELFREG_E_CLASS;
  return runscript(script, {{L"MODULE", path}}, reg);
}

}  // namespace

std::wstring modulepath() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    DWORD n = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
    if (n == 0) return {};
    if (n < path.size()) {
      path.resize(n);
      return path;
    }
    path.resize(path.size() * 2);
  }
}

void objectcreated() { InterlockedIncrement(&objects); }
void objectdestroyed() { InterlockedDecrement(&objects); }
void lockmodule() { InterlockedIncrement(&locks); }
void unlockmodule() { InterlockedDecrement(&locks); }
bool canunload() { return objects == 0 && locks == 0; }

HRESULT typeinfo(ITypeInfo** dispatch, ITypeInfo** vtable) {
  AcquireSRWLockExclusive(&infolock);
  HRESULT hr = S_OK;
  if (!dispinfo) {
    ITypeLib* lib = nullptr;
    hr = loadtypelib(&lib);
    ITypeInfo* disp = nullptr;
    ITypeInfo* vtbl = nullptr;
    if (SUCCEEDED(hr)) hr = lib->GetTypeInfoOfGuid(IID_IVEXOR, &disp);
    if (SUCCEEDED(hr)) {
      // A dual interface's type information describes its dispatch face;
      // the vtable face is the one it refers to as implemented type -1.
      HREFTYPE ref = 0;
      hr = disp->GetRefTypeOfImplType(static_cast<UINT>(-1), &ref);
      if (SUCCEEDED(hr)) hr = disp->GetRefTypeInfo(ref, &vtbl);
    }
    if (SUCCEEDED(hr)) {
      dispinfo = disp;
      vtblinfo = vtbl;
    } else {
      if (disp) disp->Release();
      if (vtbl) vtbl->Release();
    }
    if (lib) lib->Release();
  }
  if (SUCCEEDED(hr)) {
    if (dispatch) {
      dispinfo->AddRef();
      *dispatch = dispinfo;
    }
    if (vtable) {
      vtblinfo->AddRef();
      *vtable = vtblinfo;
    }
  }
  ReleaseSRWLockExclusive(&infolock);
  return hr;
}

void releasetypeinfo() {
  AcquireSRWLockExclusive(&infolock);
  if (vtblinfo) vtblinfo->Release();
  if (dispinfo) dispinfo->Release();
  vtblinfo = dispinfo = nullptr;
  ReleaseSRWLockExclusive(&infolock);
}

}  // namespace vexorcom

using namespace vexorcom;

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
  if (reason == DLL_PROCESS_ATTACH) {
    module = instance;
    DisableThreadLibraryCalls(instance);
  }
  return TRUE;
}

STDAPI DllGetClassObject(REFCLSID clsid, REFIID riid, LPVOID* out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (!IsEqualCLSID(clsid, CLSID_VEXOR)) return CLASS_E_CLASSNOTAVAILABLE;
  return factory.QueryInterface(riid, out);
}

STDAPI DllCanUnloadNow() {
  if (!canunload()) return S_FALSE;
  // Nothing outside holds the type information any more.
  releasetypeinfo();
  return S_OK;
}

// The registration script, then the type library.
STDAPI DllRegisterServer() {
  HRESULT hr = applyscript(true);
  if (FAILED(hr)) return hr;
  ITypeLib* lib = nullptr;
  hr = loadtypelib(&lib);
  if (FAILED(hr)) return SELFREG_E_TYPELIB;
  std::wstring path = modulepath();
  std::wstring dir = path.substr(0, path.find_last_of(L"\\/") + 1);
  hr = RegisterTypeLib(lib, path.data(), dir.empty() ? nullptr : dir.data());
  lib->Release();
  return FAILED(hr) ? SELFREG_E_TYPELIB : S_OK;
}

// What the script added, then the type library's entries.  Unregistering a
// component that is not registered succeeds.
STDAPI DllUnregisterServer() {
  HRESULT hr = applyscript(false);
  ITypeLib* lib = nullptr;
  HRESULT tl = loadtypelib(&lib);
  if (SUCCEEDED(tl)) {
    TLIBATTR* attr = nullptr;
    tl = lib->GetLibAttr(&attr);
    if (SUCCEEDED(tl)) {
      // Only when the library is registered at all (UnRegisterTypeLib fails
      // for one that is not).
      wchar_t guid[40];
      StringFromGUID2(attr->guid, guid, 40);
      std::wstring key = std::wstring(L"TypeLib\\") + guid;
      HKEY h = nullptr;
      if (RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &h) == ERROR_SUCCESS) {
        RegCloseKey(h);
        tl = UnRegisterTypeLib(attr->guid, attr->wMajorVerNum, attr->wMinorVerNum, attr->lcid, attr->syskind);
      }
      lib->ReleaseTLibAttr(attr);
    }
    lib->Release();
  }
  if (FAILED(hr)) return hr;
  return FAILED(tl) ? SELFREG_E_TYPELIB : S_OK;
}
