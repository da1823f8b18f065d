// What the parts of the VEXOR component share: the module's handle and
// path, its object and lock counts, and the type information of IVEXOR
// loaded from the type library in the module's resources.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <string>

namespace vexorcom {

// The DLL's own module handle (set on process attach).
extern HINSTANCE module;

// The DLL's full path.
std::wstring modulepath();

// Live analysis objects, and locks: IClassFactory::LockServer(TRUE) and
// references to the class factory held outside the DLL.  DllCanUnloadNow
// says yes only when both are zero.
void objectcreated();
void objectdestroyed();
void lockmodule();
void unlockmodule();
bool canunload();

// The type information of IVEXOR from the type library carried in the
// module (resource TYPELIB 1), loaded on first use and kept until the module
// can be unloaded.  `dispatch` is the dispatch face that GetTypeInfo hands
// to hosts; `vtable` is the interface face that the standard dispatcher
// uses to call the methods.  Both are returned with a reference for the
// caller.
HRESULT typeinfo(ITypeInfo** dispatch, ITypeInfo** vtable);
void releasetypeinfo();

// A new analysis object, queried for riid.
HRESULT createobject(REFIID riid, void** out);

}  // namespace vexorcom
