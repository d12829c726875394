// CDelimFile: reads a comma-separated text file line by line, forwards and
// backwards, and splits the current line into fields when they are asked
// for. It never writes the file.
//
// Lines end at LF or CR LF; leading and trailing white space of a line is
// dropped. A lone CR is part of its line in both directions.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/cfile.h"
#include "platform/cstring.h"
#include "support/path.h"

class CDelimFile {
  public:
    CDelimFile();
    virtual ~CDelimFile();
    CDelimFile(const CDelimFile&) = delete;
    CDelimFile& operator=(const CDelimFile&) = delete;

    // Opens read-only, sharing with every other reader.
    int Open(Path path);
    // Reads the following line; 0 at the end.
    int Next();
    int NextNotEmpty();
    // Reads the line before the current one; false on the first line.
    bool Prev();
    bool PrevNotEmpty();
    int Top();
    // Reads to the last line; false for an empty file.
    bool Bottom();

    int FieldCnt();
    // Field n (1-based); a bad n raises CInvalidArgException.
    const char* Field(int n);
    // True for a file under 2 bytes, else when the first line has more than
    // one field.
    bool VerifyFormat();

    unsigned long GetPosition();
    // The next Next reads from `pos`; the line number becomes unknown (-1).
    void SetPosition(unsigned long pos);
    unsigned long GetLength();
    int GetRecNo() { return m_LineNumber; }
    // The current line as read; once its fields have been asked for, they
    // stand in it separated by NULs.
    const CString& GetLine() const { return m_Line; }

  private:
    void ParseFields();
    // Seeks to the start of the line before the current one.
    void SeekLineBefore();

    CString m_Line;  // once split, its fields end at NULs
    CStdioFile m_File;
    int32_t m_FieldCount = -1;
    std::vector<unsigned> m_FieldStarts;
    int32_t m_LineNumber = 0;
    // Where the current line was read from, while the file's position is
    // still just after it (m_LineEnd); spares reading it again backwards.
    uint64_t m_LineStart = 0;
    uint64_t m_LineEnd = ~uint64_t(0);
};
