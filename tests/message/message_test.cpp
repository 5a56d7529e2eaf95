// The message: shallow copies on two threads, replies to requests, message text files.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "support/TreeModel.h"

using namespace QKL;
using namespace QKLTest;

static std::string fileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return in ? std::string(std::istreambuf_iterator<char>(in), {}) : "<no file>";
}

TEST(Sharing, TwoThreadsCopyingAndDestroyingLeaveTheCountAtOne) {
    auto_destroy<> message(fromXml("<packet><origin>agentA</origin></packet>"));
    const auto work = [&] { for (int i = 0; i < 10000; ++i) auto_destroy<>(message->copy(i % 2 == 0)); };
    std::thread first(work), second(work);
    first.join(), second.join();
    EXPECT_EQ(1, message->shareCount());
}

TEST(Reply, EachRequestGetsItsReplyText) {
    for (const auto& entry : std::filesystem::directory_iterator(QKL_TEST_DATA_DIR "/message/reply")) {
        const std::string path = entry.path().string(), stem = path.substr(0, path.find(".request.xml"));
        if (stem == path) continue;
        SCOPED_TRACE(path);
        auto_destroy<> request(fromXml(fileText(path))), reply(request->genReply("me"));
        // Deliberately the session becomes the reply's session ID, in its document at once.
        std::string session, inDocument;
        request->getSession(session), Iterator(reply->newIterator())->getValue(inDocument, "session");
        EXPECT_EQ(session, inDocument);
        EXPECT_EQ(fileText(stem + ".reply.xml"), textOf(*reply));
    }
}

TEST(Reply, CookieValueIsCutAtItsFirstNul) {  // for protocols whose values can hold one
    struct CookieIterator : QKLBinaryIterator {
        using QKLBinaryIterator::QKLBinaryIterator;
        using QKLBinaryIterator::getValue;
        int getValue(std::string& value, const std::string& name) const override {
            return name == "cookie" ? (value.assign("ab\0cd", 5), 0) : QKLBinaryIterator::getValue(value, name);
        }
    };
    struct Request : QKLBinary {
        using QKLBinary::newIterator;
        const QKLMessageIterator* newIterator() const override { return new CookieIterator(const_cast<Request*>(this)); }
    };
    const std::string bytes = bytesOf(*auto_destroy<>(auto_destroy<>(new Request())->genReply("me")));
    EXPECT_TRUE(bytes.find(std::string("ab\0", 3)) != std::string::npos && bytes.find("cd") == std::string::npos);
}

// "after" is the message's text after a read, the file's after a write ("w+": truncated).
TEST(TextFile, ResultsAndEffects) {
    char pattern[] = "/tmp/qkl_message_XXXXXX";
    const std::string dir = mkdtemp(pattern) ? pattern : "/no such directory";
    const std::string head = "<packet xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">", longer(300, 'x'),
                      origin = head + "<origin>a</origin>\n</packet>\n";
    // A kernel attribute file reports a page and reads less: the short count is passed on, deliberately.
    const std::string shortFile = "/sys/devices/system/cpu/online", shortText = fileText(shortFile);
    enum Op { Read, Write, NoDocument };  // NoDocument: toTextFile of a message without a document
    struct Case { const char* name; Op op; std::string file; const char* content; int result; std::string after; };
    const Case cases[] = {
        {"read a missing file", Read, "absent.xml", nullptr, -1, origin},
        {"read an empty file", Read, "empty.xml", "", -1, origin},  // as fromText("")
        {"read a message", Read, "m.xml", "<packet>\n<target>t</target></packet>", 0, head + "<target>t</target>\n</packet>\n"},
        {"read a short file", Read, "../.." + shortFile, nullptr, shortText == "<no file>" ? -1 : int(shortText.size()), origin},
        {"write over a longer file", Write, "long.xml", longer.c_str(), 0, origin},
        {"write into a missing directory", Write, "none/m.xml", nullptr, -1, "<no file>"},
        {"write a message without a document", NoDocument, "kept.xml", "kept", -1, "kept"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        const std::string path = dir + "/" + row.file;
        if (row.content) std::ofstream(path) << row.content;
        auto_destroy<> message(row.op == NoDocument ? new QKLBinary() : fromXml("<packet><origin>a</origin></packet>"));
        EXPECT_EQ(row.result, row.op == Read ? message->fromTextFile(path) : message->toTextFile(path));
        EXPECT_EQ(row.after, row.op == Read ? textOf(*message) : fileText(path));
    }
    std::filesystem::remove_all(dir);
}
