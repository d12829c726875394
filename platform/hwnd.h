// Window handles and device contexts: opaque values of the user interface
// host, never dereferenced by the library.
#pragma once

struct HWND__;
using HWND = HWND__*;

struct HDC__;
using HDC = HDC__*;
