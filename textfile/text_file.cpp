#include "textfile/text_file.h"

#include <cstring>
#include <utility>

#include "support/date_time.h"

namespace {

constexpr unsigned kOpenFlags = CFile::modeReadWrite | CFile::typeBinary | CFile::shareExclusive;

}  // namespace

CTextFile::CTextFile() : m_File(std::make_shared<CFile>()) {}

CTextFile::~CTextFile() = default;

int CTextFile::Open(Path path, unsigned long recordSize) {
    Release(false);
    if (recordSize == 0 || recordSize > kMaxRecordSize) return 0;
    if (!m_File->Open(path, kOpenFlags)) return 0;
    m_RecordSize = uint32_t(recordSize);
    return Goto(1);
}

int CTextFile::Open(Path folder, const char* name, unsigned long recordSize) {
    folder.SetBackslash(1);
    folder << (name ? name : "");
    return Open(folder, recordSize);
}

int CTextFile::Open(Path folder, const char* name, const char* extension,
                    unsigned long recordSize) {
    ZString file(name ? name : "");
    if (file.IsEmpty() || file.GetAt(file.Length() - 1) != '.') file += ".";
    file += extension ? extension : "";
    return Open(folder, file, recordSize);
}

int CTextFile::Create(Path& path, ZString& first) {
    Release(false);
    if (first.IsEmpty() || static_cast<unsigned long>(first.Length()) > kMaxRecordSize) return 0;
    if (!m_File->Open(path, kOpenFlags | CFile::modeCreate)) return 0;
    m_RecordNum = 1;
    m_Record = first;
    m_RecordSize = uint32_t(first.Length());
    return Write();
}

void CTextFile::Close() {
    Release(true);
}

void CTextFile::Release(bool raise) {
    std::shared_ptr<CFile> old = std::exchange(m_File, std::make_shared<CFile>());
    m_Record.Empty();
    m_RecordSize = 0;
    m_RecordNum = 0;
    // The last holder closes the file, and learns when its records could
    // not all be written.
    if (old.use_count() == 1) raise ? old->Close() : old->Abort();
}

int CTextFile::IsOpen() {
    return m_File->m_hFile != CFile::hFileNull;
}

int CTextFile::Goto(unsigned long n) {
    m_RecordNum = uint32_t(n);
    ClearRcd();
    try {
        if (n != 0 && n <= RcdCount()) {
            m_File->Seek(int64_t(n - 1) * m_RecordSize, CFile::begin);
            std::string text(m_RecordSize, ' ');
            if (m_File->Read(text.data(), m_RecordSize) == m_RecordSize) {
                m_Record = ZString(text);
                return 1;
            }
        }
    } catch (const CFileException&) {
    }
    m_RecordNum = 0;
    ClearRcd();
    return 0;
}

int CTextFile::Next() {
    return Goto(m_RecordNum + 1ul);
}

ZString CTextFile::Fitted(ZString record) const {
    if (record.Length() == int(m_RecordSize)) return record;
    std::string text(m_RecordSize, ' ');
    std::memcpy(text.data(), record.c_str(),
                std::min<size_t>(text.size(), size_t(record.Length())));
    return ZString(text);
}

int CTextFile::Write() {
    if (m_RecordSize == 0 || m_RecordNum == 0) return 0;
    try {
        m_File->Seek(int64_t(m_RecordNum - 1) * m_RecordSize, CFile::begin);
        m_File->Write(m_Record.c_str(), m_RecordSize);
        return 1;
    } catch (const CFileException&) {
        return 0;
    }
}

int CTextFile::Add(ZString record) {
    if (m_RecordSize == 0) return 0;
    try {
        // Records always start at a multiple of the record size, so the
        // position names the record that follows.
        uint64_t at = m_File->GetPosition();
        record = Fitted(std::move(record));
        m_File->Write(record.c_str(), m_RecordSize);
        m_Record = std::move(record);
        m_RecordNum = uint32_t(at / m_RecordSize + 1);
        return 1;
    } catch (const CFileException&) {
        return 0;
    }
}

int CTextFile::Insert(ZString record, unsigned long n) {
    if (!Goto(n)) return 0;
    ZString carried = std::move(record);
    do {
        if (m_Record.str() > carried.str()) {
            std::swap(m_Record, carried);
            if (!Write()) return 0;
        }
    } while (Goto(m_RecordNum + 1ul));
    if (!Goto(RcdCount())) return 0;
    return Add(carried);
}

void CTextFile::ClearRcd() {
    m_Record.Fill(' ', int(m_RecordSize));
}

void CTextFile::ReplMid(int start, int length, const char* text) {
    if (start < 0 || int64_t(start) + length - 1 > m_Record.Length()) throw 0;
    if (length < 1) return;
    size_t given = text ? std::strlen(text) : 0;
    for (int i = 0; i < length; ++i)
        m_Record.SetAt(start + i, size_t(i) < given ? text[i] : ' ');
}

int CTextFile::GetInt(int start, int length) {
    return int(m_Record.Mid(start, length).ToLong());
}

double CTextFile::GetDouble(int start, int length) {
    return m_Record.Mid(start, length).ToDouble();
}

unsigned long CTextFile::GetDate(int start) {
    return Date(Date::FullYear(GetInt(start, 2)), GetInt(start + 2, 2), GetInt(start + 4, 2))
        .Value();
}

void CTextFile::GetString(int start, int length, CString& out) {
    out = m_Record.Mid(start, length).Trim();
}

unsigned long CTextFile::RcdCount() {
    return m_RecordSize ? FileSize() / m_RecordSize : 0;
}

unsigned long CTextFile::FileSize() {
    try {
        return IsOpen() ? m_File->GetLength() : 0;
    } catch (const CFileException&) {
        return 0;
    }
}

CString CTextFile::GetFileName() {
    return m_File->GetFileName();
}

CString CTextFile::GetFilePath() {
    return m_File->GetFilePath();
}

CString CTextFile::GetFileTitle() {
    return m_File->GetFileTitle();
}
