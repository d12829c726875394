// CExtended: the terms, selected fields and options of a record file's
// extended retrieval, and the engine descriptor made of them.
#include "dbfile/extended.h"

#include <cstring>

namespace {

uint8_t* Put16(uint8_t* p, uint16_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
    return p + 2;
}

// Length, signature, reject count and term count; then maximum records and
// field count after the terms.
constexpr uint32_t kFixedPart = 12;
constexpr uint32_t kFieldSize = 4;
constexpr uint32_t kEntryHeader = 6;  // a list entry: length (2), position (4)

}  // namespace

CExtended::CExtended(const CExtended& o)
    : m_Terms(o.m_Terms),
      m_Fields(o.m_Fields),
      m_nMaxRecords(o.m_nMaxRecords),
      m_bUseCurrent(o.m_bUseCurrent),
      m_nRejectCount(o.m_nRejectCount) {
    // The copied lists' cursors would point into the source's elements.
    m_Terms.m_pCur = nullptr;
    m_Terms.m_Pos = {};
    m_Fields.m_pCur = nullptr;
    m_Fields.m_Pos = {};
}

CExtended& CExtended::operator=(const CExtended& o) {
    if (this != &o) {
        m_Terms = o.m_Terms;
        m_Fields = o.m_Fields;
        m_Terms.m_pCur = nullptr;
        m_Terms.m_Pos = {};
        m_Fields.m_pCur = nullptr;
        m_Fields.m_Pos = {};
        m_nMaxRecords = o.m_nMaxRecords;
        m_bUseCurrent = o.m_bUseCurrent;
        m_nRejectCount = o.m_nRejectCount;
    }
    return *this;
}

uint32_t CExtended::DescriptorLength() const {
    uint32_t n = kFixedPart + kFieldSize * uint32_t(m_Fields.Count());
    LLPosition p;
    for (ListElem* e = m_Terms.First(p); e; e = m_Terms.Next(p))
        n += static_cast<ExtTrmElem*>(e)->DescriptorSize();
    return n;
}

uint16_t CExtended::ExtractLength() const {
    uint16_t n = 0;
    LLPosition p;
    for (ListElem* e = m_Fields.First(p); e; e = m_Fields.Next(p))
        n = uint16_t(n + static_cast<ExtFldElem*>(e)->m_Length);
    return n;
}

uint16_t CExtended::RequiredDataLength() const {
    uint16_t list = uint16_t(uint16_t(ExtractLength() + kEntryHeader) * m_nMaxRecords + 2);
    uint32_t descriptor = DescriptorLength();
    return descriptor > list ? uint16_t(descriptor) : list;
}

void CExtended::BuildDescriptor(uint8_t* out) const {
    uint8_t* p = Put16(out, uint16_t(DescriptorLength()));
    *p++ = m_bUseCurrent ? 'U' : 'E';
    *p++ = m_bUseCurrent ? 'C' : 'G';
    p = Put16(p, m_nRejectCount);
    p = Put16(p, uint16_t(m_Terms.Count()));
    LLPosition at;
    for (ListElem* e = m_Terms.First(at); e; e = m_Terms.Next(at)) {
        const auto& t = *static_cast<ExtTrmElem*>(e);
        *p++ = t.m_Type;
        p = Put16(p, t.m_Length);
        p = Put16(p, t.m_Offset);
        *p++ = t.m_Code;
        *p++ = t.m_Connector;
        if (!t.m_Value.empty()) std::memcpy(p, t.m_Value.data(), t.m_Value.size());
        p += t.m_Value.size();
    }
    p = Put16(p, m_nMaxRecords);
    p = Put16(p, uint16_t(m_Fields.Count()));
    for (ListElem* e = m_Fields.First(at); e; e = m_Fields.Next(at)) {
        const auto& f = *static_cast<ExtFldElem*>(e);
        p = Put16(p, f.m_Length);
        p = Put16(p, f.m_Offset);
    }
}

void CExtended::AddTerm(ExtTrmElem* e) {
    m_Terms.Add(e);
    m_Terms.m_pCur = e;
    m_Terms.m_Pos.at = e;
}

void CExtended::AddField(ExtFldElem* e) {
    m_Fields.Add(e);
    m_Fields.m_pCur = e;
    m_Fields.m_Pos.at = e;
}

void CExtended::ResetTerms() {
    m_Terms.Reset();
    m_Terms.m_pCur = nullptr;
    m_Terms.m_Pos = {};
}

void CExtended::ResetFields() {
    m_Fields.Reset();
    m_Fields.m_pCur = nullptr;
    m_Fields.m_Pos = {};
}
