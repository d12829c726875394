// CXmlParser: processing instructions, and the XML declaration, which the
// parser keeps as the text of an instruction named "xml".
#include <libxml/encoding.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <string>

#include "xml/xml_error.h"
#include "xml/xml_nodes.h"
#include "xml/xml_parser.h"

using namespace xmlnodes;

namespace {

const std::string kVersion = "version=\"1.0\"";

// Whether libxml2 takes `data` as the text of an XML declaration, and
// knows its encoding.
bool IsDeclaration(const std::string& data) {
    std::string text = "<?xml " + data + "?><a/>";
    xmlDoc* doc = xmlReadMemory(
        text.data(), int(text.size()), nullptr, nullptr,
        XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_NONET | XML_PARSE_IGNORE_ENC);
    if (!doc) return false;
    xmlFreeDoc(doc);
    std::string encoding;
    bool bad = false;
    if (!CXmlParser::PseudoAttribute(data, "encoding", encoding, bad)) return !bad;
    xmlCharEncodingHandler* handler = xmlFindCharEncodingHandler(encoding.c_str());
    if (!handler) return false;
    xmlCharEncCloseFunc(handler);
    return true;
}

bool IsInstruction(const std::string& target, const std::string& data) {
    if (target.size() == 3 && (target[0] | 0x20) == 'x' && (target[1] | 0x20) == 'm' &&
        (target[2] | 0x20) == 'l')
        return false;
    return !target.empty() &&
           xmlValidateName(reinterpret_cast<const xmlChar*>(target.c_str()), 0) == 0 &&
           target.find(':') == std::string::npos && data.find("?>") == std::string::npos;
}

}  // namespace

bool CXmlParser::PseudoAttribute(const std::string& data, const std::string& attribute,
                                 std::string& value, bool& bad) {
    bad = false;
    size_t at = data.find(attribute);
    if (attribute.empty() || at == std::string::npos) return false;
    size_t open = data.find('"', at + attribute.size());
    size_t close = open == std::string::npos ? open : data.find('"', open + 1);
    if (close == std::string::npos) {
        bad = true;
        return false;
    }
    value = data.substr(open + 1, close - open - 1);
    return true;
}

bool CXmlParser::FindInstruction(const std::string& target, std::string& data,
                                 xmlNode*& node) const {
    node = nullptr;
    if (target == "xml") {
        if (!m_Declaration) return false;
        data = *m_Declaration;
        return true;
    }
    for (xmlNode* n = m_Document->children; n; n = n->next) {
        if (n->type == XML_PI_NODE && NameOf(n) == target) {
            node = n;
            data = ContentOf(n);
            return true;
        }
    }
    return false;
}

bool CXmlParser::GetHeader(const char* target, const char* attribute, CString& value) {
    value.Empty();
    if (!m_Document) {
        m_LastError = "CXmlParser::GetHeader() : The XML Document is a null pointer";
        return false;
    }
    std::string data, found;
    xmlNode* node;
    if (!FindInstruction(Utf8(target), data, node)) return false;
    bool bad = false;
    if (!PseudoAttribute(data, Utf8(attribute), found, bad)) {
        if (bad) m_LastError = "CXmlParser::GetHeader() : bad value structure";
        return false;
    }
    value = Ansi(found);
    return true;
}

bool CXmlParser::SetHeader(const char* target, const char* attribute, const char* value) {
    Document();
    std::string name = Utf8(target), key = Utf8(attribute), text = Utf8(value);
    bool declaration = name == "xml";
    std::string data;
    xmlNode* old = nullptr;
    if (!FindInstruction(name, data, old)) {
        data = key + "=\"" + text + "\"";
        if (declaration && key != "version") data = kVersion + " " + data;
        return PutInstruction(name, data, nullptr,
                              "PARSER_XML::SetHeader() : Can't create new Processing node");
    }

    size_t at = key.empty() ? std::string::npos : data.find(key);
    if (at != std::string::npos) {
        size_t open = data.find('"', at + key.size());
        size_t close = open == std::string::npos ? open : data.find('"', open + 1);
        if (close == std::string::npos) {
            m_LastError = "CXmlParser::SetHeader() : bad value structure";
            return false;
        }
        data.replace(open + 1, close - open - 1, text);
    } else {
        if (declaration && data.find("version") == std::string::npos) data = kVersion + " " + data;
        if (key != "version") {
            std::string pair = " " + key + "=\"" + text + "\" ";
            size_t standalone = data.find("standalone");
            if (standalone != std::string::npos)
                data.insert(standalone, pair);
            else
                data += pair;
        }
    }
    return PutInstruction(
        name, data, old,
        "CXmlParser::SetHeader() : Can't create the new processing instruction node");
}

bool CXmlParser::PutInstruction(const std::string& target, const std::string& data, xmlNode* old,
                                const char* refusal) {
    bool declaration = target == "xml";
    if (declaration ? !IsDeclaration(data) : !IsInstruction(target, data)) {
        m_LastError = refusal;
        return false;
    }
    if (declaration) {
        m_Declaration = data;
        return true;
    }
    xmlNode* pi = xmlNewDocPI(m_Document, BAD_CAST target.c_str(), BAD_CAST data.c_str());
    if (!pi) throw std::bad_alloc();
    if (old) {
        xmlReplaceNode(old, pi);
        if (m_Current == old) m_Current = pi;
        xmlFreeNode(old);
    } else if (m_Document->children) {
        xmlAddPrevSibling(m_Document->children, pi);
    } else {
        xmlAddChild(reinterpret_cast<xmlNode*>(m_Document), pi);
    }
    return true;
}
