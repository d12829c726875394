// CXmlParser: attributes, and adding and removing nodes around the cursor.
#include <libxml/tree.h>

#include <new>
#include <string>

#include "xml/xml_error.h"
#include "xml/xml_nodes.h"
#include "xml/xml_parser.h"

using namespace xmlnodes;

const CString& CXmlParser::GetAttributeName(int i) {
    m_LastError = "CXmlParser::GetAttributeName(int) failed";
    if (i < 0 || i >= m_AttrNames.GetSize()) return m_Empty;
    m_LastError = m_Success;
    return m_AttrNames[i];
}

const CString& CXmlParser::GetAttributeValue(int i) {
    m_LastError = "CXmlParser::GetAttributeValue(int) failed";
    if (i < 0 || i >= m_AttrValues.GetSize()) return m_Empty;
    m_LastError = m_Success;
    return m_AttrValues[i];
}

bool CXmlParser::HasAttribute(const char* name) {
    ZString wanted(name);
    for (int i = 0; i < m_AttrNames.GetSize(); ++i) {
        if (m_AttrNames[i] == wanted.c_str()) {
            m_CurrentAttr = i;
            return true;
        }
    }
    m_CurrentAttr = -1;
    return false;
}

const CString& CXmlParser::GetAttributeValue() {
    if (m_CurrentAttr < 0 || m_CurrentAttr >= m_AttrValues.GetSize()) {
        m_LastError = "CXmlParser::GetAttributeValue() : Can't Retrieve an Attribute";
        return m_LastError;
    }
    m_LastError = m_Success;
    return m_AttrValues[m_CurrentAttr];
}

namespace {

void RequireElement(const xmlNode* node, const char* operation) {
    if (!node)
        throw CXmlError(std::string("CXmlParser::") + operation + ": the document has no element");
    if (node->type != XML_ELEMENT_NODE)
        throw CXmlError(std::string("CXmlParser::") + operation + ": a " + NameOf(node) +
                        " node has no attributes");
}

xmlAttr* FindAttribute(xmlNode* node, const std::string& name) {
    for (xmlAttr* a = node->properties; a; a = a->next)
        if (AttributeName(a) == name) return a;
    return nullptr;
}

}  // namespace

bool CXmlParser::SetAttribute(const char* name, const char* value) {
    Document();
    if (!m_Current && m_Root) MoveTo(m_Root);
    RequireElement(m_Current, "SetAttribute");
    std::string key = Utf8(name);
    CheckName(key);
    std::string text = Utf8(value);
    xmlAttr* a = FindAttribute(m_Current, key);
    if (!(a ? xmlSetNsProp(m_Current, a->ns, a->name, BAD_CAST text.c_str())
            : xmlSetProp(m_Current, BAD_CAST key.c_str(), BAD_CAST text.c_str()))) {
        Fail("CXmlParser::SetAttribute: cannot set \"" + std::string(name ? name : "") + "\"");
    }
    ReadNodeInfo(m_Current);
    return true;
}

bool CXmlParser::RemoveAttribute(const char* name) {
    Document();
    if (!m_Current) {
        m_LastError =
            "CXmlParser::RemoveAttribute(LPCTSTR) : Can't remove attribute on a NULL Node";
        return false;
    }
    RequireElement(m_Current, "RemoveAttribute");
    if (xmlAttr* a = FindAttribute(m_Current, Utf8(name))) xmlRemoveProp(a);
    ReadNodeInfo(m_Current);
    return true;
}

bool CXmlParser::Add(xmlNode* node, Where where, const char* refusal) {
    if (where == Where::Before || where == Where::After) {
        if (IsRoot() || !m_Current || !m_Current->parent) {
            xmlFreeNode(node);
            if (refusal) m_LastError = refusal;
            return false;
        }
        where == Where::Before ? xmlAddPrevSibling(m_Current, node)
                               : xmlAddNextSibling(m_Current, node);
        MoveTo(node);
        return true;
    }
    if (!m_Current) {
        // Into the document itself: only its one element.
        if (node->type != XML_ELEMENT_NODE || m_Root) {
            std::string kind = NameOf(node);
            xmlFreeNode(node);
            throw CXmlError("CXmlParser: the document can hold only one element, not a " + kind +
                            " beside it");
        }
        xmlDocSetRootElement(m_Document, node);
        m_Root = node;
        m_TagChain.Empty();
        MoveTo(node);
        return true;
    }
    if (m_Current->type != XML_ELEMENT_NODE) {
        xmlFreeNode(node);
        throw CXmlError("CXmlParser: a " + NameOf(m_Current) + " node cannot hold children");
    }
    if (where == Where::FirstChild && m_Current->children)
        xmlAddPrevSibling(m_Current->children, node);
    else
        xmlAddChild(m_Current, node);
    PushTag();
    MoveTo(node);
    return true;
}

bool CXmlParser::AddElement(const char* name, Where where, const char* refusal) {
    Document();
    std::string tag = Utf8(name);
    if (where == Where::Before || where == Where::After) {
        if (IsRoot() || !m_Current) {
            if (refusal) m_LastError = refusal;
            return false;
        }
    }
    CheckName(tag);
    xmlNode* node = xmlNewDocNode(m_Document, nullptr, BAD_CAST tag.c_str(), nullptr);
    if (!node) throw std::bad_alloc();
    return Add(node, where, refusal);
}

bool CXmlParser::AddCData(const char* text, Where where, const char* refusal) {
    Document();
    xmlNode* node = xmlNewCDataBlock(m_Document, BAD_CAST "", 0);
    if (!node) throw std::bad_alloc();
    if (!Add(node, where, refusal)) return false;
    return SetTextValue(text);
}

bool CXmlParser::AddNodeBefore(const char* name) {
    return AddElement(name, Where::Before,
                      "CXmlParser::_addBefore() : Can't add node at same level that the root node");
}

bool CXmlParser::AddNodeAfter(const char* name) {
    return AddElement(
        name, Where::After,
        "CXmlParser::AddNodeAfter(LPCTSTR) : Can't add node at same level that the root node");
}

bool CXmlParser::AddFirstChildNode(const char* name) {
    return AddElement(name, Where::FirstChild, nullptr);
}

bool CXmlParser::AddLastChildNode(const char* name) {
    return AddElement(name, Where::LastChild, nullptr);
}

bool CXmlParser::AddCDataBefore(const char* text) {
    return AddCData(
        text, Where::Before,
        "CXmlParser::AddCDataBefore(LPCTSTR) : Can't add node at same level that the root node");
}

bool CXmlParser::AddCDataAfter(const char* text) {
    return AddCData(
        text, Where::After,
        "CXmlParser::AddCDataAfter(LPCTSTR) : Can't add node at same level that the root node");
}

bool CXmlParser::AddFirstChildCData(const char* text) {
    return AddCData(text, Where::FirstChild, nullptr);
}

bool CXmlParser::AddLastChildCData(const char* text) {
    return AddCData(text, Where::LastChild, nullptr);
}

bool CXmlParser::Remove() {
    Document();
    xmlNode* node = m_Current ? m_Current : m_Root;
    if (!node) return false;
    if (node == m_Root) {
        ResetXMLDocument();
        return true;
    }
    xmlNode* parent = node->parent;
    xmlUnlinkNode(node);
    xmlFreeNode(node);
    if (!parent || parent->type != XML_ELEMENT_NODE) {
        // A node beside the document's element: the cursor goes back to it.
        GoToRoot();
        return true;
    }
    MoveTo(parent);
    PopTag();
    return true;
}

bool CXmlParser::RemoveChild(const char* name) {
    Document();
    if (!m_Current || KindOf(m_Current) != Kind::ElementLike) return false;
    int attribute = m_CurrentAttr;
    if (!GoToChild(name)) return false;
    Remove();
    m_CurrentAttr = attribute;
    return true;
}
