// Typed text into a field's stored form, for every type, length and number
// of decimal places, then back to plain and display text: nothing may be
// written past the field, and nothing read past it.
#include <dbfile/dbfile.h>

#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    auto type = dbFieldType(data[0] % 16);
    int length = data[1] % 24;
    int places = int(data[2] % 12) - 1;
    auto display = dbDispCode(data[3] % 18);
    std::string text(reinterpret_cast<const char*>(data + 4), size - 4);
    // The field sits in its own heap block, so that a write or read past it
    // is caught.
    std::vector<char> field(static_cast<size_t>(length));
    CDbFile::FormatStringToFileData(text.c_str(), field.data(), length, type, places);
    CString out;
    CDbFile::FormatFileDataToString(out, field.data(), length, type, places);
    CDbFile::FormatFileDataToDisplay(out, field.data(), length, type, display, places, nullptr, 0);
    // And the raw input as stored bytes.
    std::vector<char> raw(text.begin(),
                          text.begin() + std::min<size_t>(text.size(), size_t(length)));
    raw.resize(size_t(length));
    CDbFile::FormatFileDataToString(out, raw.data(), length, type, places);
    return 0;
}
