// Building and changing a document around the cursor.
#include <dbfile/dbfile.h>
#include <gtest/gtest.h>

#include <string>

namespace {

std::string Xml(CXmlParser& x) {
    CString out;
    x.GetXML(out);
    return out.str();
}

const char* kAtRoot = "Can't add node at same level that the root node";

TEST(XmlEditTest, ANewDocumentIsBuiltFromItsElement) {
    CXmlParser x;
    x.ResetXMLDocument();
    EXPECT_EQ(Xml(x), "");
    ASSERT_TRUE(x.AddLastChildNode("Doc"));  // the document's element
    EXPECT_TRUE(x.IsRoot());
    ASSERT_TRUE(x.AddFirstChildNode("B"));  // no children yet: the last one
    EXPECT_EQ(x.GetTagChain(), "<Doc>");
    ASSERT_TRUE(x.AddNodeBefore("A"));
    ASSERT_TRUE(x.AddNodeAfter("A2"));
    EXPECT_EQ(x.GetTagChain(), "<Doc>");
    ASSERT_TRUE(x.GoToParent());
    ASSERT_TRUE(x.AddLastChildNode("D"));
    ASSERT_TRUE(x.AddNodeBefore("C"));
    ASSERT_TRUE(x.GoForward());
    ASSERT_TRUE(x.AddNodeAfter("E"));  // after the last child: appended
    ASSERT_TRUE(x.AddFirstChildNode("E1"));
    EXPECT_EQ(x.GetTagChain(), "<Doc><E>");
    ASSERT_TRUE(x.SetTextValue("text"));
    EXPECT_EQ(Xml(x), "<Doc><A/><A2/><B/><C/><D/><E><E1>text</E1></E></Doc>");
    x.GoToRoot();
    ASSERT_TRUE(x.AddFirstChildNode("First"));
    EXPECT_EQ(Xml(x), "<Doc><First/><A/><A2/><B/><C/><D/><E><E1>text</E1></E></Doc>");
}

TEST(XmlEditTest, NothingGoesBesideTheRoot) {
    CXmlParser x;
    x.LoadXMLFromBuffer("<Doc/>");
    EXPECT_FALSE(x.AddNodeBefore("X"));
    EXPECT_EQ(x.GetLastError().str(), std::string("CXmlParser::_addBefore() : ") + kAtRoot);
    EXPECT_FALSE(x.AddNodeAfter("X"));
    EXPECT_EQ(x.GetLastError().str(),
              std::string("CXmlParser::AddNodeAfter(LPCTSTR) : ") + kAtRoot);
    EXPECT_FALSE(x.AddCDataAfter("X"));
    EXPECT_EQ(x.GetLastError().str(),
              std::string("CXmlParser::AddCDataAfter(LPCTSTR) : ") + kAtRoot);
    EXPECT_FALSE(x.AddCDataBefore("X"));
    EXPECT_EQ(x.GetLastError().str(),
              std::string("CXmlParser::AddCDataBefore(LPCTSTR) : ") + kAtRoot);
    EXPECT_EQ(Xml(x), "<Doc/>");
    // Nor beside an element just made the root.
    x.ResetXMLDocument();
    ASSERT_TRUE(x.AddLastChildNode("One"));
    EXPECT_FALSE(x.AddNodeAfter("Two"));
}

TEST(XmlEditTest, CDataSectionsHoldMarkupAsText) {
    CXmlParser x;
    x.LoadXMLFromBuffer("<Doc><Item/></Doc>");
    ASSERT_TRUE(x.AddLastChildCData("a < b & c"));
    EXPECT_TRUE(x.IsCDataSection());
    EXPECT_EQ(x.GetTextValue(), "a < b & c");
    EXPECT_EQ(x.GetTagChain(), "<Doc>");
    ASSERT_TRUE(x.AddCDataBefore("before"));
    ASSERT_TRUE(x.AddCDataAfter("after"));
    ASSERT_TRUE(x.GoToChild("Item") == false);  // a CDATA section has no children
    ASSERT_TRUE(x.GoBackward("Item"));
    ASSERT_TRUE(x.AddFirstChildCData("inside"));
    EXPECT_EQ(x.GetTagChain(), "<Doc><Item>");
    EXPECT_EQ(Xml(x),
              "<Doc><Item><![CDATA[inside]]></Item><![CDATA[before]]><![CDATA[after]]>"
              "<![CDATA[a < b & c]]></Doc>");
    ASSERT_TRUE(x.SetTextValue("changed"));
    EXPECT_EQ(x.GetTextValue(), "changed");
}

TEST(XmlEditTest, TextIsSetOnTheFirstTextChildOrAdded) {
    CXmlParser x;
    x.LoadXMLFromBuffer("<Doc><A>old<b/>tail</A><B><c/></B></Doc>");
    ASSERT_TRUE(x.GoToChild("A"));
    ASSERT_TRUE(x.SetTextValue("new & <escaped>"));
    ASSERT_TRUE(x.GoForward());
    ASSERT_TRUE(x.SetTextValue("added"));
    ASSERT_TRUE(x.GoToChild());
    ASSERT_TRUE(x.GoForward());
    EXPECT_TRUE(x.IsTextNode());
    ASSERT_TRUE(x.SetTextValue("again"));
    EXPECT_EQ(x.GetTextValue(), "again");
    EXPECT_EQ(Xml(x), "<Doc><A>new &amp; &lt;escaped&gt;<b/>tail</A><B><c/>again</B></Doc>");

    x.ResetXMLDocument();
    EXPECT_FALSE(x.SetTextValue("x"));
    EXPECT_EQ(x.GetLastError(),
              "CXmlParser::SetTextValue(LPCTSTR) : Can't set a Text on a NULL Node");
    EXPECT_EQ(x.GetTextValue(), "");
    EXPECT_EQ(x.GetLastError(), "CXmlParser::GetTextValue() Can't set text on NULL node");
}

TEST(XmlEditTest, AttributesAreSetReplacedAndRemoved) {
    CXmlParser x;
    x.LoadXMLFromBuffer("<Doc a=\"1\"><Item/></Doc>");
    ASSERT_TRUE(x.SetAttribute("b", "x \"quoted\" & <more>"));
    ASSERT_TRUE(x.SetAttribute("a", "2"));
    EXPECT_EQ(x.GetAttributeCount(), 2);
    EXPECT_EQ(x.GetAttributeValue(0), "2");
    EXPECT_EQ(x.GetAttributeValue(1), "x \"quoted\" & <more>");
    ASSERT_TRUE(x.HasAttribute("b"));
    ASSERT_TRUE(x.RemoveAttribute("a"));
    ASSERT_TRUE(x.RemoveAttribute("never there"));
    EXPECT_EQ(x.GetAttributeCount(), 1);
    EXPECT_EQ(Xml(x), "<Doc b=\"x &quot;quoted&quot; &amp; &lt;more&gt;\"><Item/></Doc>");

    ASSERT_TRUE(x.GoToChild());
    EXPECT_THROW(x.SetAttribute("bad name", "v"), CXmlError);
    EXPECT_THROW(x.SetAttribute("", "v"), CXmlError);
    ASSERT_TRUE(x.SetTextValue("t"));
    ASSERT_TRUE(x.GoToChild());
    EXPECT_THROW(x.SetAttribute("a", "v"), CXmlError);  // a text node
    EXPECT_THROW(x.RemoveAttribute("a"), CXmlError);

    x.ResetXMLDocument();
    EXPECT_FALSE(x.RemoveAttribute("a"));
    EXPECT_EQ(x.GetLastError(),
              "CXmlParser::RemoveAttribute(LPCTSTR) : Can't remove attribute on a NULL Node");
    EXPECT_THROW(x.SetAttribute("a", "v"), CXmlError);  // no element at all
}

TEST(XmlEditTest, SetAttributeWithoutACurrentNodeUsesTheRoot) {
    CXmlParser x;
    x.LoadXMLFromBuffer("<Doc><Item/></Doc>");
    ASSERT_TRUE(x.GoToChild());
    ASSERT_TRUE(x.Remove());
    ASSERT_TRUE(x.SetAttribute("k", "v"));
    EXPECT_EQ(Xml(x), "<Doc k=\"v\"/>");
}

TEST(XmlEditTest, RemovingNodes) {
    CXmlParser x;
    x.LoadXMLFromBuffer("<Doc a=\"1\"><A><A1/></A><B/><C/></Doc>");
    ASSERT_TRUE(x.GoToDescendant("A1"));
    ASSERT_TRUE(x.Remove());
    EXPECT_EQ(x.GetCurrentTag(), "<A>");
    EXPECT_EQ(x.GetTagChain(), "<Doc>");
    x.GoToRoot();
    ASSERT_TRUE(x.HasAttribute("a"));
    ASSERT_TRUE(x.RemoveChild("B"));
    EXPECT_TRUE(x.IsRoot());
    EXPECT_EQ(x.GetAttributeValue(), "1");  // the selection stays
    EXPECT_FALSE(x.RemoveChild("B"));
    EXPECT_EQ(Xml(x), "<Doc a=\"1\"><A/><C/></Doc>");
    ASSERT_TRUE(x.Remove());  // the root: an empty document
    EXPECT_EQ(Xml(x), "");
    EXPECT_EQ(x.GetCurrentTag(), "");
    EXPECT_FALSE(x.Remove());
}

TEST(XmlEditTest, DomRefusalsRaise) {
    CXmlParser x;
    x.LoadXMLFromBuffer("<Doc><A>text</A></Doc>");
    EXPECT_THROW(x.AddLastChildNode("has space"), CXmlError);
    EXPECT_THROW(x.AddLastChildNode("1digit"), CXmlError);
    EXPECT_THROW(x.AddLastChildNode(nullptr), CXmlError);
    ASSERT_TRUE(x.GoToDescendant("#text"));
    EXPECT_THROW(x.AddLastChildNode("X"), CXmlError);
    EXPECT_THROW(x.AddFirstChildCData("X"), CXmlError);
    x.ResetXMLDocument();
    EXPECT_THROW(x.AddLastChildCData("X"), CXmlError);
    try {
        x.AddLastChildNode("a<b");
        FAIL() << "no exception";
    } catch (const CXmlError& e) {
        EXPECT_STREQ(e.what(), "\"a<b\" is not a valid XML name");
    }
    EXPECT_EQ(Xml(x), "");
}

}  // namespace
