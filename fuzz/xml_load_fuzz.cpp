// Any bytes as an XML document, from a buffer and from a file; then the
// cursor walks it and the document is written out and read back, which
// must give the same text.
#include <dbfile/dbfile.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// One file for every input of the run, removed when the run ends.
const std::string& ScratchFile() {
    static const std::string path = "/tmp/dbfile-xml-fuzz-" + std::to_string(getpid()) + ".xml";
    static const int removed = std::atexit([] { unlink(path.c_str()); });
    (void)removed;
    return path;
}

// Visits every node through the cursor, reading each one's picture.
void Walk(CXmlParser& x, int depth) {
    for (int i = 0; i < x.GetAttributeCount(); ++i)
        (void)x.GetAttributeValue(i);
    (void)x.GetTextValue();
    if (depth < 64 && x.GoToChild()) {
        do
            Walk(x, depth + 1);
        while (x.GoForward());
        x.GoToParent();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 1 << 16) return 0;
    std::string text(reinterpret_cast<const char*>(data), size);
    CXmlParser x;
    x.LoadXMLFromBuffer(text.c_str());
    x.GoToRoot();
    Walk(x, 0);
    x.GoToRoot();
    (void)x.GoToDescendant("a");
    (void)x.GoToParent("b");
    (void)x.GoBackward("c");
    CString value;
    (void)x.GetHeader("xml", "encoding", value);

    static const std::string& path = ScratchFile();
    if (FILE* out = std::fopen(path.c_str(), "wb")) {
        std::fwrite(data, 1, size, out);
        std::fclose(out);
        CXmlParser y;
        if (y.LoadXMLDocument(path.c_str())) {
            Walk(y, 0);
            CString before, after;
            y.GetXMLDocument(before);
            try {
                y.SaveXMLDocument(path.c_str());
            } catch (const CXmlError&) {
                return 0;  // a declared encoding the text cannot be written in
            }
            CXmlParser z;
            if (!z.LoadXMLDocument(path.c_str())) return 0;  // characters XML cannot hold
            z.GetXMLDocument(after);
            if (after.str() != before.str()) __builtin_trap();
        }
    }
    return 0;
}
