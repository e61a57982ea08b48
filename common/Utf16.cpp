#include "common/Utf16.h"

#include <cstdint>
#include <fstream>
#include <sstream>

namespace tw {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

void AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

void AppendUnit(std::string& out, uint16_t unit) {
  out += static_cast<char>(unit & 0xFF);
  out += static_cast<char>(unit >> 8);
}

// The next code point of UTF-8 text at `i`, advancing it.
char32_t NextCodePoint(std::string_view text, size_t& i) {
  const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char first = byte(i);
  size_t length = first < 0x80 ? 1 : (first >> 5) == 0x6 ? 2 : (first >> 4) == 0xE ? 3 : (first >> 3) == 0x1E ? 4 : 0;
  if (length == 0 || i + length > text.size()) {
    ++i;
    return kReplacement;
  }
  char32_t c = length == 1 ? first : first & (0x7F >> length);
  for (size_t k = 1; k < length; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) {
      ++i;
      return kReplacement;
    }
    c = (c << 6) | (byte(i + k) & 0x3F);
  }
  i += length;
  return c;
}

}  // namespace

std::string Utf16FileBytes(std::string_view utf8) {
  std::string out = "\xFF\xFE";
  for (size_t i = 0; i < utf8.size();) {
    const char32_t c = NextCodePoint(utf8, i);
    if (c >= 0x10000) {
      const char32_t v = c - 0x10000;
      AppendUnit(out, static_cast<uint16_t>(0xD800 + (v >> 10)));
      AppendUnit(out, static_cast<uint16_t>(0xDC00 + (v & 0x3FF)));
    } else {
      AppendUnit(out, static_cast<uint16_t>(c));
    }
  }
  return out;
}

std::string Utf8FromUtf16Bytes(std::string_view bytes) {
  size_t i = bytes.size() >= 2 && bytes[0] == '\xFF' && bytes[1] == '\xFE' ? 2 : 0;
  std::string out;
  auto unit = [&](size_t k) {
    return static_cast<uint16_t>(static_cast<unsigned char>(bytes[k]) | (static_cast<unsigned char>(bytes[k + 1]) << 8));
  };
  while (i + 1 < bytes.size()) {
    const uint16_t first = unit(i);
    i += 2;
    if (first >= 0xD800 && first < 0xDC00 && i + 1 < bytes.size() && unit(i) >= 0xDC00 && unit(i) < 0xE000) {
      AppendUtf8(out, 0x10000 + ((static_cast<char32_t>(first) - 0xD800) << 10) + (unit(i) - 0xDC00));
      i += 2;
    } else if (first >= 0xD800 && first < 0xE000) {
      AppendUtf8(out, kReplacement);
    } else {
      AppendUtf8(out, first);
    }
  }
  return out;
}

bool WriteUnicodeFile(const std::string& path, std::string_view utf8) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << Utf16FileBytes(utf8);
  out.close();
  return static_cast<bool>(out);
}

bool ReadUnicodeFile(const std::string& path, std::string& utf8) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::stringstream content;
  content << in.rdbuf();
  const std::string bytes = content.str();
  if (bytes.size() >= 2 && bytes[0] == '\xFF' && bytes[1] == '\xFE') {
    utf8 = Utf8FromUtf16Bytes(bytes);
  } else {
    utf8 = bytes;
  }
  return true;
}

}  // namespace tw
