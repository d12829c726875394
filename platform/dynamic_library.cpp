#include "platform/dynamic_library.h"

#include <dlfcn.h>

DynamicLibrary::~DynamicLibrary() {
    if (handle_) dlclose(handle_);
}

bool DynamicLibrary::Load(const std::string& name) {
    if (handle_) dlclose(handle_);
    handle_ = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
    return handle_ != nullptr;
}

void* DynamicLibrary::Symbol(const char* name) const {
    return handle_ ? dlsym(handle_, name) : nullptr;
}

void* DynamicLibrary::Release() {
    void* h = handle_;
    handle_ = nullptr;
    return h;
}
