// A registrar for registration scripts: the text that says which registry
// keys and values a component adds when it is registered and takes away when
// it is unregistered.
//
// Syntax (tokens are separated by white space; a token in single quotes may
// hold white space, and '' inside it stands for one quote):
//
//   script  := root*
//   root    := ROOT '{' entry* '}'
//   entry   := key | value
//   key     := [ 'ForceRemove' | 'NoRemove' | 'Delete' ] NAME
//              [ '=' TYPE DATA ] [ '{' entry* '}' ]
//   value   := 'val' NAME '=' TYPE DATA
//
//   ROOT  HKCR, HKCU, HKLM, HKU, HKCC or their long names
//         (HKEY_CLASSES_ROOT ...)
//   NAME  a key or value name, e.g. CLSID, {5766525D-...}, 'My Key'
//   TYPE  s (string, REG_SZ), e (REG_EXPAND_SZ), d (REG_DWORD, decimal or
//         0x hex), b (REG_BINARY, hex digit pairs)
//   DATA  a quoted or bare token
//
// Before a name or data is used, every %NAME% in it is replaced by the
// value given for NAME (%MODULE%: the component's full path), and %% by %.
//
// Registering creates every key and sets its default value (key = ...) and
// its named values (val ...).  A ForceRemove key is first deleted with
// everything below it, so it is created afresh; a Delete key is deleted and
// nothing else is done with it.
//
// Unregistering walks the same tree: a ForceRemove key is deleted with
// everything below it; a NoRemove key is kept (with its values), but what the
// script lists below it is processed; any other key has its listed named
// values deleted and is itself deleted when no subkey is left under it (keys
// that something else put there keep it).  Keys that do not exist are passed
// over.
//
// The whole script is parsed before the registry is touched, so a script
// with a syntax error changes nothing.
#pragma once

#include <windows.h>

#include <map>
#include <string>

namespace vexorcom {

using Replacements = std::map<std::wstring, std::wstring>;

// Applies (reg = true) or reverses (reg = false) the script.  Returns S_OK,
// E_INVALIDARG for a syntax error (with a description in *error when given),
// or the failure of the registry call that went wrong.
HRESULT runscript(const std::string& script, const Replacements& vars, bool reg, std::wstring* error = nullptr);

}  // namespace vexorcom
