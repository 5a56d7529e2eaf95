// tests/data/text/golden: documents NAME.hex with their exact texts NAME.xml (NAME.legacy.xml below
// 40000) and the bytes each text reads back as, NAME.read.hex or NAME.hex; refused/: refused texts.
#include <filesystem>
#include <sstream>

#include "text/TextTestSupport.h"

using namespace QKLTest;

// The NAME of every NAME.xml in the folder (not NAME.legacy.xml).
static std::vector<std::string> textsIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(std::string(QKL_TEST_DATA_DIR) + "/text/" + folder)) {
        const std::filesystem::path& path = entry.path();
        if (path.extension() == ".xml" && path.stem().extension().empty()) names.push_back(path.stem().string());
    }
    return names;
}

// What a peer of that version receives: the document, or below 40000 the text with its zero byte.
static std::string sent(const QKLBinary& m, int peerVersion) {
    char* bytes = nullptr;
    int length = 0;
    std::string out;
    if (m.serialize(&bytes, &length, nullptr, peerVersion) == 0) out.assign(bytes, size_t(length));
    std::free(bytes);
    return out;
}

// Binary -> text -> binary, the text received as a stream by a copy sharing the document till then.
// Read under an iterator (names mapped) it is written alike; one with a kept unknown element is refused.
TEST(GoldenText, EachDocumentRendersAsItsTextAndTheTextReadsBackAsItsBytes) {
    const std::vector<std::string> names = textsIn("golden");
    ASSERT_EQ(8u, names.size());
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        const std::string xml = dataFile("text/golden/" + name + ".xml");
        const std::string legacy = dataFile("text/golden/" + name + ".legacy.xml");
        const std::string bytes = fromHex(dataFile("text/golden/" + name + ".hex"));
        const std::string readBytes = fromHex(dataFile("text/golden/" + name + ".read.hex"));
        Message received(new QKLBinary), target(new QKLBinary);
        ASSERT_EQ(0, received->init(bytes.data(), int(bytes.size())));
        Message read(static_cast<QKLBinary*>(received->copy(false)));
        ASSERT_EQ(0, read->init(xml.c_str(), int(xml.size() + 1)));
        EXPECT_EQ(readBytes.empty() ? bytes : readBytes, sent(*read, 40500));
        EXPECT_EQ(xml, render(*received));
        if (!legacy.empty()) { EXPECT_EQ(legacy + '\0', sent(*received, 39999)); }
        ASSERT_EQ(0, readText(*target, "<data><own_name/></data>"));
        Iterator at(target->newIterator());
        const std::string before = held(*target);
        ASSERT_EQ(name == "names" ? -1 : 0, readText(*target, xml, at.get()));
        if (name == "names") { EXPECT_EQ(before, held(*target)); continue; }
        ASSERT_EQ(0, at->firstChild());
        ASSERT_EQ(0, at->nextSibling());
        EXPECT_EQ(render(*read), render(*target, 40500, at.get()));
    }
}

// Each refused text, and each golden text cut anywhere short of its root's end.
TEST(RefusedText, IsRefusedAndLeavesTheMessageAsItWas) {
    const std::vector<std::string> names = textsIn("refused");
    ASSERT_EQ(31u, names.size());
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        expectRefused(dataFile("text/refused/" + name + ".xml"));
    }
    for (const std::string& name : textsIn("golden")) {
        const std::string xml = dataFile("text/golden/" + name + ".xml");
        for (size_t cut = 0; cut < xml.find_last_not_of('\n'); ++cut) {
            SCOPED_TRACE(name + " cut at " + std::to_string(cut));
            expectRefused(xml.substr(0, cut));
        }
    }
}
