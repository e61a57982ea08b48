#include "common/Error.h"

#include <filesystem>
#include <new>
#include <system_error>

namespace tw {

TWError::TWError(int32_t number, std::string description, std::string source)
    : Number(number), Description(std::move(description)), Source(std::move(source)) {}

TWError CurrentError(const std::string& fallbackSource) {
  try {
    throw;
  } catch (const TWError& e) {
    return e;
  } catch (const std::filesystem::filesystem_error& e) {
    return TWError(errnum::PathFileAccess, e.what(), fallbackSource);
  } catch (const std::system_error& e) {
    return TWError(e.code().value(), e.what(), fallbackSource);
  } catch (const std::bad_alloc&) {
    return TWError(7, "Out of memory", fallbackSource);
  } catch (const std::exception& e) {
    return TWError(0, e.what(), fallbackSource);
  } catch (...) {
    return TWError(0, "Unknown error", fallbackSource);
  }
}

}  // namespace tw
