// The extended-retrieval state every record file owns: the filter terms, the
// selected fields and the options of its one-call record lists, and the
// engine descriptor built from them.
#pragma once

#include <cstdint>
#include <vector>

#include "support/link_list.h"

// One filter term, as the engine's descriptor carries it.
class ExtTrmElem : public ListElem {
  public:
    uint8_t m_Type = 0;       // engine key type of the field
    uint16_t m_Length = 0;    // field length
    uint16_t m_Offset = 0;    // field offset
    uint8_t m_Code = 0;       // comparison code
    uint8_t m_Connector = 0;  // dbLogicOp joining it to the next term
    int32_t m_bIsField = 0;   // the value is another field's 2-byte offset
    std::vector<uint8_t> m_Value;

    // Bytes the term takes in a descriptor: its header and its value.
    uint32_t DescriptorSize() const { return 7 + uint32_t(m_Value.size()); }

  protected:
    ListElem* Clone() const override { return new ExtTrmElem(*this); }
};

// One selected field.
class ExtFldElem : public ListElem {
  public:
    uint16_t m_Length = 0;
    uint16_t m_Offset = 0;
    uint16_t m_FldId = 0;

  protected:
    ListElem* Clone() const override { return new ExtFldElem(*this); }
};

class ExtTrmList : public LinkList {
  public:
    ExtTrmElem* m_pCur = nullptr;
    LLPosition m_Pos;
};

class ExtFldList : public LinkList {
  public:
    ExtFldElem* m_pCur = nullptr;
    LLPosition m_Pos;
};

class CExtended {
  public:
    CExtended() = default;
    // A copy has elements of its own and no current elements.
    CExtended(const CExtended& o);
    CExtended& operator=(const CExtended& o);

    ExtTrmList m_Terms;
    ExtFldList m_Fields;
    uint16_t m_nMaxRecords = 20;
    uint16_t m_bUseCurrent = 1;
    uint16_t m_nRejectCount = 0xFFFF;

    // A descriptor carries its own length in 16 bits.
    static constexpr uint32_t kMaxDescriptor = 0xFFFF;

    // Bytes of the descriptor the terms and fields make now.
    uint32_t DescriptorLength() const;
    // Bytes one record of a list carries: the selected fields together.
    uint16_t ExtractLength() const;
    // The record buffer a list needs: the larger of the descriptor and the
    // largest list the options allow (in 16-bit arithmetic, as the engine's
    // data length is counted).
    uint16_t RequiredDataLength() const;
    // Writes the descriptor to `out`, which holds DescriptorLength() bytes.
    void BuildDescriptor(uint8_t* out) const;

    void AddTerm(ExtTrmElem* e);
    void AddField(ExtFldElem* e);
    void ResetTerms();
    void ResetFields();
};
