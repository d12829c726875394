// A shared library loaded by name, released when the object goes.
#pragma once

#include <string>

class DynamicLibrary {
  public:
    DynamicLibrary() = default;
    explicit DynamicLibrary(const std::string& name) { Load(name); }
    ~DynamicLibrary();
    DynamicLibrary(const DynamicLibrary&) = delete;
    DynamicLibrary& operator=(const DynamicLibrary&) = delete;

    bool Load(const std::string& name);
    bool IsLoaded() const { return handle_ != nullptr; }
    void* Symbol(const char* name) const;  // null when absent
    // Keeps the library loaded after this object goes.
    void* Release();

  private:
    void* handle_ = nullptr;
};
