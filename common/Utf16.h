#pragma once
// "Unicode" text files of the product: UTF-16 little-endian with a byte-order mark. Inside the
// program all text is UTF-8.
#include <string>
#include <string_view>

namespace tw {

// UTF-8 to UTF-16LE bytes, with the byte-order mark in front.
std::string Utf16FileBytes(std::string_view utf8);
// UTF-16LE bytes (with or without the mark) to UTF-8; invalid sequences become U+FFFD.
std::string Utf8FromUtf16Bytes(std::string_view bytes);

// Writes a Unicode text file (creating or overwriting it); false when it cannot be written.
bool WriteUnicodeFile(const std::string& path, std::string_view utf8);
// Reads a Unicode text file; a file that does not start with the mark is read as UTF-8.
bool ReadUnicodeFile(const std::string& path, std::string& utf8);

}  // namespace tw
