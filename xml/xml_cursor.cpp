// CXmlParser: moving the cursor and reading the current node.
#include <libxml/tree.h>

#include <new>
#include <string>
#include <vector>

#include "xml/xml_error.h"
#include "xml/xml_nodes.h"
#include "xml/xml_parser.h"

using namespace xmlnodes;

void CXmlParser::GoToRoot() {
    Document();
    MoveTo(m_Root);
    m_TagChain.Empty();
}

bool CXmlParser::GoToChild() {
    Document();
    if (!m_Current || KindOf(m_Current) != Kind::ElementLike) return false;
    xmlNode* child = FirstChild(m_Current);
    if (!child) return false;
    PushTag();
    MoveTo(child);
    return true;
}

bool CXmlParser::GoToChild(const char* name) {
    Document();
    if (!m_Current || KindOf(m_Current) != Kind::ElementLike) return false;
    std::string wanted = Utf8(name);
    for (xmlNode* child = FirstChild(m_Current); child; child = child->next) {
        if (NameOf(child) == wanted) {
            PushTag();
            MoveTo(child);
            return true;
        }
    }
    return false;
}

bool CXmlParser::GoToParent() {
    Document();
    if (IsRoot() || !m_Current || !m_Current->parent) return false;
    MoveTo(m_Current->parent);
    PopTag();
    return true;
}

bool CXmlParser::GoToParent(const char* name) {
    Document();
    if (IsRoot() || !m_Current) return false;
    xmlNode* start = m_Current;
    CString chain = m_TagChain;
    int attribute = m_CurrentAttr;
    std::string wanted = Utf8(name);
    while (!IsRoot() && m_Current->parent) {
        MoveTo(m_Current->parent);
        PopTag();
        if (NameOf(m_Current) == wanted) return true;
    }
    MoveTo(start);
    m_TagChain = chain;
    m_CurrentAttr = attribute;
    return false;
}

namespace {

bool CanStep(const xmlNode* node) {
    Kind kind = KindOf(node);
    return node && (kind == Kind::ElementLike || kind == Kind::CData);
}

}  // namespace

bool CXmlParser::GoForward() {
    Document();
    if (!CanStep(m_Current) || !m_Current->next) return false;
    MoveTo(m_Current->next);
    return true;
}

bool CXmlParser::GoBackward() {
    Document();
    if (!CanStep(m_Current) || !m_Current->prev) return false;
    MoveTo(m_Current->prev);
    return true;
}

bool CXmlParser::GoForward(const char* name) {
    Document();
    if (!CanStep(m_Current)) return false;
    std::string wanted = Utf8(name);
    for (xmlNode* n = m_Current; n; n = n->next) {
        if (NameOf(n) == wanted) {
            MoveTo(n);
            return true;
        }
    }
    return false;
}

bool CXmlParser::GoBackward(const char* name) {
    Document();
    if (!CanStep(m_Current)) return false;
    std::string wanted = Utf8(name);
    for (xmlNode* n = m_Current; n; n = n->prev) {
        if (NameOf(n) == wanted) {
            MoveTo(n);
            return true;
        }
    }
    return false;
}

bool CXmlParser::GoToDescendant(const char* name) {
    Document();
    if (!m_Current) return false;
    std::string wanted = Utf8(name);
    // Depth first, each node before its children; `path` holds the nodes
    // between the current one and the node looked at.
    std::vector<xmlNode*> path;
    xmlNode* n = FirstChild(m_Current);
    while (n) {
        if (NameOf(n) == wanted) {
            PushTag();
            for (xmlNode* step : path)
                m_TagChain += CString("<") + Ansi(NameOf(step)).c_str() + ">";
            MoveTo(n);
            return true;
        }
        if (xmlNode* child = FirstChild(n)) {
            path.push_back(n);
            n = child;
            continue;
        }
        while (!n->next && !path.empty()) {
            n = path.back();
            path.pop_back();
        }
        n = n->next;
    }
    return false;
}

bool CXmlParser::IsTag(const char* tag) const {
    return m_CurrentTag == tag;
}

bool CXmlParser::IsChildOf(const char* tag) const {
    ZString t(tag);
    int at = m_TagChain.Find(t);
    return at >= 0 && at + t.Length() == m_TagChain.Length();
}

const CString& CXmlParser::GetTextValue() {
    Document();
    if (IsTextNode() || IsCDataSection()) return m_TextValue;
    if (!m_Current) {
        m_LastError = "CXmlParser::GetTextValue() Can't set text on NULL node";
        return m_TextValue;
    }
    for (xmlNode* child = FirstChild(m_Current); child; child = child->next) {
        if (child->type == XML_TEXT_NODE) {
            // The child's picture is read, then the node's own again; only
            // the child's text stays.
            ReadNodeInfo(child);
            CString text = m_TextValue;
            ReadNodeInfo(m_Current);
            m_TextValue = text;
            return m_TextValue;
        }
    }
    m_TextValue.Empty();
    return m_TextValue;
}

bool CXmlParser::SetTextValue(const char* text) {
    Document();
    if (!m_Current) {
        m_LastError = "CXmlParser::SetTextValue(LPCTSTR) : Can't set a Text on a NULL Node";
        return false;
    }
    std::string value = Utf8(text);
    Kind kind = KindOf(m_Current);
    if (kind != Kind::ElementLike) {
        xmlNodeSetContent(m_Current, BAD_CAST value.c_str());
        ReadNodeInfo(m_Current);
        return true;
    }
    if (m_Current->type != XML_ELEMENT_NODE)
        throw CXmlError("CXmlParser::SetTextValue: a " + NameOf(m_Current) +
                        " node cannot hold text");
    for (xmlNode* child = m_Current->children; child; child = child->next) {
        if (child->type == XML_TEXT_NODE) {
            xmlNodeSetContent(child, BAD_CAST value.c_str());
            return true;
        }
    }
    xmlNode* node = xmlNewDocText(m_Document, BAD_CAST value.c_str());
    if (!node) throw std::bad_alloc();
    xmlAddChild(m_Current, node);
    return true;
}
