// A program that knows only the installed package: it describes its own
// file in a fresh dictionary, lets the library create it, and writes and
// reads records through a derived record-file class.
#include <dbfile/dbfile.h>
#include <stdlib.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

class Part : public CDbFile {
  public:
    Part() : CDbFile("Parts.dat") {}
    int32_t number = 0;
    std::string label;

    void OnReadRecord() override {
        std::memcpy(&number, RcdBuf() + GetFieldOffset("Number"), 4);
        label = RcdBuf() + GetFieldOffset("Label");
    }
    void OnWriteRecord() override {
        SetDataLen(GetRcdLength());
        std::memset(RcdBuf(), 0, GetRcdLength());
        std::memcpy(RcdBuf() + GetFieldOffset("Number"), &number, 4);
        std::strncpy(RcdBuf() + GetFieldOffset("Label"), label.c_str(),
                     GetFieldLength("Label") - 1);
    }
};

int Fail(const char* what, int status) {
    std::fprintf(stderr, "dbfile consumer: %s failed with %d\n", what, status);
    return 1;
}

}  // namespace

int main() {
    char folder[] = "/tmp/dbfile-consumer-XXXXXX";
    if (!mkdtemp(folder)) return Fail("mkdtemp", 0);
    CDbFile::SetSysDataPath(folder);
    CDbFile::SetDataPath("data");
    std::snprintf(g_CddFileName, sizeof(g_CddFileName), "%s/parts.ddf", folder);

    {
        CCdd cdd(nullptr, g_CddFileName);
        if (int st = cdd.Open(nullptr, dbOpenCreate, 1)) return Fail("dictionary create", st);
        std::strcpy(cdd.m_FileDat.FileName, "Parts.dat");
        cdd.m_FileDat.FileType = dbFileData;
        cdd.m_FileDat.FileSpec.PageSize = 4096;
        cdd.AddField(0, 0, 4, dbInteger, 0, "Number", "Part number", "Part:");
        cdd.AddField(1, 4, 24, dbZString, 0, "Label", "Label", "Label:");
        cdd.AddKey(0, "ByNumber", "Number", 0);
        if (int st = cdd.Insert(nullptr)) return Fail("dictionary entry", st);
    }

    int result = 0;
    try {
        Part parts;
        if (int st = parts.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate)))
            return Fail("open with create", st);
        const char* labels[] = {"washer", "bolt", "nut"};
        for (int i = 0; i < 3; ++i) {
            parts.number = 30 - 10 * i;
            parts.label = labels[i];
            if (int st = parts.Insert(nullptr)) return Fail("insert", st);
        }
        std::string order;
        for (int st = parts.GetFirst(nullptr); st == 0; st = parts.GetNext(nullptr))
            order += std::to_string(parts.number) + ":" + parts.label + " ";
        if (order != "10:nut 20:bolt 30:washer ") {
            std::fprintf(stderr, "dbfile consumer: read back %s\n", order.c_str());
            result = 1;
        }
        if (parts.GetRcdCount() != 3) result = Fail("record count", int(parts.GetRcdCount()));
        if (int st = parts.Close(nullptr)) return Fail("close", st);
    } catch (int e) {
        return Fail("construction", e);
    }

    // The parts listed as an XML document and as fixed records, read back.
    CXmlParser xml;
    xml.ResetXMLDocument();
    xml.AddLastChildNode("Parts");
    xml.AddLastChildNode("Part");
    xml.SetAttribute("label", "\xE9crou");  // écrou, in the library's code page
    std::string xmlPath = std::string(folder) + "/parts.xml";
    xml.SaveXMLDocument(xmlPath.c_str());
    CXmlParser again;
    if (!again.LoadXMLDocument(xmlPath.c_str()) || !again.GoToChild("Part") ||
        again.GetAttributeValue(0) != "\xE9crou")
        result = Fail("XML document", 0);
    Path textPath((std::string(folder) + "/parts.txt").c_str());
    ZString first("0010nut   \n");
    CTextFile text;
    if (!text.Create(textPath, first) || !text.Add("0020bolt  \n") || text.RcdCount() != 2)
        result = Fail("text file", 0);
    text.Close();
    CDelimFile csv;
    if (!csv.Open(textPath) || !csv.Bottom() || csv.GetLine() != "0020bolt")
        result = Fail("reading the text file", 0);

    std::string cleanup = std::string("rm -rf ") + folder;
    if (std::system(cleanup.c_str()) != 0) result = 1;
    if (result == 0) std::printf("dbfile consumer: ok\n");
    return result;
}
