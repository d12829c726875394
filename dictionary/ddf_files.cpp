#include "dictionary/ddf_files.h"

#include <algorithm>
#include <cstring>

namespace {

// Moves members to and from their places in a record: Put writes at the
// running offset, Get reads from a copy padded with zeros, so that a record
// shorter than the layout reads its missing fields as zero.
class Packer {
  public:
    Packer(char* rec) : rec_(rec) {}
    template <class T>
    Packer& operator<<(const T& member) {
        std::memcpy(rec_ + at_, &member, sizeof(member));
        at_ += sizeof(member);
        return *this;
    }

  private:
    char* rec_;
    size_t at_ = 0;
};

template <unsigned short N>
class Unpacker {
  public:
    Unpacker(const char* rec, size_t len) { std::memcpy(buf_, rec, std::min<size_t>(len, N)); }
    template <class T>
    Unpacker& operator>>(T& member) {
        std::memcpy(&member, buf_ + at_, sizeof(member));
        at_ += sizeof(member);
        return *this;
    }

  private:
    char buf_[N] = {};
    size_t at_ = 0;
};

// Every write starts from a clean record of the layout's length.
char* StartRecord(CDbFile& f, unsigned short len) {
    f.SetDataLen(len);
    std::memset(f.RcdBuf(), 0, len);
    return f.RcdBuf();
}

// The members add up to the catalogue's record lengths.
static_assert(sizeof(CFileDdf::Id) + sizeof(CFileDdf::SymName) + sizeof(CFileDdf::FileName) +
                  sizeof(CFileDdf::Flags) + sizeof(CFileDdf::Reserved) ==
              CFileDdf::kRecordLength);
static_assert(sizeof(CFieldDdf::Id) + sizeof(CFieldDdf::FileId) + sizeof(CFieldDdf::Name) +
                  sizeof(CFieldDdf::Type) + sizeof(CFieldDdf::Offset) + sizeof(CFieldDdf::Length) +
                  sizeof(CFieldDdf::NumDP) + sizeof(CFieldDdf::Flags) ==
              CFieldDdf::kRecordLength);
static_assert(5 * sizeof(CIndexDdf::FileId) == CIndexDdf::kRecordLength);

}  // namespace

CFileDdf::CFileDdf(const char* path, short clientId) : CDbFile("FILE.DDF", path, 0, clientId) {
    Clear();
}

void CFileDdf::Clear() {
    Id = 0;
    std::memset(SymName, 0, sizeof(SymName));
    std::memset(FileName, 0, sizeof(FileName));
    Flags = 0;
    std::memset(Reserved, 0, sizeof(Reserved));
}

void CFileDdf::OnWriteRecord() {
    Packer(StartRecord(*this, kRecordLength)) << Id << SymName << FileName << Flags << Reserved;
}

void CFileDdf::OnReadRecord() {
    Unpacker<kRecordLength>(RcdBuf(), GetBytesRead()) >> Id >> SymName >> FileName >> Flags >>
        Reserved;
}

CFieldDdf::CFieldDdf(const char* path, short clientId) : CDbFile("FIELD.DDF", path, 0, clientId) {
    Clear();
}

void CFieldDdf::Clear() {
    Id = FileId = Offset = Length = Flags = 0;
    std::memset(Name, 0, sizeof(Name));
    Type = NumDP = 0;
}

void CFieldDdf::OnWriteRecord() {
    Packer(StartRecord(*this, kRecordLength))
        << Id << FileId << Name << Type << Offset << Length << NumDP << Flags;
}

void CFieldDdf::OnReadRecord() {
    Unpacker<kRecordLength>(RcdBuf(), GetBytesRead()) >> Id >> FileId >> Name >> Type >> Offset >>
        Length >> NumDP >> Flags;
}

CIndexDdf::CIndexDdf(const char* path, short clientId) : CDbFile("INDEX.DDF", path, 0, clientId) {
    Clear();
}

void CIndexDdf::Clear() {
    FileId = FieldId = KeyNo = SegmentNo = Flags = 0;
}

void CIndexDdf::OnWriteRecord() {
    Packer(StartRecord(*this, kRecordLength)) << FileId << FieldId << KeyNo << SegmentNo << Flags;
}

void CIndexDdf::OnReadRecord() {
    Unpacker<kRecordLength>(RcdBuf(), GetBytesRead()) >> FileId >> FieldId >> KeyNo >> SegmentNo >>
        Flags;
}
