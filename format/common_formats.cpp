// Field values shown through the application's common library: account,
// job and phone numbers, whose layout belongs to the application.
#include "dbfile/db_file.h"
#include "engine/messages.h"
#include "platform/dynamic_library.h"

namespace {

using TextFormatter = const char* (*)(const char* raw);
using PhoneFormatter = void (*)(CString& out, const char* raw, int phoneValue);

// The library is loaded for each call and released after it.
const char* FormatThroughText(CString& out, const char* entry, const char* data) {
    out = "";
    DynamicLibrary lib(CommonLibraryName());
    if (!lib.IsLoaded()) return out;
    auto fn = reinterpret_cast<TextFormatter>(lib.Symbol(entry));
    if (!fn) return out;
    try {
        if (const char* text = fn(data ? data : "")) out = text;
    } catch (...) {  // the entry's failure leaves the text as it stands
    }
    return out;
}

}  // namespace

const char* CDbFile::FormatAccount(CString& out, const char* data) {
    return FormatThroughText(out, "FormatAcct", data);
}

const char* CDbFile::FormatJob(CString& out, const char* data) {
    return FormatThroughText(out, "FormatJob", data);
}

const char* CDbFile::FormatPhone(CString& out, const char* data, int phoneValue) {
    out = "";
    DynamicLibrary lib(CommonLibraryName());
    if (!lib.IsLoaded()) return out;
    auto fn = reinterpret_cast<PhoneFormatter>(lib.Symbol("FormatPhone"));
    if (!fn) return out;
    try {
        fn(out, data ? data : "", phoneValue);
    } catch (...) {
    }
    return out;
}
