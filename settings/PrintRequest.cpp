#include "settings/PrintRequest.h"

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "common/Error.h"
#include "platform/Files.h"

namespace tw {

std::string clsPrintRequest::Print(const std::string& subject, const std::string& body) {
  namespace fs = std::filesystem;
  platform::CreatePrivateFolder(spoolFolder_);
  static std::mt19937 generator{std::random_device{}()};
  char suffix[16];
  std::snprintf(suffix, sizeof suffix, "%06x", static_cast<unsigned>(generator() & 0xFFFFFF));
  const std::string name = "TWPrint-" + FormatStamp(clock_.Now()) + "-" + suffix + ".txt";
  const fs::path hidden = fs::path(spoolFolder_) / ("." + name);
  const fs::path final = fs::path(spoolFolder_) / name;
  {
    std::ofstream out(hidden, std::ios::binary | std::ios::trunc);
    out << subject << "\n\n" << body;
    out.close();
    if (!out) throw TWError(errnum::PathFileAccess, "Cannot write print request " + hidden.string(), "TWSettings");
  }
  fs::rename(hidden, final);
  return final.string();
}

bool clsPrintRequest::ReadSpoolFile(const std::string& path, std::string& subject, std::string& body) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::stringstream content;
  content << in.rdbuf();
  const std::string text = content.str();
  const size_t split = text.find("\n\n");
  if (split == std::string::npos) {
    subject = text;
    body.clear();
  } else {
    subject = text.substr(0, split);
    body = text.substr(split + 2);
  }
  return true;
}

}  // namespace tw
