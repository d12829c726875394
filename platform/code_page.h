// The library's 8-bit text is in the Windows-1252 code page; these convert
// it to and from UTF-8 where it meets UTF-8 text (the XML DOM).
#pragma once

#include <string>
#include <string_view>

// Every byte has a character: the five bytes that Windows-1252 leaves
// undefined (0x81, 0x8D, 0x8F, 0x90, 0x9D) stand for U+0081 and so on.
std::string Utf8FromAnsi(std::string_view ansi);

// A character the code page lacks becomes '?', or with `references` the XML
// character reference "&#N;" that keeps it. Bytes that are not UTF-8 become
// '?' each.
std::string AnsiFromUtf8(std::string_view utf8, bool references = false);
