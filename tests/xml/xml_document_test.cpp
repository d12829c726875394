// Whole documents: loading, saving, the declaration and other processing
// instructions, text outside ASCII, and the failures.
#include <dbfile/dbfile.h>
#include <gtest/gtest.h>

#include <string>

#include "textfile/scratch_dir.h"

namespace {

std::string Document(CXmlParser& x) {
    CString out;
    x.GetXMLDocument(out);
    return out.str();
}

class XmlDocumentTest : public ::testing::Test {
  protected:
    ScratchDir dir;
};

TEST_F(XmlDocumentTest, SavedAndReloadedGivesTheSameDocument) {
    CXmlParser x;
    x.ResetXMLDocument();
    ASSERT_TRUE(x.SetHeader("xml", "encoding", "UTF-8"));
    ASSERT_TRUE(x.AddLastChildNode("Invoices"));
    ASSERT_TRUE(x.SetAttribute("company", "Caf\xE9 M\xFCller"));
    ASSERT_TRUE(x.SetHeader("xml-stylesheet", "href", "print.xsl"));
    ASSERT_TRUE(x.AddLastChildNode("Invoice"));
    ASSERT_TRUE(x.SetAttribute("total", "\x80 12.50"));
    ASSERT_TRUE(
        x.SetTextValue("cr\xE8"
                       "me & <br\xFBl\xE9"
                       "e>"));
    ASSERT_TRUE(x.AddLastChildCData("if a < b && c ]]> d"));
    ASSERT_TRUE(x.GoToParent());
    ASSERT_TRUE(x.AddNodeAfter("Invoice"));
    ASSERT_TRUE(x.SetTextValue("  kept  "));
    std::string before = Document(x);
    EXPECT_EQ(before.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n", 0), 0u) << before;

    std::string path = dir.Path("out.xml");
    ASSERT_TRUE(x.SaveXMLDocument(path.c_str()));
    std::string bytes = ScratchDir::Read(path);
    EXPECT_NE(bytes.find("Caf\xC3\xA9 M\xC3\xBCller"), std::string::npos);  // UTF-8 on disk
    EXPECT_NE(bytes.find("\xE2\x82\xAC 12.50"), std::string::npos);

    CXmlParser y;
    ASSERT_TRUE(y.LoadXMLDocument(path.c_str()));
    EXPECT_EQ(Document(y), before);
    ASSERT_TRUE(y.GoToDescendant("Invoice"));
    EXPECT_EQ(y.GetTextValue(),
              "cr\xE8"
              "me & <br\xFBl\xE9"
              "e>");
    EXPECT_EQ(y.GetAttributeValue(0), "\x80 12.50");
    CString company;
    y.GoToRoot();
    EXPECT_EQ(y.GetAttributeValue(0), "Caf\xE9 M\xFCller");
    ASSERT_TRUE(y.GetHeader("xml-stylesheet", "href", company));
    EXPECT_EQ(company, "print.xsl");
}

TEST_F(XmlDocumentTest, TheDeclaredEncodingIsWrittenAndRead) {
    CXmlParser x;
    x.LoadXMLFromBuffer("<?xml version='1.0' encoding='ISO-8859-1'?><R>\xE9t\xE9</R>");
    CString encoding;
    ASSERT_TRUE(x.GetHeader("xml", "encoding", encoding));
    EXPECT_EQ(encoding, "ISO-8859-1");
    std::string path = dir.Path("latin.xml");
    ASSERT_TRUE(x.SaveXMLDocument(path.c_str()));
    EXPECT_NE(ScratchDir::Read(path).find("<R>\xE9t\xE9</R>"), std::string::npos);
    CXmlParser y;
    ASSERT_TRUE(y.LoadXMLDocument(path.c_str()));
    EXPECT_EQ(y.GetTextValue(), "\xE9t\xE9");
    EXPECT_EQ(Document(y), Document(x));
}

TEST_F(XmlDocumentTest, CharactersTheCodePageLacks) {
    CXmlParser x;
    ASSERT_TRUE(x.LoadXMLDocument(
        dir.Write("u.xml", "<R a=\"\xE4\xB8\xAD\">\xE2\x82\xAC\xE4\xB8\xAD\xC2\x81</R>").c_str()));
    EXPECT_EQ(x.GetTextValue(), "\x80?\x81");
    EXPECT_EQ(x.GetAttributeValue(0), "?");
    // The whole document keeps them as references.
    EXPECT_EQ(Document(x), "<R a=\"&#20013;\">\x80&#20013;\x81</R>\n");
}

TEST_F(XmlDocumentTest, DeclarationPseudoAttributesInTheirOrder) {
    CXmlParser x;
    x.ResetXMLDocument();
    CString value;
    EXPECT_FALSE(x.GetHeader("xml", "version", value));
    ASSERT_TRUE(x.SetHeader("xml", "standalone", "yes"));
    ASSERT_TRUE(x.GetHeader("xml", "version", value));
    EXPECT_EQ(value, "1.0");
    ASSERT_TRUE(x.SetHeader("xml", "encoding", "windows-1252"));  // goes before standalone
    ASSERT_TRUE(x.SetHeader("xml", "standalone", "no"));
    ASSERT_TRUE(x.AddLastChildNode("R"));
    std::string doc = Document(x);
    EXPECT_EQ(doc.rfind("<?xml version=\"1.0\" ", 0), 0u) << doc;
    size_t enc = doc.find("encoding=\"windows-1252\""), sa = doc.find("standalone=\"no\"");
    EXPECT_LT(enc, sa);
    ASSERT_NE(sa, std::string::npos);
    // Saved in that encoding and read back the same.
    ASSERT_TRUE(x.SetTextValue("\x80"));
    std::string path = dir.Path("d.xml");
    ASSERT_TRUE(x.SaveXMLDocument(path.c_str()));
    EXPECT_NE(ScratchDir::Read(path).find("<R>\x80</R>"), std::string::npos);
    CXmlParser y;
    ASSERT_TRUE(y.LoadXMLDocument(path.c_str()));
    ASSERT_TRUE(y.GetHeader("xml", "standalone", value));
    EXPECT_EQ(value, "no");
    EXPECT_EQ(y.GetTextValue(), "\x80");

    // Declarations the DOM would not take are refused.
    EXPECT_FALSE(x.SetHeader("xml", "encoding", "no-such-encoding"));
    EXPECT_EQ(x.GetLastError(),
              "CXmlParser::SetHeader() : Can't create the new processing instruction node");
    EXPECT_FALSE(x.SetHeader("xml", "colour", "red"));
    ASSERT_TRUE(x.GetHeader("xml", "encoding", value));
    EXPECT_EQ(value, "windows-1252");
    CXmlParser z;
    z.ResetXMLDocument();
    EXPECT_FALSE(z.SetHeader("xml", "standalone", "perhaps"));
    EXPECT_EQ(z.GetLastError(), "PARSER_XML::SetHeader() : Can't create new Processing node");
}

TEST_F(XmlDocumentTest, OtherProcessingInstructions) {
    CXmlParser x;
    x.LoadXMLFromBuffer("<?app mode=\"fast\" level=\"2?><R/>");
    CString value;
    EXPECT_FALSE(x.GetHeader("app", "level", value));
    EXPECT_EQ(x.GetLastError(), "CXmlParser::GetHeader() : bad value structure");
    EXPECT_FALSE(x.SetHeader("app", "level", "3"));
    EXPECT_EQ(x.GetLastError(), "CXmlParser::SetHeader() : bad value structure");
    ASSERT_TRUE(x.SetHeader("app", "mode", "slow"));
    ASSERT_TRUE(x.GetHeader("app", "mode", value));
    EXPECT_EQ(value, "slow");
    ASSERT_TRUE(x.SetHeader("app", "owner", "me"));
    EXPECT_FALSE(x.GetHeader("other", "mode", value));
    ASSERT_TRUE(x.SetHeader("new", "a", "b"));
    EXPECT_EQ(Document(x),
              "<?new a=\"b\"?>\n<?app mode=\"slow\" level=\"2 owner=\"me\" ?>\n<R/>\n");
    EXPECT_FALSE(x.SetHeader("XmL", "a", "b"));
    EXPECT_FALSE(x.SetHeader("bad target", "a", "b"));
    EXPECT_FALSE(x.SetHeader("p", "a", "?>"));
}

TEST_F(XmlDocumentTest, MissingAndMalformedDocuments) {
    CXmlParser x;
    EXPECT_FALSE(x.LoadXMLDocument(dir.Path("missing.xml").c_str()));
    EXPECT_EQ(x.GetLastError(), "XML Document FAILED to load");
    EXPECT_NE(x.GetParseError().str().find("No such file"), std::string::npos);
    EXPECT_EQ(Document(x), "");  // an empty document remains

    EXPECT_FALSE(x.LoadXMLDocument(dir.Write("bad.xml", "<a>\n<b></a>").c_str()));
    EXPECT_EQ(x.GetLastError(), "XML Document FAILED to load");
    EXPECT_NE(x.GetParseError().str().find("line 2"), std::string::npos) << x.GetParseError();
    EXPECT_FALSE(x.LoadXMLDocument(dir.Dir().c_str()));
    EXPECT_FALSE(x.LoadXMLDocument(dir.Write("empty.xml", "").c_str()));

    x.LoadXMLFromBuffer("<unclosed>");
    EXPECT_NE(x.GetParseError(), "");
    EXPECT_EQ(x.GetCurrentTag(), "");
    EXPECT_FALSE(x.GoToChild());
    x.LoadXMLFromBuffer(nullptr);
    EXPECT_NE(x.GetParseError(), "");
    x.LoadXMLFromBuffer("<ok/>");
    EXPECT_EQ(x.GetParseError(), "");
    EXPECT_EQ(x.GetCurrentTag(), "<ok>");
}

TEST_F(XmlDocumentTest, UseBeforeAnyDocumentRaises) {
    CXmlParser x;
    EXPECT_EQ(x.GetLastError(), "Success");
    try {
        x.GoToRoot();
        FAIL() << "no exception";
    } catch (const CXmlError& e) {
        EXPECT_NE(std::string(e.what()).find("no XML document"), std::string::npos);
    }
    CString out;
    EXPECT_THROW(x.GetXMLDocument(out), CXmlError);
    EXPECT_THROW(x.GetXML(out), CXmlError);
    EXPECT_THROW(x.GoToChild("a"), CXmlError);
    EXPECT_THROW(x.AddLastChildNode("a"), CXmlError);
    EXPECT_THROW(x.SetAttribute("a", "b"), CXmlError);
    EXPECT_THROW(x.SetHeader("xml", "version", "1.0"), CXmlError);
    EXPECT_THROW(x.SaveXMLDocument(dir.Path("x.xml").c_str()), CXmlError);
    EXPECT_THROW(x.Remove(), CXmlError);
    EXPECT_FALSE(x.GetHeader("xml", "version", out));
    EXPECT_EQ(x.GetLastError(), "CXmlParser::GetHeader() : The XML Document is a null pointer");
    EXPECT_TRUE(x.IsRoot());  // the picture alone needs no document
}

TEST_F(XmlDocumentTest, SavingWhereNothingCanBeWrittenRaises) {
    CXmlParser x;
    x.LoadXMLFromBuffer("<R/>");
    try {
        x.SaveXMLDocument(dir.Path("no/such/folder.xml").c_str());
        FAIL() << "no exception";
    } catch (const CXmlError& e) {
        EXPECT_NE(std::string(e.what()).find("folder.xml"), std::string::npos) << e.what();
    }
}

TEST_F(XmlDocumentTest, EntitiesAreReplacedButNoOtherFileIsRead) {
    std::string secret = dir.Write("secret.txt", "SECRET");
    CXmlParser x;
    std::string doc = "<!DOCTYPE R [<!ENTITY co \"Caf\xC3\xA9 and Co\"><!ENTITY s SYSTEM \"" +
                      secret + "\">]><R>&co;|&s;</R>";
    ASSERT_TRUE(x.LoadXMLDocument(dir.Write("e.xml", doc).c_str())) << x.GetParseError();
    EXPECT_EQ(x.GetTextValue(), "Caf\xE9 and Co|");
}

TEST(CodePageTest, EveryByteSurvivesARoundTrip) {
    std::string all;
    for (int c = 1; c < 256; ++c)
        all += char(c);
    std::string utf8 = Utf8FromAnsi(all);
    EXPECT_EQ(AnsiFromUtf8(utf8), all);
    EXPECT_EQ(Utf8FromAnsi("\x80\xE9\xFC"), "\xE2\x82\xAC\xC3\xA9\xC3\xBC");
    EXPECT_EQ(AnsiFromUtf8("\xF0\x9F\x98\x80", true), "&#128512;");
    EXPECT_EQ(AnsiFromUtf8("\xF0\x9F\x98\x80"), "?");
    EXPECT_EQ(AnsiFromUtf8("a\xC3"), "a?");                      // cut short
    EXPECT_EQ(AnsiFromUtf8("\xC0\xAF|\xED\xA0\x80"), "??|???");  // not UTF-8
}

}  // namespace
