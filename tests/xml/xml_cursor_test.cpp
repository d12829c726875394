// Moving the cursor through a document and reading the current node.
#include <dbfile/dbfile.h>
#include <gtest/gtest.h>

#include <string>

namespace {

const char* kOrders = R"(<?xml version="1.0"?>
<Doc date="2024-05-01" status="open">
  <!-- exported -->
  <Customer id="7">
    <Name>Smith &amp; Sons</Name>
    <Order no="1"><Line>first</Line><Line>second</Line></Order>
    <Order no="2"><Note><![CDATA[<fragile>]]></Note></Order>
  </Customer>
  <Customer id="8"><Name>Jones</Name></Customer>
  <Total>mixed <b>bold</b> text</Total>
</Doc>)";

class XmlCursorTest : public ::testing::Test {
  protected:
    void SetUp() override { x.LoadXMLFromBuffer(kOrders); }
    CXmlParser x;
};

TEST_F(XmlCursorTest, LoadingLeavesTheCursorOnTheRoot) {
    EXPECT_TRUE(x.IsRoot());
    EXPECT_EQ(x.GetCurrentTag(), "<Doc>");
    EXPECT_EQ(x.GetCurrentName(), "Doc");
    EXPECT_EQ(x.GetLastError(), "Success");
    EXPECT_EQ(x.GetParseError(), "");
    ASSERT_TRUE(x.GoToChild());  // layout white space is not a node
    EXPECT_EQ(x.GetCurrentTag(), "<#comment>");
    EXPECT_EQ(x.GetTagChain(), "<Doc>");
    EXPECT_FALSE(x.IsRoot());
    EXPECT_TRUE(x.IsChildOf("<Doc>"));
}

TEST_F(XmlCursorTest, ChildParentAndSiblingsWithoutNames) {
    EXPECT_FALSE(x.GoToParent());  // at the root
    ASSERT_TRUE(x.GoToChild());
    ASSERT_TRUE(x.GoForward());
    EXPECT_EQ(x.GetCurrentTag(), "<Customer>");
    ASSERT_TRUE(x.GoToChild());
    EXPECT_EQ(x.GetCurrentTag(), "<Name>");
    EXPECT_EQ(x.GetTagChain(), "<Doc><Customer>");
    ASSERT_TRUE(x.GoToChild());
    EXPECT_TRUE(x.IsTextNode());
    EXPECT_EQ(x.GetCurrentName(), "<#CDATA#>");
    EXPECT_EQ(x.GetTextValue(), "Smith & Sons");
    EXPECT_EQ(x.GetTagChain(), "<Doc><Customer><Name>");
    EXPECT_FALSE(x.GoToChild());
    EXPECT_FALSE(x.GoForward());  // a text node does not step
    ASSERT_TRUE(x.GoToParent());
    EXPECT_EQ(x.GetCurrentTag(), "<Name>");
    EXPECT_EQ(x.GetTagChain(), "<Doc><Customer>");
    EXPECT_FALSE(x.GoBackward());
    ASSERT_TRUE(x.GoForward());
    ASSERT_TRUE(x.GoForward());
    ASSERT_TRUE(x.GoForward() == false);
    EXPECT_EQ(x.GetCurrentTag(), "<Order>");
    ASSERT_TRUE(x.GoBackward());
    EXPECT_EQ(x.GetAttributeValue(0), "1");
    ASSERT_TRUE(x.GoToParent());
    ASSERT_TRUE(x.GoToParent());
    EXPECT_TRUE(x.IsRoot());
    EXPECT_EQ(x.GetCurrentTag(), "<Doc>");
}

TEST_F(XmlCursorTest, MovesByName) {
    ASSERT_TRUE(x.GoToChild("Customer"));
    EXPECT_EQ(x.GetAttributeValue(0), "7");
    EXPECT_TRUE(x.GoForward("Customer"));  // the node itself counts
    EXPECT_EQ(x.GetAttributeValue(0), "7");
    ASSERT_TRUE(x.GoForward());
    ASSERT_TRUE(x.GoForward("Total"));
    ASSERT_TRUE(x.GoBackward("Customer"));
    EXPECT_EQ(x.GetAttributeValue(0), "8");
    EXPECT_FALSE(x.GoForward("Nothing"));
    EXPECT_EQ(x.GetAttributeValue(0), "8");
    EXPECT_FALSE(x.GoToChild("Order"));  // the cursor and the chain stay
    EXPECT_EQ(x.GetCurrentTag(), "<Customer>");
    EXPECT_EQ(x.GetTagChain(), "<Doc>");
    ASSERT_TRUE(x.GoBackward("Customer"));
    EXPECT_EQ(x.GetAttributeValue(0), "8");
    ASSERT_TRUE(x.GoBackward());
    ASSERT_TRUE(x.GoBackward());
    EXPECT_FALSE(x.GoBackward("Customer"));
    EXPECT_EQ(x.GetCurrentTag(), "<#comment>");
}

TEST_F(XmlCursorTest, ClimbingByNameStopsAtTheRootOrGoesBack) {
    ASSERT_TRUE(x.GoToDescendant("Line"));
    EXPECT_EQ(x.GetTagChain(), "<Doc><Customer><Order>");
    EXPECT_FALSE(x.GoToParent("Nowhere"));
    EXPECT_EQ(x.GetCurrentTag(), "<Line>");
    EXPECT_EQ(x.GetTagChain(), "<Doc><Customer><Order>");
    ASSERT_TRUE(x.GoToParent("Customer"));
    EXPECT_EQ(x.GetTagChain(), "<Doc>");
    ASSERT_TRUE(x.GoToDescendant("Line"));
    ASSERT_TRUE(x.GoToParent("Doc"));
    EXPECT_TRUE(x.IsRoot());
}

TEST_F(XmlCursorTest, DescendantsDepthFirstInDocumentOrder) {
    ASSERT_TRUE(x.GoToDescendant("Name"));
    EXPECT_EQ(x.GetTextValue(), "Smith & Sons");
    ASSERT_TRUE(x.GoToParent());
    ASSERT_TRUE(x.GoToDescendant("#cdata-section"));
    EXPECT_TRUE(x.IsCDataSection());
    EXPECT_EQ(x.GetCurrentName(), "<#CDATA#>");
    EXPECT_EQ(x.GetTextValue(), "<fragile>");
    EXPECT_EQ(x.GetTagChain(), "<Doc><Customer><Order><Note>");
    EXPECT_FALSE(x.GoToDescendant("Name"));  // nothing below a CDATA section
    x.GoToRoot();
    EXPECT_EQ(x.GetTagChain(), "");
    ASSERT_TRUE(x.GoToDescendant("b"));
    EXPECT_EQ(x.GetTagChain(), "<Doc><Total>");
    x.GoToRoot();
    EXPECT_FALSE(x.GoToDescendant("Doc"));  // only below the current node
    EXPECT_TRUE(x.IsRoot());
}

TEST_F(XmlCursorTest, TextOfAnElementIsItsFirstTextChild) {
    ASSERT_TRUE(x.GoToChild("Total"));
    EXPECT_EQ(x.GetTextValue(), "mixed ");
    EXPECT_EQ(x.GetCurrentTag(), "<Total>");
    x.GoToRoot();
    ASSERT_TRUE(x.GoToDescendant("Note"));
    EXPECT_EQ(x.GetTextValue(), "");  // a CDATA child is not a text child
    x.GoToRoot();
    EXPECT_EQ(x.GetTextValue(), "");
}

TEST_F(XmlCursorTest, AttributesAreCopiedInOrder) {
    EXPECT_EQ(x.GetAttributeCount(), 2);
    EXPECT_EQ(x.GetAttributeName(0), "date");
    EXPECT_EQ(x.GetAttributeValue(1), "open");
    EXPECT_EQ(x.GetLastError(), "Success");
    EXPECT_EQ(x.GetAttributeName(2), "");
    EXPECT_EQ(x.GetLastError(), "CXmlParser::GetAttributeName(int) failed");
    EXPECT_EQ(x.GetAttributeValue(-1), "");
    EXPECT_EQ(x.GetLastError(), "CXmlParser::GetAttributeValue(int) failed");

    EXPECT_EQ(x.GetAttributeValue(),
              "CXmlParser::GetAttributeValue() : Can't Retrieve an Attribute");
    ASSERT_TRUE(x.HasAttribute("status"));
    EXPECT_EQ(x.GetAttributeValue(), "open");
    EXPECT_EQ(x.GetLastError(), "Success");
    EXPECT_FALSE(x.HasAttribute("missing"));
    EXPECT_EQ(x.GetAttributeValue(),
              "CXmlParser::GetAttributeValue() : Can't Retrieve an Attribute");
    ASSERT_TRUE(x.HasAttribute("date"));
    ASSERT_TRUE(x.GoToChild("Customer"));  // any move drops the selection
    EXPECT_EQ(x.GetAttributeValue(), x.GetLastError());
    ASSERT_TRUE(x.GoToChild());
    EXPECT_EQ(x.GetAttributeCount(), 0);
}

TEST_F(XmlCursorTest, ChainTestsLookAtTheFirstOccurrence) {
    CXmlParser p;
    p.LoadXMLFromBuffer("<A><B><A><C/></A></B></A>");
    ASSERT_TRUE(p.GoToDescendant("C"));
    EXPECT_EQ(p.GetTagChain(), "<A><B><A>");
    EXPECT_FALSE(p.IsChildOf("<A>"));  // first found at the start
    EXPECT_FALSE(p.IsChildOf("<B>"));
    EXPECT_TRUE(p.IsChildOf("<B><A>"));
    EXPECT_TRUE(p.IsTag("<C>"));
    EXPECT_FALSE(p.IsTag("C"));
}

TEST_F(XmlCursorTest, InstructionsBesideTheRootKeepThePicture) {
    CXmlParser p;
    p.LoadXMLFromBuffer("<?xml-stylesheet href=\"a.xsl\"?><R a=\"1\"/><!--end-->");
    ASSERT_TRUE(p.GoBackward());
    EXPECT_EQ(p.GetCurrentTag(), "<R>");  // an instruction changes nothing
    EXPECT_EQ(p.GetAttributeValue(0), "1");
    EXPECT_FALSE(p.GoForward());  // nor does it step
    p.GoToRoot();
    ASSERT_TRUE(p.GoForward());
    EXPECT_EQ(p.GetCurrentTag(), "<#comment>");
    EXPECT_FALSE(p.GoToParent());
}

TEST_F(XmlCursorTest, NamesAndTextOutsideAsciiComeInTheCodePage) {
    CXmlParser p;
    p.LoadXMLFromBuffer(
        "<Caf\xE9 \xFC=\"\x80 5\">Cr\xE8"
        "me br\xFBl\xE9"
        "e</Caf\xE9>");
    EXPECT_EQ(p.GetCurrentTag(), "<Caf\xE9>");
    EXPECT_EQ(p.GetAttributeName(0), "\xFC");
    EXPECT_EQ(p.GetAttributeValue(0), "\x80 5");
    EXPECT_EQ(p.GetTextValue(),
              "Cr\xE8"
              "me br\xFBl\xE9"
              "e");
    ASSERT_TRUE(p.HasAttribute("\xFC"));
}

}  // namespace
