// Helpers over libxml2's nodes for CXmlParser: how the cursor tells nodes
// apart, their names as the DOM gives them, and text between the library's
// code page and the document's UTF-8.
#pragma once

#include <libxml/tree.h>

#include <string>

#include "platform/cstring.h"

namespace xmlnodes {

enum class Kind { ElementLike, Text, CData, Instruction };

Kind KindOf(const xmlNode* node);
// The DOM's node name: the qualified name of an element, "#text",
// "#cdata-section", "#comment", "#document", the target of a processing
// instruction, the name of a document type. UTF-8.
std::string NameOf(const xmlNode* node);
// The children of an element or of the document; null for any other node.
xmlNode* FirstChild(const xmlNode* node);
// The qualified name of an attribute.
std::string AttributeName(const xmlAttr* attr);
std::string AttributeValue(const xmlAttr* attr);
// Text content of a text, CDATA, comment or instruction node.
std::string ContentOf(const xmlNode* node);

// Between the library's 8-bit text and UTF-8.
std::string Utf8(const char* ansi);
CString Ansi(const std::string& utf8);
CString Ansi(const xmlChar* utf8);

// Raises CXmlError unless `name` (UTF-8) is an XML name.
void CheckName(const std::string& name);
// Raises CXmlError with `what` and libxml2's last message, when it has one.
[[noreturn]] void Fail(const std::string& what);

}  // namespace xmlnodes
