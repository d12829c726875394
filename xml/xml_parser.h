// CXmlParser: reads and builds an XML document through a cursor. One node is
// current; the caller moves the cursor, reads the current node's name, text
// and attributes, and edits around it. Beside the DOM the parser keeps a
// text picture of the cursor (its tag, its name and the chain of its
// ancestors' tags) and a copy of the current node's attributes.
//
// The document is libxml2's; text crosses in the library's 8-bit code page.
// Failures of the parser's own return false and leave a text in
// GetLastError; failures of the DOM raise CXmlError.
#pragma once

#include <optional>
#include <string>

#include "platform/cstring.h"

struct _xmlDoc;
struct _xmlNode;

class CXmlParser {
  public:
    CXmlParser();
    virtual ~CXmlParser();
    CXmlParser(const CXmlParser&) = delete;
    CXmlParser& operator=(const CXmlParser&) = delete;

    // Document.
    void ResetXMLDocument();
    bool LoadXMLDocument(const char* path);
    void LoadXMLFromBuffer(const char* text);
    bool SaveXMLDocument(const char* path);
    void GetXMLDocument(CString& out);
    void GetXML(CString& out);
    const CString& GetLastError() const { return m_LastError; }
    // Why the last load failed, in libxml2's words; empty after a good one.
    const CString& GetParseError() const { return m_ParseError; }

    // Cursor.
    void GoToRoot();
    bool GoToChild();
    bool GoToChild(const char* name);
    bool GoToParent();
    bool GoToParent(const char* name);
    bool GoForward();
    bool GoForward(const char* name);
    bool GoBackward();
    bool GoBackward(const char* name);
    bool GoToDescendant(const char* name);

    // Inspection.
    const CString& GetCurrentTag() const { return m_CurrentTag; }
    const CString& GetCurrentName() const { return m_CurrentName; }
    const CString& GetTagChain() const { return m_TagChain; }
    bool IsTag(const char* tag) const;
    bool IsTextNode() const { return IsTag("<#TEXT#>"); }
    bool IsCDataSection() const { return IsTag("<#CDATA#>"); }
    bool IsRoot() const { return m_TagChain.IsEmpty(); }
    bool IsChildOf(const char* tag) const;
    const CString& GetTextValue();
    bool SetTextValue(const char* text);

    // Attributes of the current node.
    int GetAttributeCount() const { return m_AttrNames.GetSize(); }
    const CString& GetAttributeName(int i);
    const CString& GetAttributeValue(int i);
    bool HasAttribute(const char* name);
    const CString& GetAttributeValue();
    bool SetAttribute(const char* name, const char* value);
    bool RemoveAttribute(const char* name);

    // Editing.
    bool AddNodeBefore(const char* name);
    bool AddNodeAfter(const char* name);
    bool AddFirstChildNode(const char* name);
    bool AddLastChildNode(const char* name);
    bool AddCDataBefore(const char* text);
    bool AddCDataAfter(const char* text);
    bool AddFirstChildCData(const char* text);
    bool AddLastChildCData(const char* text);
    bool Remove();
    bool RemoveChild(const char* name);

    // Processing instructions; the target "xml" is the XML declaration.
    bool SetHeader(const char* target, const char* attribute, const char* value);
    bool GetHeader(const char* target, const char* attribute, CString& value);

    // The value of `attribute` in the text of a processing instruction: the
    // text between the two double quotes after its name. `bad` tells a
    // name found without them.
    static bool PseudoAttribute(const std::string& data, const std::string& attribute,
                                std::string& value, bool& bad);

  private:
    enum class Where { Before, After, FirstChild, LastChild };

    bool InitMSXML();
    void FreeDocument();
    _xmlDoc* Document() const;  // raises when there is none
    bool Parse(const std::string& bytes, const char* url, const char* encoding);
    void Loaded();
    std::string Serialize(_xmlNode* node, const char* encoding, bool declaration) const;
    std::string DeclarationText() const;

    void ReadNodeInfo(_xmlNode* node);
    void MoveTo(_xmlNode* node);
    void PushTag() { m_TagChain += m_CurrentTag; }
    void PopTag();
    bool Add(_xmlNode* node, Where where, const char* refusal);
    bool AddElement(const char* name, Where where, const char* refusal);
    bool AddCData(const char* text, Where where, const char* refusal);
    // The text of a processing instruction (the declaration for "xml").
    bool FindInstruction(const std::string& target, std::string& data, _xmlNode*& node) const;
    // Puts the instruction's new text in place: the declaration is kept
    // aside, any other instruction replaces `old` or, without one, goes
    // before the document's first node. False, with `refusal` as the last
    // error, when the text does not parse.
    bool PutInstruction(const std::string& target, const std::string& data, _xmlNode* old,
                        const char* refusal);

    CString m_CurrentTag;
    CString m_CurrentName;
    CString m_TagChain;
    CString m_TextValue;
    _xmlDoc* m_Document = nullptr;
    _xmlNode* m_Root = nullptr;
    _xmlNode* m_Current = nullptr;
    CString m_LastError;
    CString m_Success;
    CString m_Empty;
    CStringArray m_AttrNames;
    CStringArray m_AttrValues;
    int m_CurrentAttr = -1;
    // The XML declaration's pseudo-attributes, when the document has one.
    std::optional<std::string> m_Declaration;
    CString m_ParseError;
};
