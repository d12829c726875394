// Window handles: opaque values of the user interface host, never
// dereferenced by the library.
#pragma once

struct HWND__;
using HWND = HWND__*;
