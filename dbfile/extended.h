// The extended-retrieval state every record file owns: the filter terms, the
// selected fields and the options of its one-call record lists.
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
    ExtTrmList m_Terms;
    ExtFldList m_Fields;
    uint16_t m_nMaxRecords = 20;
    uint16_t m_bUseCurrent = 1;
    uint16_t m_nRejectCount = 0xFFFF;
};
