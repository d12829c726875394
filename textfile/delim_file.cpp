#include "textfile/delim_file.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "textfile/delim_split.h"

namespace {

// Bytes read at a time when looking backwards for a line's start.
constexpr unsigned kBackBlock = 100;
constexpr uint64_t kNoLine = ~uint64_t(0);

}  // namespace

CDelimFile::CDelimFile() {
    m_FieldStarts.reserve(50);
}

CDelimFile::~CDelimFile() = default;

int CDelimFile::Open(Path path) {
    m_Line.Empty();
    m_LineEnd = kNoLine;
    m_FieldCount = -1;
    m_LineNumber = 0;
    return m_File.Open(path, CFile::modeRead | CFile::typeText | CFile::shareDenyNone);
}

int CDelimFile::Next() {
    try {
        if (!m_File.IsOpen() || m_File.GetPosition() >= m_File.GetLength()) return 0;
        if (m_LineNumber >= 0) ++m_LineNumber;
        m_FieldCount = -1;
        uint64_t before = m_File.GetPosition();
        m_LineEnd = kNoLine;
        bool read = m_File.ReadString(m_Line);
        // Never stay in place: a read that took nothing steps over a byte.
        if (m_File.GetPosition() == before) {
            m_File.Seek(1, CFile::current);
            read = m_File.ReadString(m_Line);
            ++before;
        }
        if (!read) return 0;
        m_LineStart = before;
        m_LineEnd = m_File.GetPosition();
        m_Line.Trim();
        return 1;
    } catch (const CFileException&) {
        return 0;
    }
}

int CDelimFile::NextNotEmpty() {
    int read;
    do {
        read = Next();
    } while (read && m_Line.IsEmpty());
    return read;
}

void CDelimFile::SeekLineBefore() {
    // Counting line ends backwards from the position: the first ends the
    // current line, the second the one before it, and the third the line
    // before that, after which the wanted line starts. The last line of a
    // file may have no end of its own; the file's end stands for it.
    uint64_t pos = m_File.GetPosition();
    int found = 0;
    if (pos == m_LineEnd) {
        // The current line was read from here: it holds no line end but
        // its own, so counting goes on from its start.
        pos = m_LineStart;
        found = 1;
    } else if (pos > 0 && pos >= m_File.GetLength()) {
        char last = 0;
        m_File.Seek(int64_t(pos) - 1, CFile::begin);
        if (m_File.Read(&last, 1) == 1 && last != '\n') found = 1;
    }
    char block[kBackBlock];
    while (pos > 0) {
        unsigned size = unsigned(std::min<uint64_t>(kBackBlock, pos));
        uint64_t start = pos - size;
        m_File.Seek(int64_t(start), CFile::begin);
        size_t left = m_File.Read(block, size);
        while (const void* lf = memrchr(block, '\n', left)) {
            left = size_t(static_cast<const char*>(lf) - block);
            if (++found == 3) {
                m_File.Seek(int64_t(start + left + 1), CFile::begin);
                return;
            }
        }
        pos = start;
    }
    m_File.SeekToBegin();
}

bool CDelimFile::Prev() {
    try {
        if (!m_File.IsOpen() || m_LineNumber == 1 || m_File.GetPosition() == 0) return false;
        if (m_LineNumber > 0) --m_LineNumber;
        SeekLineBefore();
        if (m_File.GetPosition() == 0)
            m_LineNumber = 0;
        else if (m_LineNumber >= 1)
            --m_LineNumber;
        return Next() == 1;
    } catch (const CFileException&) {
        return false;
    }
}

bool CDelimFile::PrevNotEmpty() {
    bool read;
    do {
        read = Prev();
    } while (read && m_Line.IsEmpty());
    return read;
}

int CDelimFile::Top() {
    try {
        if (!m_File.IsOpen()) return 0;
        m_LineNumber = 0;
        m_File.SeekToBegin();
        return Next();
    } catch (const CFileException&) {
        return 0;
    }
}

bool CDelimFile::Bottom() {
    if (GetLength() == 0) return false;
    while (Next()) {
    }
    return true;
}

void CDelimFile::ParseFields() {
    m_FieldCount = SplitDelimitedLine(m_Line.GetBuffer(), m_Line.Length(), m_FieldStarts);
}

int CDelimFile::FieldCnt() {
    if (m_FieldCount < 0) ParseFields();
    return m_FieldCount;
}

const char* CDelimFile::Field(int n) {
    if (n < 1 || n > FieldCnt())
        throw CInvalidArgException("CDelimFile::Field: no field " + std::to_string(n) +
                                   " in a line of " + std::to_string(m_FieldCount));
    return m_Line.c_str() + m_FieldStarts[size_t(n - 1)];
}

bool CDelimFile::VerifyFormat() {
    if (!m_File.IsOpen()) return false;
    if (GetLength() < 2) return true;
    return Top() && FieldCnt() > 1;
}

unsigned long CDelimFile::GetPosition() {
    return m_File.IsOpen() ? m_File.GetPosition() : 0;
}

void CDelimFile::SetPosition(unsigned long pos) {
    m_LineNumber = -1;
    m_LineEnd = kNoLine;
    try {
        if (m_File.IsOpen()) m_File.Seek(int64_t(pos), CFile::begin);
    } catch (const CFileException&) {
    }
}

unsigned long CDelimFile::GetLength() {
    try {
        return m_File.IsOpen() ? m_File.GetLength() : 0;
    } catch (const CFileException&) {
        return 0;
    }
}
