#pragma once
// What the fuzz targets share: a private scratch folder for the inputs that the product reads
// from files, and a way to write an input there.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

namespace tw::fuzz {

// A fresh folder under the system's temporary folder, made once per process and removed at its
// end; libFuzzer runs one process for many inputs, so each input overwrites the files it needs.
class ScratchFolder {
 public:
  explicit ScratchFolder(const std::string& prefix) {
    const auto base = std::filesystem::temp_directory_path();
    std::random_device random;
    do {
      path_ = (base / (prefix + "-" + std::to_string(random()))).string();
    } while (!std::filesystem::create_directory(path_));
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::string& Path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline void WriteInput(const std::string& path, const uint8_t* data, size_t size) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
}

// Aborts with the broken property, so that libFuzzer keeps the input that shows it.
[[noreturn]] inline void PropertyFailed(const char* what) {
  std::fprintf(stderr, "property failed: %s\n", what);
  std::abort();
}

}  // namespace tw::fuzz
