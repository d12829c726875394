#include "xml/xml_nodes.h"

#include <libxml/xmlerror.h>

#include "platform/code_page.h"
#include "xml/xml_error.h"

namespace xmlnodes {

namespace {

std::string Text(const xmlChar* s) {
    return s ? reinterpret_cast<const char*>(s) : "";
}

}  // namespace

Kind KindOf(const xmlNode* node) {
    switch (node ? node->type : XML_ELEMENT_NODE) {
        case XML_TEXT_NODE:
            return Kind::Text;
        case XML_CDATA_SECTION_NODE:
            return Kind::CData;
        case XML_PI_NODE:
            return Kind::Instruction;
        default:
            return Kind::ElementLike;
    }
}

std::string NameOf(const xmlNode* node) {
    if (!node) return "";
    switch (node->type) {
        case XML_ELEMENT_NODE:
            if (node->ns && node->ns->prefix)
                return Text(node->ns->prefix) + ":" + Text(node->name);
            return Text(node->name);
        case XML_TEXT_NODE:
            return "#text";
        case XML_CDATA_SECTION_NODE:
            return "#cdata-section";
        case XML_COMMENT_NODE:
            return "#comment";
        case XML_DOCUMENT_NODE:
        case XML_HTML_DOCUMENT_NODE:
            return "#document";
        default:
            return Text(node->name);
    }
}

xmlNode* FirstChild(const xmlNode* node) {
    if (!node) return nullptr;
    if (node->type == XML_ELEMENT_NODE) return node->children;
    if (node->type == XML_DOCUMENT_NODE) return reinterpret_cast<const xmlDoc*>(node)->children;
    return nullptr;
}

std::string AttributeName(const xmlAttr* attr) {
    if (attr->ns && attr->ns->prefix) return Text(attr->ns->prefix) + ":" + Text(attr->name);
    return Text(attr->name);
}

std::string AttributeValue(const xmlAttr* attr) {
    xmlChar* v = xmlNodeListGetString(attr->doc, attr->children, 1);
    std::string out = Text(v);
    xmlFree(v);
    return out;
}

std::string ContentOf(const xmlNode* node) {
    switch (node->type) {
        case XML_TEXT_NODE:
        case XML_CDATA_SECTION_NODE:
        case XML_COMMENT_NODE:
        case XML_PI_NODE:
            return Text(node->content);
        default:
            return "";
    }
}

std::string Utf8(const char* ansi) {
    return Utf8FromAnsi(ansi ? ansi : "");
}

CString Ansi(const std::string& utf8) {
    return CString(AnsiFromUtf8(utf8));
}

CString Ansi(const xmlChar* utf8) {
    return Ansi(Text(utf8));
}

void CheckName(const std::string& name) {
    if (name.empty() || xmlValidateName(reinterpret_cast<const xmlChar*>(name.c_str()), 0) != 0)
        throw CXmlError("\"" + AnsiFromUtf8(name) + "\" is not a valid XML name");
}

void Fail(const std::string& what) {
    const xmlError* e = xmlGetLastError();
    std::string text = what;
    if (e && e->message) {
        std::string m = e->message;
        while (!m.empty() && (m.back() == '\n' || m.back() == ' '))
            m.pop_back();
        text += ": " + m;
    }
    xmlResetLastError();
    throw CXmlError(text);
}

}  // namespace xmlnodes
