// CXmlError: a failure of the XML DOM itself (a bad name, a node that cannot
// take the change, a document that cannot be written, use before any
// document exists), raised to the caller of CXmlParser. what() says what
// failed, with libxml2's own message where it gave one.
#pragma once

#include <stdexcept>
#include <string>

class CXmlError : public std::runtime_error {
  public:
    explicit CXmlError(const std::string& text) : std::runtime_error(text) {}
};
