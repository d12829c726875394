// CXmlParser: the document's life, loading, saving and the picture of the
// current node.
#include "xml/xml_parser.h"

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlsave.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <new>

#include "platform/cfile.h"
#include "platform/code_page.h"
#include "xml/xml_error.h"
#include "xml/xml_nodes.h"

using namespace xmlnodes;

namespace {

constexpr int kParseOptions =
    XML_PARSE_NOENT | XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;

// Documents name no other file that gets read: external entities and
// subsets stay unloaded.
xmlParserInputPtr RefuseExternal(const char*, const char*, xmlParserCtxtPtr) {
    return nullptr;
}

bool IsBlank(const xmlChar* s) {
    for (; s && *s; ++s)
        if (*s != ' ' && *s != '\t' && *s != '\r' && *s != '\n') return false;
    return true;
}

// White space between elements is layout, not content, unless the document
// asks to keep it (xml:space="preserve").
void DropLayoutText(xmlNode* node) {
    while (node) {
        xmlNode* next = node->next;
        if (node->type == XML_TEXT_NODE && IsBlank(node->content) && node->parent &&
            xmlNodeGetSpacePreserve(node->parent) != 1) {
            xmlUnlinkNode(node);
            xmlFreeNode(node);
        } else if (node->type == XML_ELEMENT_NODE) {
            DropLayoutText(node->children);
        }
        node = next;
    }
}

// The pseudo-attributes of an XML declaration at the start of `bytes`.
bool DeclarationOf(const std::string& bytes, std::string& data) {
    size_t at = bytes.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
    if (bytes.compare(at, 5, "<?xml") != 0 || bytes.size() < at + 6 ||
        !std::strchr(" \t\r\n", bytes[at + 5]))
        return false;
    size_t end = bytes.find("?>", at);
    if (end == std::string::npos) return false;
    data = ZString(bytes.substr(at + 6, end - at - 6)).Trim().str();
    for (char& c : data)
        if (c == '\'') c = '"';
    return true;
}

}  // namespace

CXmlParser::CXmlParser() : m_LastError("Success"), m_Success("Success") {
    xmlInitParser();
}

CXmlParser::~CXmlParser() {
    FreeDocument();
}

void CXmlParser::FreeDocument() {
    if (m_Document) xmlFreeDoc(m_Document);
    m_Document = nullptr;
    m_Root = m_Current = nullptr;
    m_Declaration.reset();
}

xmlDoc* CXmlParser::Document() const {
    if (!m_Document)
        throw CXmlError(
            "CXmlParser: there is no XML document; load one or call ResetXMLDocument first");
    return m_Document;
}

bool CXmlParser::InitMSXML() {
    m_LastError = m_Success;
    FreeDocument();
    m_Document = xmlNewDoc(BAD_CAST "1.0");
    if (!m_Document) throw std::bad_alloc();
    return true;
}

void CXmlParser::ResetXMLDocument() {
    InitMSXML();
    m_Root = m_Current = nullptr;
    m_AttrNames.RemoveAll();
    m_AttrValues.RemoveAll();
    m_CurrentTag.Empty();
    m_CurrentName.Empty();
    m_TagChain.Empty();
    m_TextValue.Empty();
    m_CurrentAttr = -1;
    m_ParseError.Empty();
}

bool CXmlParser::Parse(const std::string& bytes, const char* url, const char* encoding) {
    if (bytes.size() > size_t(INT_MAX)) {
        m_ParseError = "the document is too large";
        return false;
    }
    xmlParserCtxtPtr ctxt = xmlNewParserCtxt();
    if (!ctxt) throw std::bad_alloc();
    int options = kParseOptions | (encoding ? XML_PARSE_IGNORE_ENC : 0);
    xmlExternalEntityLoader loader = xmlGetExternalEntityLoader();
    xmlSetExternalEntityLoader(RefuseExternal);
    xmlDoc* doc = xmlCtxtReadMemory(ctxt, bytes.data(), int(bytes.size()), url, encoding, options);
    xmlSetExternalEntityLoader(loader);
    bool good = doc && ctxt->wellFormed && xmlDocGetRootElement(doc);
    if (!good) {
        const xmlError* e = xmlCtxtGetLastError(ctxt);
        std::string why = e && e->message ? e->message : "the document has no root element";
        while (!why.empty() && why.back() == '\n')
            why.pop_back();
        if (e && e->line > 0) why = "line " + std::to_string(e->line) + ": " + why;
        m_ParseError = Ansi(why);
        if (doc) xmlFreeDoc(doc);
    }
    xmlFreeParserCtxt(ctxt);
    if (!good) return false;

    xmlFreeDoc(m_Document);
    m_Document = doc;
    std::string data;
    if (DeclarationOf(bytes, data)) {
        m_Declaration = data;
    } else if (doc->standalone != -1) {
        // A declaration in an encoding of wider characters: its fields.
        data = "version=\"" + std::string(doc->version ? (const char*)doc->version : "1.0") + "\"";
        if (doc->encoding) data += " encoding=\"" + std::string((const char*)doc->encoding) + "\"";
        if (doc->standalone >= 0)
            data += doc->standalone ? " standalone=\"yes\"" : " standalone=\"no\"";
        m_Declaration = data;
    }
    Loaded();
    return true;
}

void CXmlParser::Loaded() {
    m_Root = xmlDocGetRootElement(m_Document);
    DropLayoutText(m_Document->children);
    m_ParseError.Empty();
    GoToRoot();
}

bool CXmlParser::LoadXMLDocument(const char* path) {
    m_LastError = m_Success;
    ResetXMLDocument();
    std::string bytes;
    try {
        CFile file;
        CFileException error(CFileException::none, 0, "", "");
        if (!file.Open(path, CFile::modeRead | CFile::shareDenyNone, &error)) throw error;
        if (file.GetLength() > uint64_t(INT_MAX))
            throw CFileException(CFileException::generic, 0, path, "the document is too large");
        bytes.resize(size_t(file.GetLength()));
        bytes.resize(file.Read(bytes.data(), unsigned(bytes.size())));
    } catch (const CFileException& e) {
        m_ParseError = e.what();
        m_LastError = "XML Document FAILED to load";
        return false;
    }
    if (!Parse(bytes, path, nullptr)) {
        m_LastError = "XML Document FAILED to load";
        return false;
    }
    return true;
}

void CXmlParser::LoadXMLFromBuffer(const char* text) {
    ResetXMLDocument();
    Parse(Utf8(text), nullptr, "UTF-8");
}

std::string CXmlParser::Serialize(xmlNode* node, const char* encoding, bool declaration) const {
    xmlResetLastError();
    xmlBufferPtr buf = xmlBufferCreate();
    if (!buf) throw std::bad_alloc();
    bool whole = node == reinterpret_cast<xmlNode*>(m_Document);
    int options = declaration ? 0 : XML_SAVE_NO_DECL;
    xmlSaveCtxtPtr save = xmlSaveToBuffer(buf, encoding, options);
    if (!save) {
        xmlBufferFree(buf);
        Fail(std::string("CXmlParser: cannot write the document as ") + encoding);
    }
    long written = whole ? xmlSaveDoc(save, m_Document) : xmlSaveTree(save, node);
    int closed = xmlSaveClose(save);
    std::string out(reinterpret_cast<const char*>(xmlBufferContent(buf)),
                    size_t(xmlBufferLength(buf)));
    xmlBufferFree(buf);
    if (written < 0 || closed < 0) Fail("CXmlParser: cannot write the document");
    return out;
}

std::string CXmlParser::DeclarationText() const {
    return m_Declaration ? "<?xml " + *m_Declaration + "?>\n" : "";
}

bool CXmlParser::SaveXMLDocument(const char* path) {
    xmlDoc* doc = Document();
    std::string encoding = "UTF-8";
    if (m_Declaration) {
        // The declaration as libxml2 writes it: from the document's fields.
        std::string version = "1.0", standalone;
        bool bad = false;
        PseudoAttribute(*m_Declaration, "version", version, bad);
        PseudoAttribute(*m_Declaration, "encoding", encoding, bad);
        PseudoAttribute(*m_Declaration, "standalone", standalone, bad);
        xmlFree(const_cast<xmlChar*>(doc->version));
        doc->version = xmlStrdup(BAD_CAST version.c_str());
        xmlFree(const_cast<xmlChar*>(doc->encoding));
        doc->encoding = xmlStrdup(BAD_CAST encoding.c_str());
        doc->standalone = standalone == "yes" ? 1 : standalone == "no" ? 0 : -2;
    }
    std::string bytes =
        Serialize(reinterpret_cast<xmlNode*>(doc), encoding.c_str(), bool(m_Declaration));
    try {
        CFile file;
        CFileException error(CFileException::none, 0, "", "");
        if (!file.Open(path, CFile::modeWrite | CFile::modeCreate | CFile::shareExclusive, &error))
            throw error;
        for (size_t at = 0; at < bytes.size(); at += 1u << 30)
            file.Write(bytes.data() + at, unsigned(std::min<size_t>(bytes.size() - at, 1u << 30)));
        file.Close();
    } catch (const CFileException& e) {
        throw CXmlError(std::string("CXmlParser::SaveXMLDocument: ") + e.what());
    }
    return true;
}

void CXmlParser::GetXMLDocument(CString& out) {
    std::string body = Serialize(reinterpret_cast<xmlNode*>(Document()), "UTF-8", false);
    out = CString(AnsiFromUtf8(DeclarationText() + body, true));
}

void CXmlParser::GetXML(CString& out) {
    Document();
    out = m_Root ? CString(AnsiFromUtf8(Serialize(m_Root, "UTF-8", false), true)) : CString();
}

void CXmlParser::ReadNodeInfo(xmlNode* node) {
    Kind kind = KindOf(node);
    if (node && kind == Kind::Instruction) return;
    m_AttrNames.RemoveAll();
    m_AttrValues.RemoveAll();
    if (!node) {
        m_CurrentTag.Empty();
        m_CurrentName.Empty();
        m_TextValue.Empty();
        return;
    }
    if (kind == Kind::Text || kind == Kind::CData) {
        m_CurrentTag = kind == Kind::Text ? "<#TEXT#>" : "<#CDATA#>";
        m_CurrentName = "<#CDATA#>";
        m_TextValue = Ansi(ContentOf(node));
        return;
    }
    m_CurrentName = Ansi(NameOf(node));
    m_CurrentTag = CString("<") + m_CurrentName.c_str() + ">";
    m_TextValue.Empty();
    if (node->type != XML_ELEMENT_NODE) return;
    for (xmlNs* ns = node->nsDef; ns; ns = ns->next) {
        std::string name = ns->prefix ? "xmlns:" + std::string((const char*)ns->prefix) : "xmlns";
        m_AttrNames.Add(Ansi(name));
        m_AttrValues.Add(Ansi(ns->href));
    }
    for (xmlAttr* a = node->properties; a; a = a->next) {
        m_AttrNames.Add(Ansi(AttributeName(a)));
        m_AttrValues.Add(Ansi(AttributeValue(a)));
    }
}

void CXmlParser::MoveTo(xmlNode* node) {
    m_Current = node;
    ReadNodeInfo(node);
    m_CurrentAttr = -1;
}

void CXmlParser::PopTag() {
    int at = m_TagChain.ReverseFind('<');
    m_TagChain = at > 0 ? CString(m_TagChain.Left(at)) : CString();
}
