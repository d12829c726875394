// The user's regional profile: what the Windows profile section "intl" and
// the user's locale hold there, kept here in an INI file read with inih.
// The file is $DBFILE_PROFILE, else ~/.config/dbfile/profile.ini. Sections
// and keys match without regard to case; the first of two equal keys counts;
// a value in double quotes loses them (so a space can be a value); values
// written in UTF-8 become the library's 8-bit text (Windows-1252). A missing
// file is an empty profile, and lines that are not "key=value" or
// "[section]", or that run past 200 characters, are passed over.
#pragma once

#include <optional>
#include <string>

// The file the profile is read from; empty when there is no home folder.
std::string ProfilePath();

// Reads the profile file again; later look-ups see what it holds now. The
// first look-up of the process reads it by itself.
void ReloadProfile();

// The value of `key` in `section`, or nothing when the profile has none.
std::optional<std::string> ProfileValue(const char* section, const char* key);

// As the profile's string reading: the value, or `def` when the key is missing.
std::string ProfileString(const char* section, const char* key, const char* def);

// As the profile's integer reading: `def` when the key is missing or empty,
// otherwise the decimal number at the start of the value (blanks and a sign
// may come first) as an unsigned 32-bit number; 0 when it has no digits.
unsigned ProfileInt(const char* section, const char* key, unsigned def);

// The decimal number at the start of a text, read as ProfileInt reads one.
unsigned ProfileNumber(const std::string& text);

// The locale's negative-number style: key "iNegNumber" of section "intl".
// False (the locale could not be read) when the profile has no such value.
bool LocaleNegativeNumber(std::string& out);
