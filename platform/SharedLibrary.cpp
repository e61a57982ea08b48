#include "platform/SharedLibrary.h"

#include <dlfcn.h>

namespace tw::platform {

SharedLibrary::SharedLibrary(const std::string& name) {
  handle_ = ::dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle_ == nullptr) {
    const char* why = ::dlerror();
    error_ = why != nullptr ? why : "cannot load " + name;
  }
}

SharedLibrary::~SharedLibrary() {
  if (handle_ != nullptr) ::dlclose(handle_);
}

void* SharedLibrary::Symbol(const char* symbol) {
  if (handle_ == nullptr) return nullptr;
  ::dlerror();
  void* address = ::dlsym(handle_, symbol);
  if (address == nullptr) {
    const char* why = ::dlerror();
    error_ = why != nullptr ? why : std::string("no symbol ") + symbol;
  }
  return address;
}

}  // namespace tw::platform
