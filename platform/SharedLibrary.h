#pragma once
// A shared library loaded while the program runs, for a part that most runs never need: its code
// and its start-up work then cost nothing until the first use.
#include <string>

namespace tw::platform {

class SharedLibrary {
 public:
  // Loads the library by its file name ("libcurl.so.4"), as the dynamic linker finds it; a
  // failure leaves it unloaded, with the reason in Error().
  explicit SharedLibrary(const std::string& name);
  ~SharedLibrary();
  SharedLibrary(const SharedLibrary&) = delete;
  SharedLibrary& operator=(const SharedLibrary&) = delete;

  bool Loaded() const { return handle_ != nullptr; }
  const std::string& Error() const { return error_; }
  // The address of `symbol`; nullptr (with the reason in Error()) when it is not there.
  void* Symbol(const char* symbol);

 private:
  void* handle_ = nullptr;
  std::string error_;
};

}  // namespace tw::platform
