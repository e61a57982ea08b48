#pragma once
// The error every procedure of the system raises and traps: a number, a description and the
// component it came from, as the error reports of the application log show them.
#include <cstdint>
#include <exception>
#include <string>

namespace tw {

// Error numbers that keep the meaning the product's reports have always given them.
namespace errnum {
constexpr int32_t InvalidProcedureCall = 5;
constexpr int32_t Overflow = 6;
constexpr int32_t SubscriptOutOfRange = 9;
constexpr int32_t TypeMismatch = 13;
constexpr int32_t FileNotFound = 53;
constexpr int32_t PathFileAccess = 75;
constexpr int32_t ComputerName = 23220;
}  // namespace errnum

class TWError : public std::exception {
 public:
  TWError(int32_t number, std::string description, std::string source = "Tarnwick");
  const char* what() const noexcept override { return Description.c_str(); }

  int32_t Number;
  std::string Description;
  std::string Source;
};

// The error being handled in a catch block, whatever its type, as number, description and
// source. A TWError keeps its own; a file-system error becomes "Path/File access error" (75)
// with the system's message; anything else is number 0 with `fallbackSource` as its source.
TWError CurrentError(const std::string& fallbackSource);

}  // namespace tw
