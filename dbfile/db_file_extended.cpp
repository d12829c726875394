// Extended retrieval of CDbFile: selected fields, filter terms and the record
// lists of the engine's Get Next and Get Previous Extended operations.
#include <cstring>
#include <memory>

#include "dbfile/db_file.h"
#include "dbfile/extended.h"
#include "platform/ui_host.h"
#include "recman/recman.h"

namespace {

constexpr uint8_t kWithField = 64;  // the value is another field's offset
constexpr uint8_t kCaseInsensitive = 128;
constexpr uint32_t kEntryHeader = 6;  // a list entry: data length (2), position (4)

uint16_t Load16(const char* p) {
    return uint16_t(uint8_t(p[0]) | (uint8_t(p[1]) << 8));
}

uint32_t Load32(const char* p) {
    return uint32_t(Load16(p)) | (uint32_t(Load16(p + 2)) << 16);
}

// A positioning list operation examines the record it positioned on first.
class UseCurrentDuring {
  public:
    explicit UseCurrentDuring(CExtended& x) : x_(x), was_(x.m_bUseCurrent) { x.m_bUseCurrent = 1; }
    ~UseCurrentDuring() { x_.m_bUseCurrent = was_; }
    UseCurrentDuring(const UseCurrentDuring&) = delete;
    UseCurrentDuring& operator=(const UseCurrentDuring&) = delete;

  private:
    CExtended& x_;
    uint16_t was_;
};

}  // namespace

int CDbFile::SelectField(unsigned short fieldId, unsigned short length) {
    if (!m_FldList.FindByFldId(fieldId)) return 0;
    if (m_pFilter->DescriptorLength() + 4 > CExtended::kMaxDescriptor) return 0;
    auto* e = new ExtFldElem;
    e->m_Offset = m_FldList.GetFldOffset();
    e->m_Length = length ? length : m_FldList.GetFldLen();
    e->m_FldId = fieldId;
    m_pFilter->AddField(e);
    return 1;
}

int CDbFile::DeselectField(unsigned short fieldId) {
    ExtFldList& fields = m_pFilter->m_Fields;
    // The search begins at the current element, when there is one.
    LLPosition& p = fields.m_Pos;
    ListElem* e = fields.m_pCur ? (p.at = fields.m_pCur) : fields.First(p);
    for (; e; e = fields.Next(p))
        if (static_cast<ExtFldElem*>(e)->m_FldId == fieldId) break;
    fields.m_pCur = nullptr;
    p = {};
    if (!e) return 0;
    fields.Delete(e);
    return 1;
}

void CDbFile::ResetFields(int wholeRecord) {
    m_pFilter->ResetFields();
    if (!wholeRecord || !m_FldList.Last()) return;
    auto* e = new ExtFldElem;
    e->m_Offset = 0;
    e->m_Length = uint16_t(m_FldList.GetFldOffset() + m_FldList.GetFldLen());
    e->m_FldId = m_FldList.GetFldId();
    m_pFilter->m_Fields.Add(e);
}

ExtTrmElem* CDbFile::NewTerm(dbRelOp op, dbLogicOp logic, int caseSensitive, bool withField) {
    auto* t = new ExtTrmElem;
    t->m_Type = uint8_t(CvtDbTypeToBtrType(m_FldList.GetFldType(), GetFileType()));
    t->m_Length = m_FldList.GetFldLen();
    t->m_Offset = m_FldList.GetFldOffset();
    t->m_Code = uint8_t(op + 1);
    if (withField) t->m_Code |= kWithField;
    if ((t->m_Type == BtrString || t->m_Type == BtrZString) && !caseSensitive)
        t->m_Code |= kCaseInsensitive;
    t->m_Connector = uint8_t(logic);
    t->m_bIsField = withField;
    return t;
}

int CDbFile::AddTerm(unsigned short fieldId, dbRelOp op, const void* value, dbLogicOp logic,
                     int caseSensitive) {
    if (!value || op < dbRelEqual || op > dbRelLessEqual) return 0;
    if (!m_FldList.FindByFldId(fieldId)) return 0;
    uint16_t length = m_FldList.GetFldLen();
    if (m_pFilter->DescriptorLength() + 7 + length > CExtended::kMaxDescriptor) return 0;
    std::unique_ptr<ExtTrmElem> t(NewTerm(op, logic, caseSensitive, false));
    const auto* v = static_cast<const uint8_t*>(value);
    t->m_Value.assign(v, v + length);
    m_pFilter->AddTerm(t.release());
    return 1;
}

int CDbFile::AddTerm(unsigned short fieldId, dbRelOp op, unsigned short otherFieldId,
                     dbLogicOp logic, int caseSensitive) {
    if (op < dbRelEqual || op > dbRelLessEqual) return 0;
    if (!m_FldList.FindByFldId(otherFieldId)) return 0;
    uint16_t other = m_FldList.GetFldOffset();
    if (!m_FldList.FindByFldId(fieldId)) return 0;
    if (m_pFilter->DescriptorLength() + 9 > CExtended::kMaxDescriptor) return 0;
    ExtTrmElem* t = NewTerm(op, logic, caseSensitive, true);
    t->m_Value = {uint8_t(other), uint8_t(other >> 8)};
    m_pFilter->AddTerm(t);
    return 1;
}

void CDbFile::ResetTerms() {
    m_pFilter->ResetTerms();
}

int CDbFile::SetFilterOptions(unsigned short maxRecords, int useCurrent,
                              unsigned short rejectCount) {
    m_pFilter->m_nMaxRecords = maxRecords;
    m_pFilter->m_bUseCurrent = useCurrent ? 1 : 0;
    m_pFilter->m_nRejectCount = rejectCount;
    return SetDataLen(m_pFilter->RequiredDataLength());
}

unsigned short CDbFile::RunList(int op, int lock) {
    CExtended& x = *m_pFilter;
    uint16_t useCurrent = x.m_bUseCurrent;
    SetDataLen(x.RequiredDataLength());
    // Intermediate statuses show nothing; the final one is reported below.
    int override = m_bErrOverride;
    m_bErrOverride = 1;
    x.BuildDescriptor(reinterpret_cast<uint8_t*>(m_pRcdBuf));
    int status = GetLogical(op, lock, 0);
    bool waiting = false;
    while (status == RM_REJECT_COUNT_REACHED) {
        // Nothing qualified within the reject count: go on from the record
        // the engine stopped on. With a reject count of 1 that record would
        // be the only one examined again, forever, so the scan starts after it.
        if (!waiting) {
            GetUiHost().BeginWaitCursor();
            waiting = true;
        }
        x.m_bUseCurrent = x.m_nRejectCount == 1 ? 0 : 1;
        x.BuildDescriptor(reinterpret_cast<uint8_t*>(m_pRcdBuf));
        status = GetLogical(op, lock, 0);
    }
    if (waiting) GetUiHost().EndWaitCursor();
    m_bErrOverride = override;
    status = TranslateError(status);
    x.m_bUseCurrent = useCurrent;
    return (status == 0 || status == 9) ? Load16(m_pRcdBuf) : 0;
}

unsigned short CDbFile::GetNextList(HWND, int lock) {
    return RunList(RM_GET_NEXT_EXTENDED, lock);
}

unsigned short CDbFile::GetPrevList(HWND, int lock) {
    return RunList(RM_GET_PREVIOUS_EXTENDED, lock);
}

unsigned short CDbFile::GetFirstList(HWND hwnd, int lock) {
    UseCurrentDuring uc(*m_pFilter);
    return GetFirst(hwnd, 0) == 0 ? RunList(RM_GET_NEXT_EXTENDED, lock) : 0;
}

unsigned short CDbFile::GetLastList(HWND hwnd, int lock) {
    UseCurrentDuring uc(*m_pFilter);
    return GetLast(hwnd, 0) == 0 ? RunList(RM_GET_PREVIOUS_EXTENDED, lock) : 0;
}

unsigned short CDbFile::GetUsingList(dbRelOp op, HWND hwnd, int lock) {
    UseCurrentDuring uc(*m_pFilter);
    if (GetUsing(hwnd, op, lock, 0) != 0) return 0;
    bool down = op == dbRelLess || op == dbRelLessEqual;
    return RunList(down ? RM_GET_PREVIOUS_EXTENDED : RM_GET_NEXT_EXTENDED, lock);
}

void* CDbFile::GetRecFromList(unsigned short index, long* position, unsigned short* length) {
    if (length) *length = 0;
    if (!m_pRcdBuf || m_nRcdBufLen < 2) return m_pRcdBuf;
    char* first = m_pRcdBuf + 2;
    if (index > Load16(m_pRcdBuf)) return first;
    // Entries are walked within the buffer only: a count that promises more
    // than the buffer holds gives no record.
    uint32_t at = 2;
    for (unsigned i = 1; i < index; ++i) {
        if (at + kEntryHeader > m_nRcdBufLen) return first;
        at += kEntryHeader + Load16(m_pRcdBuf + at);
    }
    if (at + kEntryHeader > m_nRcdBufLen) return first;
    uint16_t n = Load16(m_pRcdBuf + at);
    if (at + kEntryHeader + n > m_nRcdBufLen) return first;
    if (length) *length = n;
    if (position) *position = long(Load32(m_pRcdBuf + at + 2));
    return m_pRcdBuf + at + kEntryHeader;
}
